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

void between(const int32_t* a, const int32_t* b, float t, int32_t* out, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) out[i] = a[i] + rounded(static_cast<float>(b[i] - a[i]) * t);
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

void coarse_movements(const AxisLine& line, int first, FixPixel* out, int n) {
    const int32_t* const coords = line.coords;
    const int32_t* const own = line.own;
    const bool coords_vary = line.coords_vary, own_vary = own && line.own_vary;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t c = held(coords[coords_vary ? first + i : 0], -farthest, farthest);
        const int32_t moved = (c - (own ? own[own_vary ? first + i : 0] : 0)) / coarse_step;
        out[i] = static_cast<FixPixel>(held(moved, -fix_image_limit, fix_image_limit));
    }
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

// ---- Taps

template <bool scaled>
HWY_INLINE void plan_taps(const int32_t* x, const int32_t* y, const TapPlan& of, Taps* out, int n) {
    const TapPlan plan = of;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t px = scaled && plan.x.scaled ? in_level(x[i], plan.x.ratio) : x[i];
        const int32_t py = scaled && plan.y.scaled ? in_level(y[i], plan.y.ratio) : y[i];
        store_taps(along(px, plan.x.size), along(py, plan.y.size), plan.origin, plan.row_samples, plan.elements, out,
                   i);
    }
}

void taps(const int32_t* x, const int32_t* y, const TapPlan& plan, Taps* out, int n) {
    if (plan.x.scaled || plan.y.scaled)
        plan_taps<true>(x, y, plan, out, n);
    else
        plan_taps<false>(x, y, plan, out, n);
}

#if HWY_TARGET == HWY_AVX2 || HWY_TARGET == HWY_AVX3

// Entries of a table as long as one register, or two.
template <class T>
HWY_INLINE I entries_of(const T* table, I index) {
    static_assert(max_mipmap_levels + 1 == 16 && sizeof(T) == 4);
    const auto* const words = reinterpret_cast<const int32_t*>(table);
#if HWY_TARGET == HWY_AVX3
    return hn::TableLookupLanes(hn::LoadU(DI(), words), hn::IndicesFromVec(DI(), index.v));
#else
    const auto within = hn::IndicesFromVec(DI(), (index & I(7)).v);
    return select(index > I(7), hn::TableLookupLanes(hn::LoadU(DI(), words + 8), within),
                  hn::TableLookupLanes(hn::LoadU(DI(), words), within));
#endif
}

struct LanesAlong {
    I whole, rest;
};
HWY_INLINE LanesAlong along_level(I position, I level, const float* ratios, const int32_t* sizes) {
    const F ratio = float_of_bits(entries_of(ratios, level));
    const I size = entries_of(sizes, level);
    const I scaled = whole(floor(number(position + I(2048)) * ratio)) - I(2048);
    const I p = min(max(select(level == I(0), position, scaled), I(-4096)), shl<fix_bits>(size));
    const I left = min(shr<fix_bits>(p), size - I(1));
    return {left, p - shl<fix_bits>(left)};
}

void level_taps(const int32_t* x, const int32_t* y, const int32_t* x_level, const int32_t* y_level, int above_x,
                int above_y, const LevelTable& table, Taps* out, int n) {
    const auto load = [](const int32_t* from) { return I(hn::LoadU(DI(), from)); };
    const auto keep = [](I v, uint32_t* to) { hn::StoreU(v.v, DI(), reinterpret_cast<int32_t*>(to)); };
    // Blocks are as long as whole registers; what follows the last pixel may lie anywhere on the levels.
    for (int i = 0; i < n; i += lane_count) {
        const I last(max_mipmap_levels);
        const I lx = min(max(shr<fix_bits>(load(x_level + i)), I(0)) + I(above_x), last);
        const I ly = min(max(shr<fix_bits>(load(y_level + i)), I(0)) + I(above_y), last);
        const LanesAlong ax = along_level(load(x + i), lx, table.x_ratio, table.x_size);
        const LanesAlong ay = along_level(load(y + i), ly, table.y_ratio, table.y_size);
        const I right_upper = shr<fix_bits>(ax.rest * ay.rest);
        const I right = ax.rest - right_upper, upper = ay.rest - right_upper;
        keep(entries_of(table.x_origin, lx) + entries_of(table.y_origin, ly) +
                 (ay.whole + I(1)) * I(static_cast<int32_t>(table.row_samples)) + (ax.whole + I(1)) * I(table.elements),
             out->at + i);
        keep((I(4096) - ax.rest - upper) | shl<16>(right), out->lower + i);
        keep(upper | shl<16>(right_upper), out->upper + i);
    }
}

