#include "frame/filter_radius.h"
#include "operators/blur/blur_image.h"
#include "operators/blur/filter_args.h"
#include "operators/depth/depth_functions.h"
#include "operators/depth/z_node.h"

#include <algorithm>

namespace velloran {

namespace {

enum ZGlowArg : int {
    arg_image,
    arg_zbuffer,
    arg_n_layers,
    arg_combine,
    arg_width_near,
    arg_width_far,
    arg_width_xy_near,
    arg_width_xy_far,
    arg_brightness_near,
    arg_brightness_far
};

constexpr int colors = 3;

// The glow of depth 0 or 1, for each colour. In the middle between them nothing glows.
struct GlowSide {
    int32_t x_radius[colors], y_radius[colors];  // samples times 4096
    float brightness[colors];
    bool dark() const {
        return std::all_of(brightness, brightness + colors, [](float v) { return v == 0.0f; });
    }
};

struct ZGlow {
    GlowSide near, far;
};

constexpr float middle = 0.5f;

const GlowSide& side_of(const z_layer& layer, const void* settings) {
    const auto& glow = *static_cast<const ZGlow*>(settings);
    return layer.z_centre < middle ? glow.near : glow.far;
}

void z_glow_layer(FixPixel* plane, const z_layer& layer, int, int channel, const ZBand& rows, const void* settings) {
    const GlowSide& side = side_of(layer, settings);
    blur_image(plane, plane,
               {.x_radius = side.x_radius[channel],
                .y_radius = side.y_radius[channel],
                .subpixel = true,
                .gain = float_to_fix(side.brightness[channel] * layer.amount)},
               rows.frame);
}

bool z_glow_skip_layer(const z_layer& layer, const void* settings) {
    return layer.amount == 0.0f || side_of(layer, settings).dark();
}

int z_glow_reach(float, const void* settings) {
    const auto& glow = *static_cast<const ZGlow*>(settings);
    int32_t largest = 0;
    for (const GlowSide* side : {&glow.near, &glow.far})
        for (int c = 0; c < colors; ++c) largest = std::max({largest, side->x_radius[c], side->y_radius[c]});
    return (largest >> fix_bits) + 2;
}

GlowSide read_side(const Node* node, int width, int width_xy, int brightness) {
    GlowSide side = {};
    for (int c = 0; c < colors; ++c) {
        const auto radius = [&](int axis) {
            const int64_t amount = filter_arg(node, width, c), own = filter_arg(node, width_xy, axis);
            return filter_radius((amount * own) >> fix_bits);
        };
        side.x_radius[c] = radius(0);
        side.y_radius[c] = radius(1);
        side.brightness[c] = filter_arg_float(node, brightness, c);
    }
    return side;
}

}  // namespace

void image_z_glow(Node* node) {
    const ZPlanes planes = eval_z_planes(node, arg_image, arg_zbuffer, true);
    const ZGlow glow = {read_side(node, arg_width_near, arg_width_xy_near, arg_brightness_near),
                        read_side(node, arg_width_far, arg_width_xy_far, arg_brightness_far)};
    // Amounts of 2 make 1 of the whole way from the middle to either end.
    const z_params params = {middle,
                             0.0f,
                             2.0f,
                             2.0f,
                             filter_arg(node, arg_n_layers) >> fix_bits,
                             filter_arg(node, arg_combine) >> fix_bits};
    z_process_images(planes, node->elnum, params, {z_glow_layer, z_glow_skip_layer, z_glow_reach, &glow, true, true},
                     filter_frame());
}

}  // namespace velloran
