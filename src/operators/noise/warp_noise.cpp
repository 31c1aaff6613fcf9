// Solid noise at coordinates: for pictures in one element, for displacements in two, for colours in three.
#include "operators/noise/noise_functions.h"
#include "operators/noise/noise_line.h"

namespace velloran {
namespace {

enum WarpNoiseArg : int { arg_coords, arg_frequency, arg_octaves, arg_seed, arg_scale };

constexpr float cells_per_unit = 8;

void solid_run(Node* node, int first, int n) {
    const NoiseLine line = noise_line(node, first, n, cells_per_unit, seed_arg(node, arg_seed, first));
    const int32_t octaves = std::clamp(noise_arg(node, arg_octaves, 0, first), fix_scale, 8 * fix_scale);
    int32_t* out[3] = {};
    for (int e = 0; e < node->elnum; ++e) out[e] = node->lines[e] + first;
    lattice_rows().solid[node->elnum - 1](line, octaves, out);
}

}  // namespace

void pixel_warp_noise(Node* node) {
    for_each_run(node, [node](int first, int n) { solid_run(node, first, n); });
}

void pixel_warp_noise3(Node* node) { pixel_warp_noise(node); }

// Moved to a mean of 0 and scaled, so that it is a displacement.
void pixel_warp_noise2(Node* node) {
    for_each_run(node, [node](int first, int n) {
        const int32_t scale = noise_arg(node, arg_scale, 0, first);
        solid_run(node, first, n);
        for (int e = 0; e < node->elnum; ++e) {
            int32_t* const line = node->lines[e] + first;
            for (int i = 0; i < n; ++i) line[i] = fix_mul(line[i] - fix_scale / 2, scale);
        }
    });
}

}  // namespace velloran
