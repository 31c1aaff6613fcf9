#include "operators/lightning/bolt_rows.h"

#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/lightning/bolt_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/lanes-inl.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

struct StrokeLanes {
    F step, fraction, dx, dy, inverse_square, a_width, rise;
};

// What a stroke covers at the places u from its first end, up above it, in units of a sample.
HWY_INLINE I stroke_light(const StrokeLanes& s, F u, F up) {
    const F half(0.5f), one(1.0f), zero(0.0f);
    const F t = min(max((u * s.dx + up * s.dy) * s.inverse_square, zero), one);
    const F x = u - s.dx * t, y = up - s.dy * t, reach = s.a_width + s.rise * t;
    // A line thinner than a sample covers a part of it.
    const F thin = min(F(2.0f) * reach, one);
    const F cover = max(max(reach, half) + half - sqrt(x * x + y * y), zero);
    return whole(min(cover, one) * thin * F(4096.0f));
}

HWY_INLINE void stroke_row(const StrokeLanes& s, const StrokeSpan& span) {
    const hn::Rebind<FixPixel, DI> narrow;
    const F up(span.up);
    const auto lighten = [&](int i, FixPixel* p) HWY_ATTR {
        const I light = stroke_light(s, F(static_cast<float>(span.first + i)) + s.step - s.fraction, up);
        hn::StoreU(hn::DemoteTo(narrow, max(I(hn::PromoteTo(DI(), hn::LoadU(narrow, p))), light).v), narrow, p);
    };
    if (span.least + lane_count <= span.most) {
        // Samples that are worked twice, or beyond the stroke, come to no harm: the brighter light counts.
        for (int i = 0; i < span.n; i += lane_count) {
            const int at = i + lane_count <= span.most ? i : span.most - lane_count;
            lighten(at, span.p + at);
        }
        return;
    }
    for (int i = 0; i < span.n; i += lane_count) {
        const size_t bytes = static_cast<size_t>(span.n - i < lane_count ? span.n - i : lane_count) * sizeof(FixPixel);
        HWY_ALIGN FixPixel buffer[lane_count] = {};
        std::memcpy(buffer, span.p + i, bytes);
        lighten(i, buffer);
        std::memcpy(span.p + i, buffer, bytes);
    }
}

void stroke(const StrokeShape& shape, const StrokeSpan* spans, int n) {
    HWY_ALIGN float steps[lane_count];
    for (int k = 0; k < lane_count; ++k) steps[k] = static_cast<float>(k);
    const StrokeLanes lanes = {hn::Load(DF(), steps),   F(shape.fraction), F(shape.dx),  F(shape.dy),
                               F(shape.inverse_square), F(shape.a_width),  F(shape.rise)};
    for (int i = 0; i < n; ++i) stroke_row(lanes, spans[i]);
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
