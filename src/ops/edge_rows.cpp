#include "ops/edge_rows.h"

#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "ops/edge_rows.cpp"
#include "hwy/foreach_target.h"
#include "support/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

HWY_INLINE int32_t held(int32_t v) {
    return v < -fix_image_limit ? -fix_image_limit : v > fix_image_limit ? fix_image_limit : v;
}

HWY_INLINE FixPixel to_sample(float v) {
    v *= 4096.0f;
    v += v < 0.0f ? -0.5f : 0.5f;
    v = v < -32767.0f ? -32767.0f : v;
    v = v > 32767.0f ? 32767.0f : v;
    return static_cast<FixPixel>(static_cast<int32_t>(v));
}

void apply_mask(FixPixel* p, const FixPixel* m, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t mask = m[i] >= fix_max ? fix_scale : m[i] < 0 ? 0 : m[i];
        p[i] = static_cast<FixPixel>((p[i] * mask) >> fix_bits);
    }
}

void resolve_mask(FixPixel* c, const FixPixel* p, const FixPixel* b, const FixPixel* m, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t mask = m[i], blurred = b[i], old = c[i];
        // Both operands are exact in double precision, and so is the truncated quotient.
        const bool divide = blurred > 0 && blurred < fix_max;
        const double divisor = divide ? blurred : fix_scale;
        int32_t v = static_cast<int32_t>(static_cast<double>(p[i] * fix_scale) / divisor);
        v = held(v);
        const int32_t mixed = old + (((v - old) * (mask < fix_max ? mask : 0)) >> fix_bits);
        v = mask < fix_max ? mixed : v;
        c[i] = static_cast<FixPixel>(mask > 0 ? held(v) : old);
    }
}

void scaled_difference(const FixPixel* a, const FixPixel* b, FixPixel* out, int32_t offset, int32_t scale, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        // In 64 bits no scale wraps.
        int64_t v = offset + ((static_cast<int64_t>(a[i] - b[i]) * scale) >> fix_bits);
        v = v < -fix_image_limit ? -fix_image_limit : v > fix_image_limit ? fix_image_limit : v;
        out[i] = static_cast<FixPixel>(v);
    }
}

void add_difference(const FixPixel* a, const FixPixel* b, FixPixel* out, int32_t scale, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        int64_t v = a[i] + ((static_cast<int64_t>(a[i] - b[i]) * scale) >> fix_bits);
        v = v < -fix_image_limit ? -fix_image_limit : v > fix_image_limit ? fix_image_limit : v;
        out[i] = static_cast<FixPixel>(v);
    }
}

// Calls body(i, slope in x, slope in y) for every sample: the ends of the row by themselves, the rest in one loop.
template <class Body>
HWY_INLINE void each_slope(const SlopeRow& in, Body body) {
    const auto across = [&](int i) { return static_cast<float>(in.above[i] - in.below[i]) * in.y_factor; };
    const int last = in.n - 1;
    body(0, static_cast<float>(in.row[last > 0 ? 1 : 0] - in.row[0]) * in.x_factor, across(0));
    INDEPENDENT_ITERATIONS
    for (int i = 1; i < last; ++i) body(i, static_cast<float>(in.row[i + 1] - in.row[i - 1]) * in.x_factor, across(i));
    if (last > 0) body(last, static_cast<float>(in.row[last] - in.row[last - 1]) * in.x_factor, across(last));
}

void slopes(const SlopeRow& in, FixPixel* x, FixPixel* y) {
    each_slope(in, [&](int i, float sx, float sy) {
        x[i] = to_sample(sx);
        y[i] = to_sample(sy);
    });
}

void slope_length(const SlopeRow& in, FixPixel* out) {
    each_slope(in, [&](int i, float sx, float sy) { out[i] = to_sample(std::sqrt(sx * sx + sy * sy)); });
}

// Arc tangent of 0 .. 1 in turns: Abramowitz and Stegun 4.4.49, error below 2e-6 of a turn.
HWY_INLINE float turns(float t) {
    const float s = t * t;
    float v = 0.0028662257f;
    v = v * s - 0.0161657367f;
    v = v * s + 0.0429096138f;
    v = v * s - 0.0752896400f;
    v = v * s + 0.1065626393f;
    v = v * s - 0.1420889944f;
    v = v * s + 0.1999355085f;
    v = v * s - 0.3333314528f;
    v = v * s + 1.0f;
    return v * t * 0.15915494f;
}

void slope_direction(const SlopeRow& in, float offset, FixPixel* out) {
    each_slope(in, [&](int i, float sx, float sy) {
        const float ax = sx < 0.0f ? -sx : sx, ay = sy < 0.0f ? -sy : sy;
        const float least = ax < ay ? ax : ay, most = ax < ay ? ay : ax;
        float a = turns(least / (most > 0.0f ? most : 1.0f));
        a = ay > ax ? 0.25f - a : a;
        a = sx < 0.0f ? 0.5f - a : a;
        a = sy < 0.0f ? 1.0f - a : a;
        a += offset;
        a -= std::floor(a);
        a = a >= 0.99987793f ? 0.0f : a;  // what would round up to 1.0
        out[i] = to_sample(a);
    });
}

void slope_along(const SlopeRow& in, const FixPixel* x, const FixPixel* y, FixPixel* out) {
    each_slope(in, [&](int i, float sx, float sy) {
        const float px = static_cast<float>(x[i]) * fix_to_float_scale,
                    py = static_cast<float>(y[i]) * fix_to_float_scale;
        out[i] = to_sample(sx * px + sy * py);
    });
}

void float_slopes(const SlopeRow& in, float* x, float* y) {
    each_slope(in, [&](int i, float sx, float sy) {
        x[i] = sx;
        y[i] = sy;
    });
}

constexpr EdgeRows table = {apply_mask,   resolve_mask,    scaled_difference, add_difference, slopes,
                            slope_length, slope_direction, slope_along,       float_slopes};

}  // namespace
const EdgeRows* edge_rows_of_target() { return &table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(edge_rows_of_target);
const EdgeRows& edge_rows() { return *HWY_DYNAMIC_DISPATCH(edge_rows_of_target)(); }
}  // namespace velloran
#endif
