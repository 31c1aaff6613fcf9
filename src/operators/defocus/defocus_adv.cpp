#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/defocus/defocus_functions.h"
#include "operators/defocus/defocus_image_advanced.h"

#include <algorithm>

namespace velloran {

namespace {

enum DefocusAdvArg : int {
    arg_image,
    arg_radii,
    arg_nsides,
    arg_pointiness,
    arg_rotate,
    arg_gamma,
    arg_scale,
    arg_bokeh,
    arg_noise_freq,
    arg_noise_amp,
    arg_noise_seed,
    arg_edge_mode,
    arg_show_shape,
    arg_boost_highlights,
    arg_highlight_threshold
};

}  // namespace

void image_defocus_adv(Node* node) {
    const FilterFrame frame = filter_frame();
    LensDefocus lens = {};
    lens.lens = {.sides = filter_arg(node, arg_nsides) >> fix_bits,
                 .pointiness = filter_arg_float(node, arg_pointiness),
                 .rotate = filter_arg_float(node, arg_rotate),
                 .bokeh = filter_arg_float(node, arg_bokeh),
                 .noise_freq = {filter_arg_float(node, arg_noise_freq, 0), filter_arg_float(node, arg_noise_freq, 1)},
                 .noise_amp = filter_arg_float(node, arg_noise_amp),
                 .noise_seed = static_cast<uint32_t>(filter_arg(node, arg_noise_seed))};
    lens.radii[0] = {lens_radius(node, arg_radii, 0), lens_radius(node, arg_radii, 1), 0.0f, 0.0f};
    lens.edge_mode = std::max(filter_arg(node, arg_edge_mode) >> fix_bits, 0);
    lens.gamma = filter_arg_float(node, arg_gamma);
    lens.boost = filter_arg_float(node, arg_boost_highlights);
    lens.boost_threshold = filter_arg_float(node, arg_highlight_threshold);
    std::fill_n(lens.scales, max_kernels, filter_arg_float(node, arg_scale));
    if (filter_arg(node, arg_show_shape) > 0) {
        show_lens_shape(node->images, node->elnum, lens, frame);
        return;
    }
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    defocus_image_advanced(node->images, node->elnum, node->elnum, lens, frame, get_fft_info());
}

}  // namespace velloran
