#include "operators/mipmap/sample_rows.h"

#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/mipmap/sample_rows.cpp"
#include "hwy/foreach_target.h"
#include "operators/mipmap/taps-inl.h"
#include "rows/fast_math-inl.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

// ---- Positions

template <bool coords_vary, bool own_vary>
HWY_INLINE void line_positions(const AxisLine& line, int first, int32_t* out, int n) {
    const int32_t* const coords = line.coords + (coords_vary ? first : 0);
    static constexpr int32_t none = 0;
    const int32_t* const own = line.own ? line.own + (own_vary ? first : 0) : &none;
    const int32_t start = line.start + first * line.step, step = line.step;
    const float scale = line.scale;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t c = held(coords[coords_vary ? i : 0], -farthest, farthest);
        const float moved = static_cast<float>(c - own[own_vary ? i : 0]) * scale;
        out[i] = start + i * step + rounded(held(moved, static_cast<float>(farthest)));
    }
}

void positions(const AxisLine& line, int first, int32_t* out, int n) {
    const bool own_vary = line.own && line.own_vary;
    if (line.coords_vary)
        own_vary ? line_positions<true, true>(line, first, out, n) : line_positions<true, false>(line, first, out, n);
    else
        own_vary ? line_positions<false, true>(line, first, out, n) : line_positions<false, false>(line, first, out, n);
}

void along_line(double start, double step, int32_t* out, int n) {
    constexpr double limit = farthest;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        double p = (start + i * step) * 4096.0 + 0.5;
        p = p < -limit ? -limit : p;
        p = p > limit ? limit : p;
        const int32_t truncated = static_cast<int32_t>(p);
        out[i] = truncated - (static_cast<double>(truncated) > p ? 1 : 0);
    }
}

void wrap_positions(int32_t* p, const AxisWrap& wrap, int n) {
    const float inverse = wrap.inverse_period;
    const int32_t period = wrap.period;
    if (!wrap.mirrored) {
        INDEPENDENT_ITERATIONS
        for (int i = 0; i < n; ++i) p[i] -= floor_of(static_cast<float>(p[i] + 2048) * inverse) * period;
        return;
    }
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t times = floor_of(static_cast<float>(p[i] + 2048) * inverse);
        const int32_t inside = p[i] - times * period;
        p[i] = times & 1 ? period - 4096 - inside : inside;
    }
}

template <bool coords_vary, bool own_vary>
HWY_INLINE void line_movements(const AxisLine& line, int first, const AxisWrap& wrap, FixPixel* out, int n) {
    const int32_t* const coords = line.coords + (coords_vary ? first : 0);
    static constexpr int32_t none = 0;
    const int32_t* const own = line.own ? line.own + (own_vary ? first : 0) : &none;
    const int32_t start = line.start + first * line.step, step = line.step;
    const float scale = line.scale, inverse = wrap.on ? wrap.inverse_period : 0.0f;
    const int32_t whole_times = wrap.mirrored ? -2 : -1;
    const float period = static_cast<float>(wrap.period) / scale;
    constexpr float limit = static_cast<float>(fix_image_limit);
    constexpr int32_t farthest_coords = 1 << 24;  // so many periods that they fit a number of 32 bits
    float reduced[look_up_block];
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t c = held(coords[coords_vary ? i : 0], -farthest_coords, farthest_coords);
        const float moved = static_cast<float>(c - own[own_vary ? i : 0]);
        const float position = static_cast<float>(start + i * step + 2048) + moved * scale;
        const int32_t times = floor_of(position * inverse) & whole_times;
        reduced[i] = held(moved - static_cast<float>(times) * period, limit);
    }
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) out[i] = static_cast<FixPixel>(rounded(reduced[i]));
}

void movements(const AxisLine& line, int first, const AxisWrap& wrap, FixPixel* out, int n) {
    const bool own_vary = line.own && line.own_vary;
    if (line.coords_vary)
        own_vary ? line_movements<true, true>(line, first, wrap, out, n)
                 : line_movements<true, false>(line, first, wrap, out, n);
    else
        own_vary ? line_movements<false, true>(line, first, wrap, out, n)
                 : line_movements<false, false>(line, first, wrap, out, n);
}

template <bool coords_vary, bool own_vary>
HWY_INLINE void line_coarse_movements(const AxisLine& line, int first, FixPixel* out, int n) {
    const int32_t* const coords = line.coords + (coords_vary ? first : 0);
    static constexpr int32_t none = 0;
    const int32_t* const own = line.own ? line.own + (own_vary ? first : 0) : &none;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t c = held(coords[coords_vary ? i : 0], -farthest, farthest);
        const int32_t moved = (c - own[own_vary ? i : 0]) / coarse_step;
        out[i] = static_cast<FixPixel>(held(moved, -fix_image_limit, fix_image_limit));
    }
}

