// What image functions of the filters read of their arguments and of the frame.
#pragma once

#include "operators/blur/blur_plan.h"
#include "records/frame.h"
#include "records/node.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace velloran {

// Element e of argument i, a constant; a shorter one repeats its last element.
inline int32_t filter_arg(const Node* node, int i, int e = 0) {
    return node->arg_vals[i][std::min(e, std::max(node->args[i]->elnum - 1, 0))];
}
inline float filter_arg_float(const Node* node, int i, int e = 0) {
    return static_cast<float>(filter_arg(node, i, e)) * fix_to_float_scale;
}

struct FilterFrame {
    int width, height;  // of the planes
    int step;           // full-resolution pixels of a sample
    bool fields;        // a field is being rendered: rows two apart belong together
    size_t bytes() const { return static_cast<size_t>(width) * static_cast<size_t>(height) * sizeof(FixPixel); }
};
inline FilterFrame filter_frame() {
    return {the_frame->temp_raster_info.width, the_frame->temp_raster_info.height,
            std::max(the_frame->temp_raster_info.render_step, 1), the_frame->render_field > 0};
}

// Width of the whole frame in samples: what amounts are fractions of.
inline int filter_frame_width() {
    const int step = std::max(the_frame->render_info.render_step, 1);
    return (the_frame->render_info.full_ren.w + step - 1) / step;
}

// Radius in samples times 4096 of an amount: 1.0 is one eighth of the frame's width. Negative amounts give 0.
inline int32_t filter_radius(int64_t amount) {
    const int64_t held = std::clamp<int64_t>(amount, 0, max_blur_amount);
    return static_cast<int32_t>(std::min<int64_t>((held * filter_frame_width()) >> 3, INT32_MAX / 2));
}

// Passes of a filter_shape argument: 0 a box, 1 a tent, 2 and more a bell.
inline int filter_passes(int32_t shape) { return std::clamp((shape >> fix_bits) + 1, 1, max_blur_passes); }

}  // namespace velloran
