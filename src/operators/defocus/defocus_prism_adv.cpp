#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/defocus/defocus_functions.h"
#include "operators/defocus/defocus_image_advanced.h"
#include "tasks/fork_rows.h"

#include <algorithm>

namespace velloran {

namespace {

enum DefocusPrismAdvArg : int {
    arg_image,
    arg_radii_x,
    arg_radii_y,
    arg_ring_radii_x,
    arg_ring_radii_y,
    arg_nsides,
    arg_pointiness,
    arg_rotate,
    arg_gamma,
    arg_scale,
    arg_bokeh,
    arg_noise_freq_amp_seed,
    arg_edge_mode,
    arg_show_shape,
    arg_highlight_boost_thresh
};

enum NoiseElement : int { noise_freq_x, noise_freq_y, noise_amp, noise_seed };

constexpr int colors = 3, alpha = 3;

}  // namespace

void image_defocus_prism_adv(Node* node) {
    const FilterFrame frame = filter_frame();
    const int n = std::min<int>(node->elnum, max_kernels), given = std::min(filter_elements(node, arg_image), n);
    const auto noise = [&](NoiseElement e) { return filter_arg(node, arg_noise_freq_amp_seed, e); };
    LensDefocus lens = {};
    lens.lens = {.sides = filter_arg(node, arg_nsides) >> fix_bits,
                 .pointiness = filter_arg_float(node, arg_pointiness),
                 .rotate = filter_arg_float(node, arg_rotate),
                 .bokeh = filter_arg_float(node, arg_bokeh),
                 .noise_freq = {static_cast<float>(noise(noise_freq_x)) * fix_to_float_scale,
                                static_cast<float>(noise(noise_freq_y)) * fix_to_float_scale},
                 .noise_amp = static_cast<float>(noise(noise_amp)) * fix_to_float_scale,
                 .noise_seed = static_cast<uint32_t>(noise(noise_seed))};
    lens.n_kernels = n;
    for (int c = 0; c < n; ++c) {
        lens.radii[c] = {lens_radius(node, arg_radii_x, c), lens_radius(node, arg_radii_y, c),
                         lens_radius(node, arg_ring_radii_x, c), lens_radius(node, arg_ring_radii_y, c)};
        // Brightness is the colours'; a matte stays one, unless it has a factor of its own.
        const bool own = c < filter_elements(node, arg_scale);
        lens.scales[c] = own || c < colors ? filter_arg_float(node, arg_scale, c) : 1.0f;
    }
    lens.edge_mode = std::max(filter_arg(node, arg_edge_mode) >> fix_bits, 0);
    lens.gamma = filter_arg_float(node, arg_gamma);
    lens.boost = filter_arg_float(node, arg_highlight_boost_thresh, 0);
    lens.boost_threshold = filter_arg_float(node, arg_highlight_boost_thresh, 1);
    if (filter_arg(node, arg_show_shape) > 0) {
        show_lens_shape(node->images, n, lens, frame);
        return;
    }
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    int sources = given;
    if (given == colors && n > alpha) {
        // A picture without a matte is opaque.
        fork_rows(frame.height, [&](int first, int count) {
            std::fill_n(node->images[alpha] + static_cast<ptrdiff_t>(first) * frame.width,
                        static_cast<ptrdiff_t>(count) * frame.width, FixPixel{fix_max});
        });
        sources = n;
    }
    defocus_image_advanced(node->images, sources, n, lens, frame, get_fft_info());
}

}  // namespace velloran
