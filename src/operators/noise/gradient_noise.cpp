// Gradient noise at coordinates of two or three elements: simplex_noise and perlin_noise.
#include "operators/noise/noise_functions.h"
#include "operators/noise/noise_line.h"
#include "support/hash.h"

namespace velloran {
namespace {

enum GradientNoiseArg : int { arg_coords, arg_frequency, arg_octaves, arg_seed, arg_abs_mode };

constexpr float cells_per_unit = 8;

using GradientRow = decltype(GradientRows::perlin2);

void run_gradient_noise(Node* node, GradientRow row) {
    for_each_run(node, [node, row](int first, int n) {
        const uint32_t seed = seed_arg(node, arg_seed, first);
        const int octaves =
            (std::clamp(noise_arg(node, arg_octaves, 0, first), 0, 16 * fix_scale) + fix_scale / 2) >> fix_bits;
        const bool fold = noise_arg(node, arg_abs_mode, 0, first) >> fix_bits != 0;
        // Another seed is another place of the same endless pattern.
        const auto offset = static_cast<int32_t>(bit_hash(seed) & 0xffff);
        row(noise_line(node, first, n, cells_per_unit, seed), std::clamp(octaves, 1, 8), fold, offset,
            node->lines[0] + first);
    });
}

}  // namespace

void pixel_simplex_noise(Node* node) {
    const GradientRows& rows = gradient_rows();
    run_gradient_noise(node, arg_elnum(node, arg_coords) > 2 ? rows.simplex3 : rows.simplex2);
}

// In three elements each octave is looked up at whole lattice numbers, where lattice noise is 0. Texts were written for
// that, so it stays.
void pixel_perlin_noise(Node* node) {
    if (arg_elnum(node, arg_coords) > 2)
        std::fill_n(node->lines[0], n_pixels, 0);
    else
        run_gradient_noise(node, gradient_rows().perlin2);
}

const char* hint_perlin_noise(const Node* node) {
    return arg_elnum(node, arg_coords) > 2
               ? "perlin_noise of three elements is 0 everywhere; simplex_noise has a depth to move through."
               : nullptr;
}

}  // namespace velloran
