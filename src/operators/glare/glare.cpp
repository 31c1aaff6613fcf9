#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/flares/flare_args.h"
#include "operators/flares/flare_file.h"
#include "operators/flares/regions.h"
#include "operators/glare/glare_functions.h"
#include "operators/glare/glare_kernel.h"
#include "operators/glow/light_planes.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/user_abort.h"

#include <algorithm>

namespace velloran {

namespace {

enum GlareArg : int {
    arg_image,
    arg_threshold,
    arg_pre_blur,
    arg_size,
    arg_brightness,
    arg_saturation,
    arg_type,
    arg_convolve,
    arg_rotate,
    arg_rays_num_scale,
    arg_rays_length,
    arg_rays_thickness,
    arg_res_factor
};

FlareSettings read_settings(const Node* node) {
    FlareSettings settings;
    settings.two_stage_rays = true;
    settings.size[0] = filter_arg_float(node, arg_size, 0);
    settings.size[1] = filter_arg_float(node, arg_size, 1);
    settings.saturation = filter_arg_float(node, arg_saturation);
    settings.rotate = filter_arg_float(node, arg_rotate);
    settings.scale_rays_number = filter_arg_float(node, arg_rays_num_scale);
    settings.scale_rays_length = filter_arg_float(node, arg_rays_length);
    settings.scale_rays_width = filter_arg_float(node, arg_rays_thickness);
    return settings;
}

// The flare spread over all light by convolution. It is not divided by its own sum: a larger one is not fainter.
void convolve_light(Node* node, const GlareKernel& kernel, const FixPixel* const* light) {
    fft_info_t* const info = get_fft_info();
    fft_set_no_crop(info);
    const auto width = static_cast<float>(set_glare_kernel(info, kernel, filter_frame()));
    for (int c = 0; c < 3; ++c) {
        if (poll_abort()) return;
        const float gain = filter_arg_float(node, arg_brightness, c) * 10000.0f / (width * width);
        convolve_fix_fix(info, light[c], node->images[c], gain, c);
    }
}

// One flare on each connected light, in its colour.
void draw_on_lights(Node* node, const GlareKernel& kernel, const FixPixel* const* light) {
    const FilterFrame frame = filter_frame();
    auto* const regions = frame_array<LightRegion>(most_regions);
    const int n = find_light_regions(light, 3, frame.width, frame.height, most_regions, regions);
    clear_planes(node->images);
    const FlareCanvas canvas = frame_canvas(node->images);
    for (int i = 0; i < n && !poll_abort(); ++i) {
        FlareSettings settings = kernel.settings;
        const double place[] = {regions[i].x + canvas.left, regions[i].y + canvas.bottom};
        std::copy(place, place + 2, settings.hotspot);
        std::copy(place, place + 2, settings.pivot);
        float tint[3];
        for (int c = 0; c < 3; ++c) tint[c] = regions[i].color[c] * filter_arg_float(node, arg_brightness, c);
        tint_flare(&settings, tint);
        draw_lens_flare_noclear(canvas, *kernel.flare, settings);
    }
    frame_free(regions);
}

}  // namespace

void image_glare(Node* node) {
    if (!make_light_planes(node, arg_image, arg_threshold)) return;
    FixPixel* const* const light = node->images + node->elnum;
    pre_blur_light(light, 3, node, arg_pre_blur);
    FlareTable& table = glare_table();
    const int type = filter_arg(node, arg_type) >> fix_bits;
    const LensFlare* const flare = flare_of_type(table, type);
    if (!flare) {
        if (fail_frame()) V_error(level_error, "There is no glare to draw.");
        return;
    }
    const GlareKernel kernel = {flare, type, read_settings(node), filter_arg_float(node, arg_res_factor),
                                frame_canvas(node->images).aspect};
    if (filter_arg(node, arg_convolve) > 0)
        convolve_light(node, kernel, light);
    else
        draw_on_lights(node, kernel, light);
}

}  // namespace velloran
