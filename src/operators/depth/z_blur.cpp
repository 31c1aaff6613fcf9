#include "compile/need_reach.h"
#include "engine/evaluate.h"
#include "frame/filter_radius.h"
#include "operators/blur/blur_image.h"
#include "operators/blur/filter_args.h"
#include "operators/depth/depth_functions.h"
#include "operators/depth/z_node.h"

#include <algorithm>

namespace velloran {

namespace {

enum ZBlurArg : int {
    arg_image,
    arg_zbuffer,
    arg_n_layers,
    arg_combine,
    arg_focal_point,
    arg_depth_of_field,
    arg_blur_amount,
    arg_blur_near,
    arg_blur_far
};

struct ZBlur {
    int32_t x_radius, y_radius;  // at an amount of 1.0, samples times 4096
};

int32_t radius_at(int32_t radius, float amount) {
    return static_cast<int32_t>(std::min(static_cast<float>(radius) * amount, 1e9f));
}

void z_blur_layer(FixPixel* plane, const z_layer& layer, int, int, const ZBand& rows, const void* settings) {
    const auto& blur = *static_cast<const ZBlur*>(settings);
    blur_image(plane, plane,
               {.x_radius = radius_at(blur.x_radius, layer.amount),
                .y_radius = radius_at(blur.y_radius, layer.amount),
                .subpixel = true},
               rows.frame);
}

int z_blur_reach(float amount, const void* settings) {
    const auto& blur = *static_cast<const ZBlur*>(settings);
    return (radius_at(std::max(blur.x_radius, blur.y_radius), amount) >> fix_bits) + 2;
}

z_params read_params(const Node* node) {
    return {filter_arg_float(node, arg_focal_point),    filter_arg_float(node, arg_depth_of_field),
            filter_arg_float(node, arg_blur_near),      filter_arg_float(node, arg_blur_far),
            filter_arg(node, arg_n_layers) >> fix_bits, filter_arg(node, arg_combine) >> fix_bits};
}

}  // namespace

void image_z_blur(Node* node) {
    const ZPlanes planes = eval_z_planes(node, arg_image, arg_zbuffer, false);
    const ZBlur blur = {filter_radius(filter_arg(node, arg_blur_amount, 0)),
                        filter_radius(filter_arg(node, arg_blur_amount, 1))};
    z_process_images(planes, node->elnum, read_params(node),
                     {z_blur_layer, default_skip_layer, z_blur_reach, &blur, false, true}, filter_frame());
}

// What lies behind near things is continued below them, as far again as they are spread.
void need_rect_z_blur(Node* node) {
    bool varies = false;
    for (int i = arg_n_layers; i <= arg_blur_far; ++i) varies |= need::varies(node, i);
    if (varies) return need::filter(node, 2, need::everywhere);
    const auto value = [&](int i) { return static_cast<float>(need::value(node, i, 0)) * fix_to_float_scale; };
    const z_params params = {value(arg_focal_point),
                             value(arg_depth_of_field),
                             value(arg_blur_near),
                             value(arg_blur_far),
                             need::value(node, arg_n_layers, 0) >> fix_bits,
                             need::value(node, arg_combine, 0) >> fix_bits};
    const ZBlur blur = {filter_radius(need::value(node, arg_blur_amount, 0)),
                        filter_radius(need::value(node, arg_blur_amount, 1))};
    const int64_t reach = 2 * int64_t{z_blur_reach(largest_z_amount(params), &blur)};
    need::filter(node, 2, {reach, reach});
}

}  // namespace velloran
