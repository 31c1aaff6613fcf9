#include "operators/lightning/bolt_rows.h"

#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/lightning/bolt_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

void stroke(const StrokeRow& row) {
    FixPixel* const p = row.p;
    const float fraction = row.fraction, up = row.up, dx = row.dx, dy = row.dy, scale = row.inverse_square,
                width = row.a_width, rise = row.rise;
    const int32_t first = row.first;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < row.n; ++i) {
        const float u = static_cast<float>(first + i) - fraction;
        float t = (u * dx + up * dy) * scale;
        t = t > 0.0f ? t : 0.0f;
        t = t < 1.0f ? t : 1.0f;
        const float x = u - dx * t, y = up - dy * t, reach = width + rise * t;
        // A line thinner than a sample covers a part of it.
        const float thin = 2.0f * reach < 1.0f ? 2.0f * reach : 1.0f;
        const float held = reach > 0.5f ? reach : 0.5f;
        float cover = held + 0.5f - std::sqrt(x * x + y * y);
        cover = cover > 0.0f ? cover : 0.0f;
        cover = (cover < 1.0f ? cover : 1.0f) * thin;
        const auto light = static_cast<int32_t>(cover * 4096.0f);
        p[i] = static_cast<FixPixel>(p[i] > light ? p[i] : light);
    }
}

void show(FixPixel* p, const FixPixel* q, float scale, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        float v = static_cast<float>(q[i]) * scale;
        v = v < 32767.0f ? v : 32767.0f;
        v = v > -32767.0f ? v : -32767.0f;
        const auto light = static_cast<int32_t>(v);
        p[i] = static_cast<FixPixel>(p[i] > light ? p[i] : light);
    }
}

constexpr BoltRows bolt_table = {stroke, show};

}  // namespace
const BoltRows* bolt_rows_of_target() { return &bolt_table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(bolt_rows_of_target);
const BoltRows& bolt_rows() { return *HWY_DYNAMIC_DISPATCH(bolt_rows_of_target)(); }
}  // namespace velloran
#endif
