#include "operators/convolve/convolve_functions.h"

#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/convolve/convolution.h"
#include "operators/convolve/kernel_picture.h"
#include "operators/tone/thresholds.h"
#include "records/run_state.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace velloran {

namespace {

enum ConvolveArg : int {
    arg_image = 0,
    arg_kernel = 1,
    arg_kernel_min = 2,
    arg_kernel_max = 3,
    arg_kernel_center = 4,
    arg_kernel_xyscale = 5,
    arg_gamma = 6,
    arg_dest_scale = 7,
    arg_kernel_color_p = 8,
    arg_autocenter_p = 9,
    arg_edge_type = 10,
    arg_autoscale_type = 11,
    arg_threshold = 12,
    arg_boost_highlights = 13,
    arg_highlight_threshold = 14
};

// Makes the kernel of the planes that hold its picture, unless it is at hand.
void set_kernel(const Node* node, const FixPixel* const* picture, int n_planes, const FilterFrame& frame) {
    KernelPicture k = {};
    k.planes = picture;
    k.n_planes = n_planes;
    k.width = frame.width;
    k.height = frame.height;
    const auto point = [&](ConvolveArg arg) {
        return FramePoint{filter_arg_float(node, arg, 0), filter_arg_float(node, arg, 1)};
    };
    place_kernel_picture(&k, frame, point(arg_kernel_min), point(arg_kernel_max), point(arg_kernel_center));
    k.scale_x = filter_arg_float(node, arg_kernel_xyscale, 0);
    k.scale_y = filter_arg_float(node, arg_kernel_xyscale, 1);
    k.color = filter_arg(node, arg_kernel_color_p) > 0;
    k.autocenter = filter_arg(node, arg_autocenter_p) > 0;
    const int edge_x = filter_arg(node, arg_edge_type, 0) >> fix_bits,
              edge_y = filter_arg(node, arg_edge_type, 1) >> fix_bits;
    const int autoscale = kernel_autoscale(filter_arg(node, arg_autoscale_type) >> fix_bits);
    char key[512];
    std::snprintf(key, sizeof key, "convolve(%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%d,%d,%d,%d,%d,%dx%d,%d,%016llx)",
                  static_cast<double>(k.x0), static_cast<double>(k.y0), static_cast<double>(k.x1),
                  static_cast<double>(k.y1), static_cast<double>(k.centre_x), static_cast<double>(k.centre_y),
                  static_cast<double>(k.scale_x), static_cast<double>(k.scale_y), k.color, k.autocenter, edge_x, edge_y,
                  autoscale, frame.width, frame.height, n_planes,
                  static_cast<unsigned long long>(kernel_picture_hash(k)));
    fft_info_t* info = get_fft_info();
    fft_set_no_crop(info);
    if (need_to_set_kernel(info, key)) set_kernel_picture(info, k, autoscale, edge_x, edge_y, key);
}

// Whether nothing outside the frame's crop is asked of node's planes: the last pass alone reads them, and neither they
// nor the output are kept for another frame, which may have another crop.
bool crop_suffices(const Node* node) {
    const Genotype* genotype = Globals_V4 ? Globals_V4->effect_genotype : nullptr;
    if (!genotype || node->in_cache_images || (genotype->effect_flags_1 & effect_keeps_own_images)) return false;
    const Node* nodes = genotype->nodes;
    const int n = genotype->node_number;
    if (node < nodes || node >= nodes + n) return false;
    // What goes into images is wanted throughout. Users stand before their arguments.
    auto* throughout = frame_array<uint8_t>(static_cast<size_t>(n));
    std::fill(throughout, throughout + n, uint8_t{0});
    for (int i = 0; i < n; ++i) {
        const Node& reader = nodes[i];
        if (reader.type != node_function || !(reader.flags & node_needed)) continue;
        if (!throughout[i] && !reader.fun_info->image_fun_p && !reader.image_count) continue;
        for (int a = 0; a < reader.eval_arg_number; ++a) throughout[reader.args[a] - nodes] = 1;
    }
    const bool suffices = !throughout[node - nodes];
    frame_free(throughout);
    return suffices;
}

}  // namespace

void image_convolve(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    const FilterFrame frame = filter_frame();
    const int n = node->elnum, given = std::max<int>(node->args[arg_image]->elnum, 1);
    const int n_kernel = std::max<int>(node->args[arg_kernel]->elnum, 1);
    if (n_kernel > n) {
        V_error(level_fatal, "Convolve internal error: kernel has too many channels (%d); dest has %d.", n_kernel, n);
        fatal_abort(1);
        return;
    }
    fix_plane* kernel = node->images + n;
    eval_node_tree_into_images(node->args[arg_kernel], kernel, node->image_index + n, 1);
    if (poll_abort()) return;
    set_kernel(node, kernel, n_kernel, frame);
    if (crop_suffices(node)) fft_set_std_crop(get_fft_info());
    const int count = frame.width * frame.height;
    int32_t thresholds[3];
    for (int c = 0; c < 3; ++c) thresholds[c] = filter_arg(node, arg_threshold, c);
    if (given >= 3)
        threshold_images_3(node->images, thresholds, fix_scale, count);
    else
        threshold_images_1(node->images[0], thresholds, fix_scale, count);
    ConvolveParams params = {filter_arg_float(node, arg_gamma), filter_arg_float(node, arg_boost_highlights),
                             filter_arg_float(node, arg_highlight_threshold), filter_arg_float(node, arg_dest_scale),
                             get_fft_info()};
    convolve_images(node->images, node->images, std::min(given, n), n, &params);
}

}  // namespace velloran
