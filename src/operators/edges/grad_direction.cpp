#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/edges/edge_functions.h"
#include "operators/edges/slopes.h"

namespace velloran {

namespace {

enum GradDirectionArg : int { arg_image, arg_pre_blur, arg_offset, arg_subpixel_blur };

}  // namespace

// The direction in which the blurred image rises, in turns counter-clockwise from the x axis, plus offset, from 0 up
// to 1; flat places have the offset alone.
void image_grad_direction(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    const BlurSettings blur = read_pre_blur(node, arg_pre_blur, arg_subpixel_blur);
    const EdgeRows& rows = edge_rows();
    for (int c = 0; c < node->elnum; ++c) {
        FixPixel* const plane = node->images[c];
        const float offset = filter_arg_float(node, arg_offset, c);
        for_each_slope_row(plane, blur, 1.0f,
                           [&](const SlopeRow& in, ptrdiff_t at) { rows.slope_direction(in, offset, plane + at); });
    }
}

void need_rect_grad_direction(Node* node) { need_slopes(node, arg_pre_blur); }

}  // namespace velloran
