#include "operators/looks/gradient_n_rows.h"

#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/looks/gradient_n_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

HWY_INLINE FixPixel to_sample(float v) {
    v *= 4096.0f;
    v += v < 0.0f ? -0.5f : 0.5f;
    v = v < -32767.0f ? -32767.0f : v;
    v = v > 32767.0f ? 32767.0f : v;
    return static_cast<FixPixel>(static_cast<int32_t>(v));
}

template <int points>
void mix_points(const Gradient& gradient, float x0, float x_step, float y, int first, FixPixel* red, FixPixel* green,
                FixPixel* blue, int n) {
    GradientPoint p[points];
    float up[points];
    for (int k = 0; k < points; ++k) {
        p[k] = gradient.points[k];
        up[k] = (y - p[k].y) * (y - p[k].y);
    }
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const float x = x0 + static_cast<float>(first + i) * x_step;
        float sum = 0.0f, r = 0.0f, g = 0.0f, b = 0.0f;
        for (int k = 0; k < points; ++k) {
            const float across = x - p[k].x;
            float distance = std::sqrt(across * across + up[k]) - p[k].size;
            distance = distance > 0.0f ? distance : 0.0f;
            const float weight = 1.0f / (distance * distance + p[k].softness);
            sum += weight;
            r += weight * p[k].color[0];
            g += weight * p[k].color[1];
            b += weight * p[k].color[2];
        }
        const float scale = 1.0f / sum;
        red[i] = to_sample(r * scale);
        green[i] = to_sample(g * scale);
        blue[i] = to_sample(b * scale);
    }
}

void mix(const Gradient& gradient, float x, float x_step, float y, int first, FixPixel* const* out, int n) {
    constexpr decltype(&mix_points<1>) of_points[gradient_points] = {mix_points<1>, mix_points<2>, mix_points<3>,
                                                                     mix_points<4>, mix_points<5>, mix_points<6>};
    of_points[gradient.n - 1](gradient, x, x_step, y, first, out[0], out[1], out[2], n);
}

constexpr GradientNRows table = {mix};

}  // namespace
const GradientNRows* gradient_n_rows_of_target() { return &table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(gradient_n_rows_of_target);
const GradientNRows& gradient_n_rows() { return *HWY_DYNAMIC_DISPATCH(gradient_n_rows_of_target)(); }
}  // namespace velloran
#endif
