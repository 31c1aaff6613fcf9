#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/edges/edge_functions.h"
#include "operators/edges/slopes.h"

namespace velloran {

namespace {

enum GradArg : int { arg_image, arg_pre_blur, arg_scale, arg_subpixel_blur };

}  // namespace

// The gradient of the blurred image times scale: element 0 to the right, element 1 upwards, in 1.0 per pixel.
void image_grad(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    FixPixel *const x = node->images[0], *const y = node->images[1];
    const EdgeRows& rows = edge_rows();
    for_each_slope_row(x, read_pre_blur(node, arg_pre_blur, arg_subpixel_blur), filter_arg_float(node, arg_scale),
                       [&](const SlopeRow& in, ptrdiff_t at) { rows.slopes(in, x + at, y + at); });
}

void need_rect_grad(Node* node) { need_slopes(node, arg_pre_blur); }

}  // namespace velloran
