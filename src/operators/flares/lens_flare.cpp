#include "operators/blur/filter_args.h"
#include "operators/flares/draw_flare.h"
#include "operators/flares/flare_args.h"
#include "operators/flares/flare_functions.h"

namespace velloran {

namespace {

// Counted from the type on.
enum FlareArg : int {
    arg_type,
    arg_hotspot,
    arg_pivot,
    arg_gamma,
    arg_saturation,
    arg_scale_size,
    arg_rotate,
    arg_hotspot_color,
    arg_rays_color,
    arg_other_color,
    arg_scale_rays_number,
    arg_scale_rays_width,
    arg_scale_rays_length,
    arg_scale_other_width
};

// first: the argument type.
void draw(const Node* node, int first, FixPixel* const* planes) {
    const LensFlare* const flare = read_flare_type(node, first + arg_type);
    if (!flare) return;
    FlareSettings settings;
    read_flare_args(
        node,
        {first + arg_type, first + arg_pivot, first + arg_gamma, first + arg_saturation, first + arg_scale_size,
         first + arg_rotate, first + arg_hotspot_color, first + arg_rays_color, first + arg_other_color},
        &settings);
    for (int k = 0; k < 2; ++k)
        settings.hotspot[k] = sample_of_pixel(static_cast<double>(filter_arg_float(node, first + arg_hotspot, k)));
    settings.scale_rays_number = filter_arg_float(node, first + arg_scale_rays_number);
    settings.scale_rays_width = filter_arg_float(node, first + arg_scale_rays_width);
    settings.scale_rays_length = filter_arg_float(node, first + arg_scale_rays_length);
    settings.scale_other_width = filter_arg_float(node, first + arg_scale_other_width);
    draw_lens_flare_noclear(frame_canvas(planes), *flare, settings);
}

}  // namespace

void image_lens_flare(Node* node) {
    clear_planes(node->images);
    draw(node, 0, node->images);
}

void image_lens_flare_mask(Node* node) {
    constexpr int arg_mask = 0;
    const MaskedFlare flare = begin_masked_flare(node, arg_mask);
    draw(node, arg_mask + 1, flare.planes);
    finish_masked_flare(node, flare);
}

}  // namespace velloran