#else

void level_taps(const int32_t* x, const int32_t* y, const int32_t* x_level, const int32_t* y_level, int above_x,
                int above_y, const LevelTable& table, Taps* out, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t lx = (x_level[i] >> fix_bits) + above_x, ly = (y_level[i] >> fix_bits) + above_y;
        const int32_t scaled_x = in_level(x[i], table.x_ratio[lx]), scaled_y = in_level(y[i], table.y_ratio[ly]);
        store_taps(along(lx ? scaled_x : x[i], table.x_size[lx]), along(ly ? scaled_y : y[i], table.y_size[ly]),
                   table.x_origin[lx] + table.y_origin[ly], table.row_samples, table.elements, out, i);
    }
}

#endif

int level_weights(const int32_t* x_level, const int32_t* y_level, int32_t (*weights)[Taps::entries], int n) {
    int32_t any[4] = {};
    for (int i = 0; i < n; ++i) {
        const int32_t fx = x_level[i] & 4095, fy = y_level[i] & 4095;
        const int32_t both = (fx * fy) >> fix_bits;
        weights[0][i] = 4096 - fx - fy + both;
        weights[1][i] = fx - both;
        weights[2][i] = fy - both;
        weights[3][i] = both;
        for (int k = 0; k < 4; ++k) any[k] |= weights[k][i];
    }
    int bits = 0;
    for (int k = 0; k < 4; ++k) bits |= (any[k] != 0) << k;
    return bits;
}

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

// ---- Samples

#if ROW_TARGET_PLAIN

template <int elements>
void bilinear(const int16_t* data, const Taps& taps, uint32_t row_samples, Block16* out, int n) {
    for (int i = 0; i < n; ++i) {
        const Sum sum = sum_of_taps<elements>(data, taps, row_samples, i);
        for (int c = 0; c < 4; ++c) out->v[i][c] = static_cast<int16_t>(sum.v[c] >> fix_bits);
    }
}

template <int elements>
void mix(const int16_t* data, const Taps& taps, uint32_t row_samples, const int32_t* weights, bool first, Block32* out,
         int n) {
    for (int i = 0; i < n; ++i) {
        const Sum sum = sum_of_taps<elements>(data, taps, row_samples, i);
        for (int c = 0; c < 4; ++c) out->v[i][c] = (first ? 0 : out->v[i][c]) + (sum.v[c] >> fix_bits) * weights[i];
    }
}

template <int elements>
void accumulate(const int16_t* data, const Taps& taps, uint32_t row_samples, const float* channel_weights, bool first,
                BlockFloat* out, int n) {
    for (int i = 0; i < n; ++i) {
        const Sum sum = sum_of_taps<elements>(data, taps, row_samples, i);
        for (int c = 0; c < 4; ++c) {
            const float part = static_cast<float>(sum.v[c]) * channel_weights[c];
            out->v[i][c] = first ? part : out->v[i][c] + part;
        }
    }
}

#else

template <int elements>
void bilinear(const int16_t* data, const Taps& taps, uint32_t row_samples, Block16* out, int n) {
    const Tag16 d;
    int i = 0;
#if HWY_TARGET == HWY_AVX2 || HWY_TARGET == HWY_AVX3
    for (; i + 4 <= n; i += 4) {
        const auto a = hn::ShiftRight<fix_bits>(sum_of_taps_twice<elements>(data, taps, row_samples, i));
        const auto b = hn::ShiftRight<fix_bits>(sum_of_taps_twice<elements>(data, taps, row_samples, i + 1));
        hn::StoreU(hn::ReorderDemote2To(Tag16Twice(), a, b), Tag16Twice(), out->v[i]);  // a, b, a, b
    }
#endif
    for (; i < n; i += 2) {
        const int next = i + 1 < n ? i + 1 : i;
        const auto a = hn::ShiftRight<fix_bits>(sum_of_taps<elements>(data, taps, row_samples, i));
        const auto b = hn::ShiftRight<fix_bits>(sum_of_taps<elements>(data, taps, row_samples, next));
        hn::Store(hn::ReorderDemote2To(d, a, b), d, out->v[i]);  // in order, in registers of this size
    }
}

