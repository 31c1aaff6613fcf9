#include "compile/need_reach.h"
#include "engine/evaluate.h"
#include "frame/filter_radius.h"
#include "operators/blur/filter_args.h"
#include "operators/defocus/defocus_functions.h"
#include "operators/defocus/defocus_image.h"
#include "support/user_abort.h"

namespace velloran {

namespace {

enum DefocusArg : int { arg_image, arg_radius, arg_gamma, arg_scale, arg_subpixel, arg_shape };

}  // namespace

float lens_radius(const Node* node, int i, int e) {
    return static_cast<float>(filter_radius(filter_arg(node, i, e))) * fix_to_float_scale;
}

void image_defocus(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    const FilterFrame frame = filter_frame();
    const DefocusSettings settings = {.x_radius = lens_radius(node, arg_radius, 0),
                                      .y_radius = lens_radius(node, arg_radius, 1),
                                      .shape = filter_arg(node, arg_shape) >> fix_bits,
                                      .subpixel = filter_arg(node, arg_subpixel) > 0,
                                      .gamma = filter_arg_float(node, arg_gamma),
                                      .final_value = filter_arg_float(node, arg_scale)};
    for (int c = 0; c < node->elnum && !poll_abort(); ++c) defocus_image(node->images[c], settings, frame);
}

// An aperture's corners lie up to a tenth beyond the radius, its edge half a sample.
void need_rect_defocus(Node* node) {
    const need::Reach r = need::blur_arg_reach(node, arg_radius);
    if (r.x > least_transformed_radius || r.y > least_transformed_radius) {
        need::filter(node, 1, need::everywhere);
        return;
    }
    need::filter(node, 1, {r.x + r.x / 8 + 2, r.y + r.y / 8 + 2});
}

}  // namespace velloran
