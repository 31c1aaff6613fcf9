#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/edges/edge_functions.h"
#include "operators/edges/slopes.h"

namespace velloran {

namespace {

enum EdgeDetectArg : int { arg_image, arg_pre_blur, arg_scale, arg_subpixel_blur };

}  // namespace

// scale times the length of the gradient of the blurred image, for each channel.
void image_edge_detect(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    const BlurSettings blur = read_pre_blur(node, arg_pre_blur, arg_subpixel_blur);
    const EdgeRows& rows = edge_rows();
    for (int c = 0; c < node->elnum; ++c) {
        FixPixel* const plane = node->images[c];
        for_each_slope_row(plane, blur, filter_arg_float(node, arg_scale, c),
                           [&](const SlopeRow& in, ptrdiff_t at) { rows.slope_length(in, plane + at); });
    }
}

void need_rect_edge_detect(Node* node) { need_slopes(node, arg_pre_blur); }

}  // namespace velloran
