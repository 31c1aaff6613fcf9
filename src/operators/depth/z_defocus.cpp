#include "operators/blur/filter_args.h"
#include "operators/defocus/defocus_functions.h"
#include "operators/defocus/defocus_image_advanced.h"
#include "operators/depth/depth_functions.h"
#include "operators/depth/z_kernels.h"
#include "operators/depth/z_node.h"
#include "support/user_abort.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

enum ZDefocusArg : int {
    arg_image,
    arg_zbuffer,
    arg_n_layers,
    arg_combine,
    arg_focal_point,
    arg_depth_of_field,
    arg_width,
    arg_lens_shape,
    arg_noise_freq,
    arg_noise_amp,
    arg_noise_seed,
    arg_use_gamma,
    arg_brightness,
    arg_edge_mode,
    arg_rel_nearfar
};

enum LensElement : int { lens_sides, lens_pointiness, lens_rotate, lens_bokeh };
enum Side : int { side_near, side_far };

constexpr int colors = 3;

struct ZDefocus {
    LensDefocus lens;  // its radii at an amount of 1.0
    float size;        // how far its corners reach, in radii
    int height;        // of the planes
};

void z_defocus_layer(FixPixel* plane, const z_layer& layer, int index, int, const ZBand& rows, const void* settings) {
    LensDefocus lens = static_cast<const ZDefocus*>(settings)->lens;
    lens.radii[0].x *= layer.amount;
    lens.radii[0].y *= layer.amount;
    fft_info_t* const info = z_kernel_record(index);
    info->own_edges = rows.count < static_cast<const ZDefocus*>(settings)->height;
    set_lens_kernel(info, lens, rows.frame);
    if (!poll_abort()) convolve_fix_fix(info, plane, plane, 1.0f, 0);
}

int z_defocus_reach(float amount, const void* settings) {
    const auto& defocus = *static_cast<const ZDefocus*>(settings);
    const float radius = std::max(defocus.lens.radii[0].x, defocus.lens.radii[0].y) * amount + 0.5f;
    return static_cast<int>(std::min(radius * defocus.size, 1e6f)) + 2;
}

}  // namespace

// The brightness is that of the whole result: what is in focus is as bright as what is not.
void image_z_defocus(Node* node) {
    const ZPlanes planes = eval_z_planes(node, arg_image, arg_zbuffer, false);
    const FilterFrame frame = filter_frame();
    const auto shape = [&](LensElement e) { return filter_arg(node, arg_lens_shape, e); };
    ZDefocus defocus = {};
    defocus.lens.lens = {
        .sides = shape(lens_sides) >> fix_bits,
        .pointiness = static_cast<float>(shape(lens_pointiness)) * fix_to_float_scale,
        .rotate = static_cast<float>(shape(lens_rotate)) * fix_to_float_scale,
        .bokeh = static_cast<float>(shape(lens_bokeh)) * fix_to_float_scale,
        .noise_freq = {filter_arg_float(node, arg_noise_freq, 0), filter_arg_float(node, arg_noise_freq, 1)},
        .noise_amp = filter_arg_float(node, arg_noise_amp),
        .noise_seed = static_cast<uint32_t>(filter_arg(node, arg_noise_seed))};
    defocus.lens.radii[0] = {lens_radius(node, arg_width, 0), lens_radius(node, arg_width, 1), 0.0f, 0.0f};
    defocus.lens.edge_mode = std::max(filter_arg(node, arg_edge_mode) >> fix_bits, 0);
    defocus.height = frame.height;
    defocus.size = prepare_lens_shape(defocus.lens.lens).size;
    const z_params params = {filter_arg_float(node, arg_focal_point),
                             filter_arg_float(node, arg_depth_of_field),
                             filter_arg_float(node, arg_rel_nearfar, side_near),
                             filter_arg_float(node, arg_rel_nearfar, side_far),
                             filter_arg(node, arg_n_layers) >> fix_bits,
                             filter_arg(node, arg_combine) >> fix_bits};
    const float gamma = filter_arg_float(node, arg_use_gamma);
    const int n = node->elnum, n_light = std::min(n, colors);
    to_linear_light(planes.sources, n_light, gamma, frame.width * frame.height);
    // Where edges come from the other side of the picture, or lie within the planes, all of them have to be there.
    const WrapDims& wrap = the_frame->temp_raster_info.wrap;
    const bool edges_within = wrap.wrap_sw > 0 && (wrap.wrap_sw < frame.width || wrap.wrap_sh < frame.height);
    const bool bands = defocus.lens.edge_mode != convolve_edge_wrap && !edges_within;
    z_process_images(planes, n, params, {z_defocus_layer, default_skip_layer, z_defocus_reach, &defocus, false, bands},
                     frame);
    if (poll_abort()) return;
    from_linear_light(planes.results, n_light, gamma, filter_arg_float(node, arg_brightness), frame.width,
                      frame.height);
}

}  // namespace velloran
