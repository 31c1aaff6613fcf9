#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/convolve/kernel_picture.h"
#include "operators/depth/depth_functions.h"
#include "operators/depth/z_kernels.h"
#include "operators/depth/z_node.h"
#include "operators/tone/thresholds.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace velloran {

namespace {

enum ZConvolveArg : int {
    arg_image,
    arg_kernel,
    arg_z_buffer,
    arg_z_args,
    arg_kernel_scale,
    arg_scale_rel_nearfar,
    arg_kernel_minmax,
    arg_kernel_center,
    arg_gamma,
    arg_dest_scale,
    arg_autocenter_p,
    arg_edge_type,
    arg_autoscale_type,
    arg_convolve_alpha_p,
    arg_threshold
};

enum ZElement : int { z_n_layers, z_combine, z_focal_point, z_depth_of_field };
enum Side : int { side_near, side_far };
enum Corner : int { corner_left, corner_bottom, corner_right, corner_top };

constexpr int colors = 3, alpha = 3;

struct ZConvolve {
    KernelPicture kernel;  // its scale at an amount of 1.0
    uint64_t hash;
    int autoscale, edge_x, edge_y;
};

void set_layer_kernel(const ZConvolve& convolve, float amount, fft_info_t* info, const FilterFrame& frame) {
    KernelPicture k = convolve.kernel;
    k.scale_x *= amount;
    k.scale_y *= amount;
    const auto number = [](float v) { return static_cast<double>(v); };
    char key[512];
    std::snprintf(key, sizeof key, "z_convolve(%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%d,%d,%d,%d,%dx%d,%016llx)",
                  number(k.x0), number(k.y0), number(k.x1), number(k.y1), number(k.centre_x), number(k.centre_y),
                  number(k.scale_x), number(k.scale_y), k.autocenter, convolve.edge_x, convolve.edge_y,
                  convolve.autoscale, frame.width, frame.height, static_cast<unsigned long long>(convolve.hash));
    fft_set_crop(info, {frame.width, frame.height, frame.width, frame.height, 0, 0, frame.width, frame.height,
                        convolve_field()});
    if (need_to_set_kernel(info, key))
        set_kernel_picture(info, k, convolve.autoscale, convolve.edge_x, convolve.edge_y, key);
}

void z_convolve_layer(FixPixel* plane, const z_layer& layer, int index, int, const ZBand& rows, const void* settings) {
    fft_info_t* const info = z_kernel_record(index);
    info->own_edges = 0;
    set_layer_kernel(*static_cast<const ZConvolve*>(settings), layer.amount, info, rows.frame);
    if (!poll_abort()) convolve_fix_fix(info, plane, plane, 1.0f, 0);
}

// About half the kernel's size.
int z_convolve_reach(float amount, const void* settings) {
    const KernelPicture& k = static_cast<const ZConvolve*>(settings)->kernel;
    const float w = std::fabs(k.x1 - k.x0) * k.scale_x, h = std::fabs(k.y1 - k.y0) * k.scale_y;
    return static_cast<int>(std::min(std::max(w, h) * 0.5f * amount, static_cast<float>(k.width))) + 2;
}

ZConvolve read_kernel(const Node* node, const FixPixel* const* picture, const FilterFrame& frame) {
    ZConvolve convolve = {};
    KernelPicture& k = convolve.kernel;
    k.planes = picture;
    k.n_planes = 1;
    k.width = frame.width;
    k.height = frame.height;
    const auto corner = [&](Corner c) { return filter_arg_float(node, arg_kernel_minmax, c); };
    place_kernel_picture(&k, frame, {corner(corner_left), corner(corner_bottom)},
                         {corner(corner_right), corner(corner_top)},
                         {filter_arg_float(node, arg_kernel_center, 0), filter_arg_float(node, arg_kernel_center, 1)});
    k.scale_x = std::max(filter_arg_float(node, arg_kernel_scale, 0), fix_to_float_scale);
    k.scale_y = std::max(filter_arg_float(node, arg_kernel_scale, 1), fix_to_float_scale);
    k.autocenter = filter_arg(node, arg_autocenter_p) > 0;
    convolve.hash = kernel_picture_hash(k);
    convolve.autoscale = kernel_autoscale(filter_arg(node, arg_autoscale_type) >> fix_bits);
    convolve.edge_x = filter_arg(node, arg_edge_type, 0) >> fix_bits;
    convolve.edge_y = filter_arg(node, arg_edge_type, 1) >> fix_bits;
    return convolve;
}

}  // namespace

void image_z_convolve(Node* node) {
    const ZPlanes planes = eval_z_planes(node, arg_image, arg_z_buffer, false);
    const FilterFrame frame = filter_frame();
    const int n = node->elnum, n_light = std::min(n, colors), kernel_plane = z_plane_count(n, false);
    eval_node_tree_into_images(node->args[arg_kernel], node->images + kernel_plane, node->image_index + kernel_plane,
                               1);
    if (poll_abort()) return;
    const ZConvolve convolve = read_kernel(node, node->images + kernel_plane, frame);

    int32_t thresholds[colors];
    for (int c = 0; c < colors; ++c) thresholds[c] = filter_arg(node, arg_threshold, c);
    const int samples = frame.width * frame.height;
    if (n >= colors)
        threshold_images_3(planes.sources, thresholds, fix_scale, samples);
    else
        threshold_images_1(planes.sources[0], thresholds, fix_scale, samples);

    const auto z = [&](ZElement e) { return filter_arg(node, arg_z_args, e); };
    const z_params params = {static_cast<float>(z(z_focal_point)) * fix_to_float_scale,
                             static_cast<float>(z(z_depth_of_field)) * fix_to_float_scale,
                             filter_arg_float(node, arg_scale_rel_nearfar, side_near),
                             filter_arg_float(node, arg_scale_rel_nearfar, side_far),
                             z(z_n_layers) >> fix_bits,
                             z(z_combine) >> fix_bits};
    const float gamma = filter_arg_float(node, arg_gamma);
    const bool keep_alpha = n > alpha && filter_arg(node, arg_convolve_alpha_p) <= 0;
    if (keep_alpha) mp_memcpy(planes.results[alpha], planes.sources[alpha], frame.bytes());
    to_linear_light(planes.sources, n_light, gamma, samples);
    z_process_images(planes, keep_alpha ? alpha : n, params,
                     {z_convolve_layer, default_skip_layer, z_convolve_reach, &convolve, false, false}, frame);
    if (poll_abort()) return;
    from_linear_light(planes.results, n_light, gamma, filter_arg_float(node, arg_dest_scale), frame.width,
                      frame.height);
}

}  // namespace velloran
