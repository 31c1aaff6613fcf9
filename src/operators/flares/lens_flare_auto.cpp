// Flares on the lights of a picture.
#include "engine/evaluate.h"
#include "operators/blur/blur_image.h"
#include "operators/blur/filter_args.h"
#include "operators/flares/draw_flare.h"
#include "operators/flares/flare_args.h"
#include "operators/flares/flare_functions.h"
#include "operators/flares/regions.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"

#include <algorithm>

namespace velloran {

namespace {

// Counted from pre_blur on.
enum AutoArg : int {
    arg_pre_blur,
    arg_type,
    arg_pivot,
    arg_gamma,
    arg_saturation,
    arg_scale_size,
    arg_rotate,
    arg_hotspot_color,
    arg_rays_color,
    arg_other_color,
    arg_shift,
    arg_max_flares,
    arg_scale_rays
};
constexpr int arg_image = 0;

struct Lights {
    LightRegion* regions;
    int count;
};

// The lights of the image, which is blurred. first: the argument pre_blur.
Lights find_lights(FixPixel* image, const Node* node, int first) {
    const FilterFrame frame = filter_frame();
    const int32_t radius = filter_radius(filter_arg(node, first + arg_pre_blur));
    if (radius >= fix_scale) {
        const BlurSettings blur = {.x_radius = radius, .y_radius = radius, .subpixel = true};
        blur_image(image, image, blur, frame);
    }
    const int most = std::clamp(filter_arg(node, first + arg_max_flares) >> fix_bits, 0, most_regions);
    Lights lights = {frame_array<LightRegion>(static_cast<size_t>(most_regions)), 0};
    const FixPixel* const planes[] = {image, image, image};
    if (most != 1) {
        lights.count = find_light_regions(planes, 1, frame.width, frame.height, most, lights.regions);
    } else if (find_light_centre(planes, 1, frame.width, frame.height, lights.regions)) {
        LightRegion& light = lights.regions[0];
        get_color_from_images(planes, frame.width, frame.height, light.x, light.y, light.color);
        lights.count = 1;
    }
    return lights;
}

void draw(const Node* node, int first, const Lights& lights, FixPixel* const* planes) {
    const LensFlare* const flare = read_flare_type(node, first + arg_type);
    if (!flare) return;
    FlareSettings settings;
    read_flare_args(
        node,
        {first + arg_type, first + arg_pivot, first + arg_gamma, first + arg_saturation, first + arg_scale_size,
         first + arg_rotate, first + arg_hotspot_color, first + arg_rays_color, first + arg_other_color},
        &settings);
    settings.scale_rays_number = filter_arg_float(node, first + arg_scale_rays, 0);
    settings.scale_rays_width = filter_arg_float(node, first + arg_scale_rays, 1);
    settings.scale_rays_length = filter_arg_float(node, first + arg_scale_rays, 2);
    settings.scale_other_width = filter_arg_float(node, first + arg_scale_rays, 3);
    const FlareCanvas canvas = frame_canvas(planes);
    const double step = std::max(the_frame->temp_raster_info.render_step, 1);
    for (int i = 0; i < lights.count; ++i) {
        if (poll_abort()) return;
        const LightRegion& light = lights.regions[i];
        FlareSettings one = settings;
        const double place[] = {light.x + canvas.left, light.y + canvas.bottom};
        for (int k = 0; k < 2; ++k)
            one.hotspot[k] = place[k] + static_cast<double>(filter_arg_float(node, first + arg_shift, k)) / step;
        tint_flare(&one, light.color);
        draw_lens_flare_noclear(canvas, *flare, one);
    }
}

}  // namespace

void image_lens_flare_auto(Node* node) {
    constexpr int first = arg_image + 1;
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    const Lights lights = find_lights(node->images[0], node, first);
    clear_planes(node->images);
    draw(node, first, lights, node->images);
    frame_free(lights.regions);
}

void image_lens_flare_auto_mask(Node* node) {
    constexpr int arg_mask = 1, first = arg_mask + 1;
    const FilterFrame frame = filter_frame();
    // The mask may be made of the very planes that the image came in.
    auto* const image = static_cast<FixPixel*>(frame_malloc(frame.bytes()));
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    mp_memcpy(image, node->images[0], frame.bytes());
    const MaskedFlare flare = begin_masked_flare(node, arg_mask);
    const Lights lights = find_lights(image, node, first);
    draw(node, first, lights, flare.planes);
    finish_masked_flare(node, flare);
    frame_free(lights.regions);
    frame_free(image);
}

}  // namespace velloran
