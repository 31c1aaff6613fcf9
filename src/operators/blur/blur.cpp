#include "compile/need_reach.h"
#include "compile/pass_tests.h"
#include "engine/evaluate.h"
#include "operators/blur/blur_functions.h"
#include "operators/blur/blur_image.h"
#include "operators/blur/filter_args.h"

namespace velloran {

namespace {

enum BlurArg : int { arg_image, arg_amount, arg_filter_shape, arg_scale, arg_subpixel };

}  // namespace

void image_blur(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    const FilterFrame frame = filter_frame();
    BlurSettings blur = {.x_radius = filter_radius(filter_arg(node, arg_amount, 0)),
                         .y_radius = filter_radius(filter_arg(node, arg_amount, 1)),
                         .passes = filter_passes(filter_arg(node, arg_filter_shape)),
                         .subpixel = filter_arg(node, arg_subpixel) > 0};
    for (int c = 0; c < node->elnum; ++c) {
        blur.gain = filter_arg(node, arg_scale, c);
        blur_image(node->images[c], node->images[c], blur, frame);
    }
}

int pass_blur(Node* node) {
    if (pass::is_zero(node, arg_amount) && pass::is_one(node, arg_scale)) return arg_image;
    return pass::is_zero(node, arg_scale) ? arg_scale : pass::none;
}

void need_rect_blur(Node* node) { need::filter(node, 1, need::blur_arg_reach(node, arg_amount)); }

}  // namespace velloran
