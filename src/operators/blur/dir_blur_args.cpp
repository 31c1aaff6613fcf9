#include "operators/blur/dir_blur_args.h"

#include "compile/pass_tests.h"
#include "frame/filter_radius.h"
#include "operators/blur/filter_args.h"
#include "records/frame.h"

#include <algorithm>

namespace velloran {

DirBlur read_dir_blur(const Node* node, int first) {
    DirBlur blur = {};
    blur.n_channels = std::min<int>(node->elnum, max_kernels);
    for (int c = 0; c < blur.n_channels; ++c) {
        blur.lengths[c] =
            static_cast<float>(filter_radius(filter_arg(node, first + line_amount, c))) * fix_to_float_scale;
        blur.offsets[c] = filter_arg_float(node, first + line_shift, c);
        blur.gains[c] = filter_arg_float(node, first + line_scale, c);
    }
    blur.angle = filter_arg_float(node, first + line_angle);
    blur.aspect = the_frame->pixel_aspect_ratio > 0.0f ? 1.0f / the_frame->pixel_aspect_ratio : 1.0f;
    blur.edge_mode = filter_arg(node, first + line_edge_mode) >> fix_bits;
    blur.bias = std::clamp(filter_arg_float(node, first + line_bias), -1.0f, 1.0f);
    const int filter = filter_arg(node, first + line_filter) >> fix_bits;
    blur.filter = filter >= 0 && filter <= 3 ? filter + 2 : line_constant;
    return blur;
}

bool dir_blur_does_nothing(const Node* node, int first) {
    const int amount = first + line_amount;
    if (!pass::arg_constant_p(node, amount) || !pass::first_value_is(node, first + line_scale, fix_scale)) return false;
    const int32_t* v = node->args[amount]->vals;
    return v[0] == 0 && v[1] == 0 && v[2] == 0;
}

need::Reach dir_blur_reach(const Node* node, int first) {
    for (const int i : {line_amount, line_angle, line_shift, line_edge_mode, line_filter, line_bias})
        if (need::varies(node, first + i)) return need::everywhere;
    if (need::value(node, first + line_edge_mode, 0) >> fix_bits == convolve_edge_wrap) return need::everywhere;
    const int64_t length = filter_reach(need::scaled_amount(need::largest(node, first + line_amount, 0), fix_scale));
    // What transforms make of a sample has last bits from everything around it. Lines of few samples go without: each
    // of the steps along a line has two samples across, in each channel a kernel of its own.
    const float aspect = the_frame->pixel_aspect_ratio;
    const bool wide_pixels = aspect > 0.0f && aspect < 1.0f;
    const int64_t wide = wide_pixels ? static_cast<int64_t>(static_cast<double>(length) / aspect) + 1 : length;
    if (2 * (wide + 2) * node->elnum > max_cheap_runs) return need::everywhere;
    const int64_t shift = need::largest(node, first + line_shift, 0) + fix_scale;
    return {((length * shift) >> fix_bits) + 2, ((wide * shift) >> fix_bits) + 2};
}

}  // namespace velloran