void coarse_movements(const AxisLine& line, int first, FixPixel* out, int n) {
    const bool own_vary = line.own && line.own_vary;
    if (line.coords_vary)
        own_vary ? line_coarse_movements<true, true>(line, first, out, n)
                 : line_coarse_movements<true, false>(line, first, out, n);
    else
        own_vary ? line_coarse_movements<false, true>(line, first, out, n)
                 : line_coarse_movements<false, false>(line, first, out, n);
}

HWY_INLINE float smaller(float a, float b) { return (a < 0.0f ? -a : a) < (b < 0.0f ? -b : b) ? a : b; }

// a - b, the coarse difference if the fine one is off by a period.
template <bool coarse>
HWY_INLINE int32_t difference(const FixPixel* a, const FixPixel* b, const FixPixel* coarse_a, const FixPixel* coarse_b,
                              int i) {
    const int32_t fine = a[i] - b[i];
    if constexpr (!coarse) return fine;
    const int32_t whole = (coarse_a[i] - coarse_b[i]) * coarse_step, off = fine - whole;
    return off < -2 * coarse_step || off > 2 * coarse_step ? whole : fine;
}

// Adds the change from before to row or from row to after, whichever is smaller; one of the two may be missing.
template <bool coarse>
HWY_INLINE void add_change_of(StoredMovements row, StoredMovements before, StoredMovements after, float scale,
                              float own, bool first, float* out, int n) {
    const StoredMovements left = before.there() ? before : after, right = after.there() ? after : before;
    const float left_scale = before.there() ? scale : -scale, right_scale = after.there() ? scale : -scale;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t from_left = difference<coarse>(row.fine, left.fine, row.coarse, left.coarse, i);
        const int32_t to_right = difference<coarse>(right.fine, row.fine, right.coarse, row.coarse, i);
        const float change =
            smaller(own + static_cast<float>(from_left) * left_scale, own + static_cast<float>(to_right) * right_scale);
        out[i] = first ? change * change : out[i] + change * change;
    }
}
HWY_INLINE void add_change(StoredMovements row, StoredMovements before, StoredMovements after, float scale, float own,
                           bool first, float* out, int n) {
    if (row.coarse)
        add_change_of<true>(row, before, after, scale, own, first, out, n);
    else
        add_change_of<false>(row, before, after, scale, own, first, out, n);
}

void change_squared(const ChangeLine& line, float* out, int n) {
    const int apart = line.apart, width = line.width;
    // Pixels that lack a neighbour at the left, those that have both, those that lack the right one.
    const int ends[3] = {held(apart - line.first, 0, n), held(width - apart - line.first, 0, n), n};
    const StoredMovements row = line.row.from(line.first), none = {};
    for (int i = 0; i < n;) {
        const bool has_left = line.first + i >= apart, has_right = line.first + i + apart < width;
        int end = n;
        for (const int e : ends)
            if (e > i && e < end) end = e;
        if (has_left || has_right)
            add_change(row.from(i), has_left ? row.from(i - apart) : none, has_right ? row.from(i + apart) : none,
                       line.scale, line.own_x, true, out + i, end - i);
        else
            for (int k = i; k < end; ++k) out[k] = line.own_x * line.own_x;
        i = end;
    }
    if (line.below.there() || line.above.there())
        add_change(row, line.below.there() ? line.below.from(line.first) : none,
                   line.above.there() ? line.above.from(line.first) : none, line.scale, line.own_y, false, out, n);
    else
        for (int i = 0; i < n; ++i) out[i] += line.own_y * line.own_y;
}

// ---- Levels

// Half the logarithm of the square is that of the factor.
HWY_INLINE I level_of(F squared, F scale, I highest) {
    const F factor = max(squared * scale, F(1.0f));
    const I level = whole(log2(factor) * F(2048.0f) + F(0.5f));
    return min(max(level, I(0)), highest);
}

void levels(const float* x_squared, const float* y_squared, float scale, const LevelTable& table, int32_t* x_level,
            int32_t* y_level, int n) {
    const float factor = scale * scale;
    const I max_x(table.max_x), max_y(table.max_y);
    // Blocks are as long as whole registers.
    for (int i = 0; i < n; i += lane_count) {
        hn::StoreU(level_of(F(hn::LoadU(DF(), x_squared + i)), F(factor), max_x).v, DI(), x_level + i);
        hn::StoreU(level_of(F(hn::LoadU(DF(), y_squared + i)), F(factor), max_y).v, DI(), y_level + i);
    }
}

constexpr SampleRows rows = {positions,        along_line,     wrap_positions, movements,
                             coarse_movements, change_squared, levels};

}  // namespace
const SampleRows* sample_rows_of_target() { return &rows; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(sample_rows_of_target);
const SampleRows& sample_rows() { return *HWY_DYNAMIC_DISPATCH(sample_rows_of_target)(); }
}  // namespace velloran
#endif
