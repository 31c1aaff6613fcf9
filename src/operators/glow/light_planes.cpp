#include "operators/glow/light_planes.h"

#include "engine/evaluate.h"
#include "operators/blur/blur_image.h"
#include "operators/blur/filter_args.h"
#include "operators/tone/thresholds.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"

namespace velloran {

void make_light(const FixPixel* const* image, FixPixel* const* light, int n_planes, const Node* node,
                int arg_threshold) {
    const FilterFrame frame = filter_frame();
    int32_t thresholds[3];
    for (int c = 0; c < 3; ++c) thresholds[c] = filter_arg(node, arg_threshold, c);
    for (int c = 0; c < n_planes; ++c) mp_memcpy(light[c], image[c], frame.bytes());
    if (n_planes == 3)
        threshold_images_3(light, thresholds, fix_scale, frame.width * frame.height);
    else
        threshold_images_1(light[0], thresholds, fix_scale, frame.width * frame.height);
}

bool make_light_planes(Node* node, int arg_image, int arg_threshold) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    const FilterFrame frame = filter_frame();
    const int given = filter_elements(node, arg_image);
    for (int c = given; c < node->elnum; ++c) mp_memcpy(node->images[c], node->images[given - 1], frame.bytes());
    make_light(node->images, node->images + node->elnum, node->elnum, node, arg_threshold);
    return !poll_abort();
}

void pre_blur_light(FixPixel* const* light, int n_planes, const Node* node, int arg_pre_blur) {
    const BlurSettings blur = {.x_radius = filter_radius(filter_arg(node, arg_pre_blur, 0)),
                               .y_radius = filter_radius(filter_arg(node, arg_pre_blur, 1)),
                               .subpixel = true};
    if (blur.x_radius < fix_scale && blur.y_radius < fix_scale) return;
    for (int c = 0; c < n_planes; ++c) blur_image(light[c], light[c], blur, filter_frame());
}

}  // namespace velloran
