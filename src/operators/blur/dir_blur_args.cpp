#include "operators/blur/dir_blur_args.h"

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

}  // namespace velloran
