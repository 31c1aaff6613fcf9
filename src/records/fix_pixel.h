// The image sample: signed 16 bits, 4096 is 1.0, native white is 4095.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace velloran {

using FixPixel = int16_t;

constexpr int fix_scale = 4096;  // 1.0
constexpr int fix_max = 4095;    // native white
constexpr int fix_bits = 12;
constexpr float fix_to_float_scale = 0.00024414063f;  // 1/4096
constexpr int fix_image_limit = 32767;                // samples stored in planes are held to +- this

// Rounds to nearest, halves away from zero. Values whose fixed-point form does not fit 32 bits, and NaN, are held to
// the ends of the range (NaN becomes 0), so that any number in a text is safe.
inline int32_t float_to_fix(float v) {
    const float scaled = 4096.0f * v + std::copysign(0.5f, v);
    if (!(scaled > -2147483648.0f)) return scaled != scaled ? 0 : INT32_MIN;
    if (scaled >= 2147483648.0f) return INT32_MAX;
    return static_cast<int32_t>(scaled);
}

// Product of two samples; wraps in 32 bits (the build uses -fwrapv).
constexpr int32_t fix_mul(int32_t a, int32_t b) { return (a * b) >> fix_bits; }

constexpr FixPixel clip_to_image(int32_t v) {
    return static_cast<FixPixel>(std::clamp(v, -fix_image_limit, fix_image_limit));
}

// The planes of a working image in the order R, G, B, A (or L, A). A plane's row pitch is temp_raster_info->width.
using fix_plane = FixPixel*;

}  // namespace velloran