template <int elements>
void mix(const int16_t* data, const Taps& taps, uint32_t row_samples, const int32_t* weights, bool first, Block32* out,
         int n) {
    const Tag32 d;
    int i = 0;
#if HWY_TARGET == HWY_AVX2 || HWY_TARGET == HWY_AVX3
    const Tag32Twice twice;
    alignas(32) static constexpr int32_t both[8] = {0, 0, 0, 0, 2, 2, 2, 2};
    const auto order = hn::SetTableIndices(twice, both);
    for (; i + 4 <= n; i += 4) {
        const auto part = [&](int at) {
            const auto sample = hn::ShiftRight<fix_bits>(sum_of_taps_twice<elements>(data, taps, row_samples, at));
            return hn::Mul(sample, hn::TableLookupLanes(hn::LoadU(twice, weights + at), order));
        };
        const auto a = part(i), b = part(i + 1);
        auto low = hn::ConcatLowerLower(twice, b, a), high = hn::ConcatUpperUpper(twice, b, a);
        if (!first) {
            low = hn::Add(hn::LoadU(twice, out->v[i]), low);
            high = hn::Add(hn::LoadU(twice, out->v[i + 2]), high);
        }
        hn::StoreU(low, twice, out->v[i]);
        hn::StoreU(high, twice, out->v[i + 2]);
    }
#endif
    for (; i < n; ++i) {
        const auto sample = hn::ShiftRight<fix_bits>(sum_of_taps<elements>(data, taps, row_samples, i));
        const auto part = hn::Mul(sample, hn::Set(d, weights[i]));
        hn::Store(first ? part : hn::Add(hn::Load(d, out->v[i]), part), d, out->v[i]);
    }
}

template <int elements>
void accumulate(const int16_t* data, const Taps& taps, uint32_t row_samples, const float* channel_weights, bool first,
                BlockFloat* out, int n) {
    const TagFloat d;
    const auto weights = hn::LoadU(d, channel_weights);
    int i = 0;
#if HWY_TARGET == HWY_AVX2 || HWY_TARGET == HWY_AVX3
    const TagFloatTwice twice;
    const auto both_weights = hn::Combine(twice, weights, weights);
    for (; i + 4 <= n; i += 4) {
        const auto part = [&](int at) {
            return hn::Mul(hn::ConvertTo(twice, sum_of_taps_twice<elements>(data, taps, row_samples, at)),
                           both_weights);
        };
        const auto a = part(i), b = part(i + 1);
        auto low = hn::ConcatLowerLower(twice, b, a), high = hn::ConcatUpperUpper(twice, b, a);
        if (!first) {
            low = hn::Add(hn::LoadU(twice, out->v[i]), low);
            high = hn::Add(hn::LoadU(twice, out->v[i + 2]), high);
        }
        hn::StoreU(low, twice, out->v[i]);
        hn::StoreU(high, twice, out->v[i + 2]);
    }
#endif
    for (; i < n; ++i) {
        const auto part = hn::Mul(hn::ConvertTo(d, sum_of_taps<elements>(data, taps, row_samples, i)), weights);
        hn::Store(first ? part : hn::Add(hn::Load(d, out->v[i]), part), d, out->v[i]);
    }
}

#endif

// ---- Into planes

void store(const Block16& in, FixPixel* const* planes, int elements, int n) {
    for (int c = 0; c < elements; ++c) {
        FixPixel* const plane = planes[c];
        INDEPENDENT_ITERATIONS
        for (int i = 0; i < n; ++i) plane[i] = in.v[i][c];
    }
}

void store_mixed(const Block32& in, FixPixel* const* planes, int elements, int n) {
    for (int c = 0; c < elements; ++c) {
        FixPixel* const plane = planes[c];
        INDEPENDENT_ITERATIONS
        for (int i = 0; i < n; ++i) plane[i] = static_cast<FixPixel>((in.v[i][c] + 2048) >> fix_bits);
    }
}

void store_rounded(const BlockFloat& in, FixPixel* const* planes, int elements, int n) {
    for (int c = 0; c < elements; ++c) {
        FixPixel* const plane = planes[c];
        INDEPENDENT_ITERATIONS
        for (int i = 0; i < n; ++i) plane[i] = static_cast<FixPixel>(rounded(held(in.v[i][c], fix_image_limit)));
    }
}

constexpr SampleRows rows = {positions,
                             between,
                             along_line,
                             wrap_positions,
                             movements,
                             coarse_movements,
                             change_squared,
                             taps,
                             level_taps,
                             level_weights,
                             levels,
                             {bilinear<1>, bilinear<2>, bilinear<3>, bilinear<4>},
                             {mix<1>, mix<2>, mix<3>, mix<4>},
                             {accumulate<1>, accumulate<2>, accumulate<3>, accumulate<4>},
                             store,
                             store_mixed,
                             store_rounded};

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
