// Patterns of cells at coordinates: spots, voronoi, hex_tiles.
#include "operators/noise/fix_circle.h"
#include "operators/noise/noise_functions.h"
#include "operators/noise/noise_line.h"

#include <cmath>

namespace velloran {
namespace {

constexpr float cells_per_unit = 2;
constexpr int32_t largest_radius = 1536;  // of a spot, in cells

}  // namespace

void pixel_spots(Node* node) {
    enum SpotsArg : int { arg_radius = 2, arg_seed };
    for_each_run(node, [node](int first, int n) {
        const int32_t radius = std::abs(noise_arg(node, arg_radius, 0, first) >> 2);
        lattice_rows().spots(noise_line(node, first, n, cells_per_unit, seed_arg(node, arg_seed, first)),
                             std::min(radius, largest_radius), node->lines[0] + first);
    });
}

void pixel_voronoi(Node* node) {
    enum VoronoiArg : int { arg_rotate_centers = 2, arg_seed };
    for_each_run(node, [node](int first, int n) {
        lattice_rows().voronoi(noise_line(node, first, n, cells_per_unit, seed_arg(node, arg_seed, first)),
                               noise_arg(node, arg_rotate_centers, 0, first), node->lines[0] + first);
    });
}

namespace {

// The corners of a tile lie at three heights, which the direction of the slope gives; they are brought to 0 .. 1.
HexTileParams hex_tile_params(const NoiseLine& line, int32_t revs) {
    const float up = static_cast<float>(fix_sin(revs)) * fix_to_float_scale;
    const float across = static_cast<float>(fix_cos(revs)) * fix_to_float_scale * 0.8660254f;
    const float corners[3] = {0, 0.5f * up + across, 1.3333333f * across};
    const float lowest = *std::min_element(corners, corners + 3), highest = *std::max_element(corners, corners + 3);
    const float scale = 1 / (highest - lowest);
    return {line.scale_x, line.scale_y, across * scale, up * scale, float_to_fix(-lowest * scale)};
}

}  // namespace

void pixel_hex_tiles(Node* node) {
    enum HexTilesArg : int { arg_revs = 2 };
    for_each_run(node, [node](int first, int n) {
        const NoiseLine line = noise_line(node, first, n, 1, 0);
        white_rows().hex_tiles(line.x, line.y, n, hex_tile_params(line, noise_arg(node, arg_revs, 0, first)),
                               node->lines[0] + first);
    });
}

}  // namespace velloran
