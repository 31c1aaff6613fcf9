// One look-up a pixel, in levels that an argument tells for each.
#include "engine/evaluate.h"
#include "operators/warps/warp_functions.h"
#include "operators/warps/warp_lines.h"

namespace velloran {
namespace {

enum WarpFilterArg : int { arg_image, arg_coords, arg_mipmap_levels, arg_wrap };
enum WarpFilterValue : int { value_coords, value_levels, value_own };

struct WarpFilterJob {
    LookUp look_up;
    fix_plane planes[4];
    int elements;
};
WarpFilterJob job;

void hold_levels(const int32_t* line, bool varies, int first, int32_t highest, int32_t* out, int n) {
    for (int i = 0; i < n; ++i) out[i] = std::clamp(line[varies ? first + i : 0], 0, highest);
}

void warp_filter_line(Node* root, int column, int row, int offset) {
    const LookUp& look_up = job.look_up;
    const PlaceLines lines = place_lines(root, value_coords, value_own, look_up, column, row);
    const Node* const levels = root->args[value_levels];
    const int second = std::min(1, levels->elnum - 1);
    for_each_block(n_pixels, [&](int first, int n) {
        Positions p;
        alignas(64) int32_t x_level[look_up_block], y_level[look_up_block];
        lines.positions(*look_up.rows, first, &p, n);
        wrap_positions(look_up, p, n);
        const bool vary = !is_constant(levels);
        hold_levels(root->arg_lines[value_levels][0], vary, first, look_up.table.max_x, x_level, n);
        hold_levels(root->arg_lines[value_levels][second], vary, first, look_up.table.max_y, y_level, n);
        look_up_filtered(look_up, p, x_level, y_level,
                         PlanesAt(job.planes, job.elements, ptrdiff_t{offset} + first).planes, n);
    });
}

}  // namespace

// The picture at coords, in x and y as coarse as mipmap_levels says: a level of 1.0 is the mean of two samples, 2.0 of
// four and so on; what lies between mixes two levels.
void image_warp_filter(Node* node) {
    if (!warp_mipmap(node, arg_wrap, true)) return;
    job.look_up = make_look_up(mipmap);
    std::copy_n(node->images, node->elnum, job.planes);
    job.elements = node->elnum;
    Node own = own_coordinates();
    Node* const values[] = {node->args[arg_coords], node->args[arg_mipmap_levels], &own};
    eval_node_trees_pixel_loop(values, 3, warp_filter_line);
}

}  // namespace velloran
