#include "operators/blur/blur_plan.h"

#include <algorithm>

namespace velloran {

void split_radius(int32_t r, int passes, int size, int32_t* radii) {
    const int32_t limit = std::max((size >> 1) - 1, 0);
    int32_t left = std::max(r, 0);
    for (int i = 0; i < passes; ++i) {
        radii[i] = std::min(left / (passes - i), limit);
        left -= radii[i];
    }
}

blur_plan make_blur_plan(int32_t radius, int size, int passes, bool subpixel, int bits, int32_t* scale) {
    blur_plan plan = {};
    int32_t lo, hi;
    float fraction = 0.0f;
    if (subpixel) {
        lo = radius >> 12;
        hi = ((radius - 1) >> 12) + 1;
        fraction = static_cast<float>(radius - (lo << 12)) / 4096.0f;
    } else {
        lo = hi = static_cast<int32_t>((int64_t{radius} + 2048) >> 12);
    }
    split_radius(lo, passes, size, plan.lo_radius);
    split_radius(hi, passes, size, plan.hi_radius);
    plan.hi_weight = fraction;
    for (int i = 0; i < passes; ++i) {
        const int32_t wl = 2 * plan.lo_radius[i] + 1, wh = 2 * plan.hi_radius[i] + 1;
        plan.pre_shift[i] =
            std::max(0, bit_count(static_cast<uint32_t>(*scale)) + bit_count(static_cast<uint32_t>(wh)) - bits);
        *scale = (*scale >> plan.pre_shift[i]) * wh;
        plan.lo_weight[i] = static_cast<float>(wh) / static_cast<float>(wl) * (1.0f - fraction);
    }
    return plan;
}

}  // namespace velloran
