#include "operators/polygons/grid_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/polygons/grid_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/lanes-inl.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

// How much of [low, high] lies on lines of so much width around the multiples of period: the difference of the integral
// at its ends, both counted from a multiple nearby, so that few bits are lost.
HWY_INLINE F on_lines(F low, F high, F width, F period) {
    const F base = floor(low / period);
    const auto integral = [&](F at) {
        const F lines = at / period - base, whole_lines = floor(lines + F(0.5f));
        const F rest = clamp((lines - whole_lines) * period, width * F(-0.5f), width * F(0.5f));
        return whole_lines * width + rest;
    };
    return integral(high) - integral(low);
}

// The share that the lines across an axis take of a box of that size around at, and the share that lies on the grid.
struct Shares {
    F lines, grid;
};
HWY_INLINE Shares shares(const GridLines& g, F at, F size) {
    const F half = size * F(0.5f), margin = F(0.5f) * max(F(g.minor_width), F(g.major_width));
    const F low = clamp(at - half, F(g.first) - margin, F(g.last) + margin);
    const F high = clamp(at + half, F(g.first) - margin, F(g.last) + margin);
    F lines = on_lines(low, high, F(g.minor_width), F(1.0f));
    if (g.spacing > 0.0f)
        lines = lines + (on_lines(low, high, F(g.major_width), F(g.spacing)) -
                         on_lines(low, high, F(g.minor_width), F(g.spacing)));
    return {clamp(lines / size, F(0.0f), F(1.0f)), clamp((high - low) / size, F(0.0f), F(1.0f))};
}

HWY_INLINE F draw_lanes(const GridRow& r, F i) {
    const F depth = F(r.depth) + i * F(r.depth_x);
    // A sample on the horizon sees as much of the plane as lies below it.
    const F change = max(sqrt(F(r.depth_x * r.depth_x + r.depth_y * r.depth_y)), F(1e-12f));
    const F seen = clamp(depth / change + F(0.5f), F(0.0f), F(1.0f));
    const F distance = F(1.0f) / max(depth, change * F(0.25f));
    const F u = (F(r.u) + i * F(r.u_x)) * distance, v = (F(r.v) + i * F(r.v_x)) * distance;
    const auto size = [&](F at, float by_x, float by_y) {
        const F x = (F(by_x) - at * F(r.depth_x)) * distance, y = (F(by_y) - at * F(r.depth_y)) * distance;
        return clamp(sqrt(x * x + y * y), F(1e-5f), F(1e9f));
    };
    const Shares a = shares(r.across_u, u, size(u, r.u_x, r.u_y));
    const Shares b = shares(r.across_v, v, size(v, r.v_x, r.v_y));
    return (a.lines * b.grid + b.lines * a.grid - a.lines * b.lines) * seen * F(4096.0f) + F(0.5f);
}

void draw(const GridRow& row, int first, FixPixel* out, int n) {
    HWY_ALIGN int32_t samples[lane_count];
    HWY_ALIGN int32_t places[lane_count];
    for (int k = 0; k < lane_count; ++k) places[k] = k;
    const I lanes(hn::Load(DI(), places));
    for (int x = 0; x < n; x += lane_count) {
        const I v = whole(draw_lanes(row, number(lanes + I(first + x))));
        hn::Store(v.v, DI(), samples);
        const int count = n - x < lane_count ? n - x : lane_count;
        for (int k = 0; k < count; ++k) out[x + k] = static_cast<FixPixel>(samples[k]);
    }
}

constexpr GridRows table = {draw};

}  // namespace
const GridRows* grid_rows_of_target() { return &table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(grid_rows_of_target);
const GridRows& grid_rows() { return *HWY_DYNAMIC_DISPATCH(grid_rows_of_target)(); }
}  // namespace velloran
#endif
