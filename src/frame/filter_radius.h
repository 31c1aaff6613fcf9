// How far a filter reaches by its amount: 1.0 is one eighth of the frame's width; amounts are held to 0 .. 64.
#pragma once

#include "records/fix_pixel.h"
#include "records/frame.h"

#include <algorithm>
#include <cstdint>

namespace velloran {

constexpr int64_t largest_filter_amount = 0x40000;  // 64.0

// The whole frame in samples.
inline int filter_samples(int pixels) {
    const int step = std::max(the_frame->render_info.render_step, 1);
    return (pixels + step - 1) / step;
}
inline int filter_frame_width() { return filter_samples(the_frame->render_info.full_ren.w); }
inline int filter_frame_height() { return filter_samples(the_frame->render_info.full_ren.h); }

// Radius in samples times 4096.
inline int32_t filter_radius(int64_t amount) {
    const int64_t held = std::clamp<int64_t>(amount, 0, largest_filter_amount);
    return static_cast<int32_t>(std::min<int64_t>((held * filter_frame_width()) >> 3, INT32_MAX / 2));
}

// Whole samples that a blur of that radius takes in on each side.
inline int64_t filter_reach(int64_t amount) { return (int64_t{filter_radius(amount)} + fix_scale - 1) >> fix_bits; }

}  // namespace velloran
