#include "operators/looks/gradient_n_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/looks/gradient_n_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/lanes-inl.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

HWY_INLINE F to_sample(F v) {
    v = clamp(v * F(4096.0f), F(-32767.0f), F(32767.0f));
    return v + select(v < F(0.0f), F(-0.5f), F(0.5f));
}

// Squared distance of lanes at x from the disc of point k, with its softness.
HWY_INLINE F spread(const GradientPoint& p, F x, float y) {
    const F across = x - F(p.x);
    const float up = y - p.y;
    F square = across * across + F(up * up);
    if (p.size > 0.0f) {
        const F distance = max(sqrt(square) - F(p.size), F(0.0f));
        square = distance * distance;
    }
    return min(square + F(p.softness), F(gradient_farthest));
}

// A point's weight, 1 / spread, is taken times the product of all spreads: what the other points' multiply to. So there
// is one division, at the end.
template <int points>
HWY_INLINE void mix_lanes(const Gradient& gradient, F x, float y, F* color) {
    F before[points], own[points];  // product of the spreads before a point, and its own
    F product(1.0f);
    for (int k = 0; k < points; ++k) {
        before[k] = product;
        own[k] = spread(gradient.points[k], x, y);
        product = product * own[k];
    }
    F behind(1.0f), sum(0.0f);
    for (int c = 0; c < gradient_channels; ++c) color[c] = F(0.0f);
    for (int k = points - 1; k >= 0; --k) {
        const F weight = before[k] * behind;
        behind = behind * own[k];
        sum = sum + weight;
        for (int c = 0; c < gradient_channels; ++c) color[c] = color[c] + weight * F(gradient.points[k].color[c]);
    }
    const F scale = F(1.0f) / sum;
    for (int c = 0; c < gradient_channels; ++c) color[c] = to_sample(color[c] * scale);
}

template <int points>
void mix_points(const Gradient& gradient, float x, float x_step, float y, int first, FixPixel* const* out, int n) {
    HWY_ALIGN float places[lane_count];
    HWY_ALIGN int32_t samples[lane_count];
    for (int i = 0; i < n; i += lane_count) {
        for (int k = 0; k < lane_count; ++k) places[k] = static_cast<float>(first + i + k);
        F color[gradient_channels];
        mix_lanes<points>(gradient, F(x) + F(hn::Load(DF(), places)) * F(x_step), y, color);
        for (int c = 0; c < gradient_channels; ++c) {
            FixPixel* const to = out[c] + i;
#if !ROW_TARGET_PLAIN
            if (i + lane_count <= n) {
                const hn::Rebind<FixPixel, DI> narrow;
                hn::StoreU(hn::DemoteTo(narrow, whole(color[c]).v), narrow, to);
                continue;
            }
#endif
            hn::Store(whole(color[c]).v, DI(), samples);
            const int count = n - i < lane_count ? n - i : lane_count;
            for (int k = 0; k < count; ++k) to[k] = static_cast<FixPixel>(samples[k]);
        }
    }
}

void mix(const Gradient& gradient, float x, float x_step, float y, int first, FixPixel* const* out, int n) {
    constexpr decltype(&mix_points<1>) of_points[gradient_points] = {mix_points<1>, mix_points<2>, mix_points<3>,
                                                                     mix_points<4>, mix_points<5>, mix_points<6>};
    of_points[gradient.n - 1](gradient, x, x_step, y, first, out, n);
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
