#include "operators/mipmap/look_up_rows.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/mipmap/look_up_rows.cpp"
#include "hwy/foreach_target.h"
#include "operators/mipmap/step_lanes-inl.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
const SampleRows* sample_rows_of_target();

namespace {

#if HWY_TARGET == HWY_AVX3

// Samples that fit 16 bits.
HWY_INLINE void store_some(I samples, FixPixel* to, int n) {
    const hn::Rebind<FixPixel, DI> narrow;
    const auto v = hn::DemoteTo(narrow, samples.v);
    if (n >= lane_count) {
        hn::StoreU(v, narrow, to);
        return;
    }
    HWY_ALIGN FixPixel buffer[lane_count];
    hn::Store(v, narrow, buffer);
    std::copy_n(buffer, n, to);
}

template <int elements>
void bilinear(const LookUpSource& from, const TapPlan& of, const int32_t* x, const int32_t* y, FixPixel* const* planes,
              int n) {
    const LookUpSource source = from;
    const LevelLanes level(source, of);
    for (int i = 0; i < n; i += lane_count) {
        I sums[elements];
        sums_at<elements>(source, level, nullptr, nullptr, load_some(x + i, n - i), load_some(y + i, n - i), sums);
        for (int c = 0; c < elements; ++c) store_some(shr<fix_bits>(sums[c]), planes[c] + i, n - i);
    }
}

// ---- Levels of each pixel

// Entries of a table as long as a register.
template <class T>
HWY_INLINE I entries_of(const T* table, I index) {
    static_assert(max_mipmap_levels + 1 == 16 && sizeof(T) == 4);
    const auto* const words = reinterpret_cast<const int32_t*>(table);
    return hn::TableLookupLanes(hn::LoadU(DI(), words), hn::IndicesFromVec(DI(), index.v));
}

HWY_INLINE LanesAlong along_levels(I position, I level, const float* ratios, const int32_t* sizes) {
    const F ratio = float_of_bits(entries_of(ratios, level));
    return along_lanes(select(level == I(0), position, in_level_lanes(position, ratio)), entries_of(sizes, level));
}

template <int elements>
HWY_INLINE void sums_of_levels(const LookUpSource& source, const LevelTable& table, I x, I y, I x_level, I y_level,
                               I* sums) {
    const LanesAlong ax = along_levels(x, x_level, table.x_ratio, table.x_size);
    const LanesAlong ay = along_levels(y, y_level, table.y_ratio, table.y_size);
    const I at = entries_of(table.x_origin, x_level) + entries_of(table.y_origin, y_level) +
                 (ay.whole + I(1)) * I(static_cast<int32_t>(table.row_samples)) + (ax.whole + I(1)) * I(elements);
    far_sums<elements>(source, table.row_samples, at, LaneWeights(ax.rest, ay.rest), sums);
}

template <int elements>
void filtered(const LookUpSource& from, const LevelTable& table, const int32_t* x, const int32_t* y,
              const int32_t* x_level, const int32_t* y_level, FixPixel* const* planes, int n) {
    const LookUpSource source = from;
    for (int i = 0; i < n; i += lane_count) {
        const I px = load_some(x + i, n - i), py = load_some(y + i, n - i);
        const I levels_x = load_some(x_level + i, n - i), levels_y = load_some(y_level + i, n - i);
        const I fx = levels_x & I(4095), fy = levels_y & I(4095), both = fmul(fx, fy);
        const I weights[4] = {I(4096) - fx - fy + both, fx - both, fy - both, both};
        const I lx = shr<fix_bits>(levels_x), ly = shr<fix_bits>(levels_y);
        const int32_t first_x = hn::GetLane(lx.v), first_y = hn::GetLane(ly.v);
        const bool same = all_equal(lx, first_x) && all_equal(ly, first_y);
        I totals[elements];
        for (I& total : totals) total = I(2048);
        for (int k = 0; k < 4; ++k) {
            if (all_equal(weights[k], 0)) continue;
            I sums[elements];
            if (same) {
                const int level_x = first_x + (k & 1), level_y = first_y + (k >> 1);
                const TapPlan plan = {{table.x_ratio[level_x], table.x_size[level_x], level_x > 0},
                                      {table.y_ratio[level_y], table.y_size[level_y], level_y > 0},
                                      table.x_origin[level_x] + table.y_origin[level_y],
                                      table.row_samples,
                                      elements};
                sums_at<elements>(source, LevelLanes(source, plan), nullptr, nullptr, px, py, sums);
            } else {
                sums_of_levels<elements>(source, table, px, py, lx + I(k & 1), ly + I(k >> 1), sums);
            }
            for (int c = 0; c < elements; ++c) totals[c] = totals[c] + shr<fix_bits>(sums[c]) * weights[k];
        }
        for (int c = 0; c < elements; ++c) store_some(shr<fix_bits>(totals[c]), planes[c] + i, n - i);
    }
}

// ---- Steps

template <int elements>
void steps(const LookUpSource& from, const StepParts& of, const int32_t* from_x, const int32_t* from_y,
           const int32_t* to_x, const int32_t* to_y, const float* shares, FixPixel* const* planes, int n) {
    const LookUpSource source = from;
    const StepParts steps = of;
    const int results = elements == 1 ? steps.results : elements;
    RowParts rows;
    find_row_parts(steps, source, from_y, to_y, n, &rows);
    const F limit(static_cast<float>(fix_image_limit));
    for (int i = 0; i < n; i += lane_count) {
        const I at_x = load_some(from_x + i, n - i), end_x = load_some(to_x + i, n - i);
        F totals[elements == 1 ? 4 : elements];
        const bool all_in_rows =
            rows.there && row_steps<elements>(rows, source, steps.parts[0].plan, steps.count, at_x, end_x, totals);
        if (!all_in_rows) {
            const I at_y = load_some(from_y + i, n - i), end_y = load_some(to_y + i, n - i);
            if (!rows.top || !near_steps<elements>(source, steps, at_x, at_y, end_x, end_y, totals))
                any_steps<elements>(source, steps, at_x, at_y, end_x, end_y, totals);
        }
        const F share = shares ? F(hn::LoadU(DF(), shares + i)) : F(1.0f);
        for (int c = 0; c < results; ++c)
            store_some(rounded_lanes(clamp(totals[c] * share, -limit, limit)), planes[c] + i, n - i);
    }
}

#else

// Samples of a block, four channels a pixel.
struct Block16 {
    alignas(64) int16_t v[look_up_block][4];
};
struct Block32 {
    alignas(64) int32_t v[look_up_block][4];
};
struct BlockFloat {
    alignas(64) float v[look_up_block][4];
};

// ---- Where the taps are, and their weights

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

#if HWY_TARGET == HWY_AVX2

// Entries of a table as long as two registers.
template <class T>
HWY_INLINE I entries_of(const T* table, I index) {
    static_assert(max_mipmap_levels + 1 == 16 && sizeof(T) == 4);
    const auto* const words = reinterpret_cast<const int32_t*>(table);
    const auto within = hn::IndicesFromVec(DI(), (index & I(7)).v);
    return select(index > I(7), hn::TableLookupLanes(hn::LoadU(DI(), words + 8), within),
                  hn::TableLookupLanes(hn::LoadU(DI(), words), within));
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

// ---- Sums of taps: samples, out = or += weight of the pixel times its sample, out += weight of the channel times 4096
// times the sample

#if ROW_TARGET_PLAIN

template <int elements>
void bilinear_block(const int16_t* data, const Taps& taps, uint32_t row_samples, Block16* out, int n) {
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
void bilinear_block(const int16_t* data, const Taps& taps, uint32_t row_samples, Block16* out, int n) {
    const Tag16 d;
    int i = 0;
#if HWY_TARGET == HWY_AVX2
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
#if HWY_TARGET == HWY_AVX2
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
#if HWY_TARGET == HWY_AVX2
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
        for (int i = 0; i < n; ++i)
            plane[i] = static_cast<FixPixel>(rounded(held(in.v[i][c], static_cast<float>(fix_image_limit))));
    }
}

// ---- Look-ups of a block

template <int elements>
void bilinear(const LookUpSource& source, const TapPlan& plan, const int32_t* x, const int32_t* y,
              FixPixel* const* planes, int n) {
    Taps taps_of_block;
    Block16 samples;
    taps(x, y, plan, &taps_of_block, n);
    bilinear_block<elements>(source.data, taps_of_block, plan.row_samples, &samples, n);
    store(samples, planes, elements, n);
}

template <int elements>
void filtered(const LookUpSource& source, const LevelTable& table, const int32_t* x, const int32_t* y,
              const int32_t* x_level, const int32_t* y_level, FixPixel* const* planes, int n) {
    Taps taps_of_block;
    Block32 sums;
    int32_t weights[4][Taps::entries];
    const int used = level_weights(x_level, y_level, weights, n);
    bool first = true;
    for (int k = 0; k < 4; ++k) {
        if (!(used >> k & 1)) continue;
        level_taps(x, y, x_level, y_level, k & 1, k >> 1, table, &taps_of_block, n);
        mix<elements>(source.data, taps_of_block, table.row_samples, weights[k], first, &sums, n);
        first = false;
    }
    store_mixed(sums, planes, elements, n);
}

void between(const int32_t* a, const int32_t* b, float t, const AxisWrap& wrap, int32_t* out, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) out[i] = a[i] + rounded(static_cast<float>(b[i] - a[i]) * t);
    if (wrap.on) sample_rows_of_target()->wrap(out, wrap, n);
}

template <int elements>
void steps(const LookUpSource& source, const StepParts& of, const int32_t* from_x, const int32_t* from_y,
           const int32_t* to_x, const int32_t* to_y, const float* shares, FixPixel* const* planes, int n) {
    alignas(64) int32_t x[look_up_block], y[look_up_block];
    Taps taps_of_block;
    BlockFloat sums;
    for (int k = 0; k < of.count; ++k) {
        const StepPart& part = of.parts[k];
        between(from_x, to_x, part.t, of.x_wrap, x, n);
        between(from_y, to_y, part.t, of.y_wrap, y, n);
        taps(x, y, part.plan, &taps_of_block, n);
        accumulate<elements>(source.data, taps_of_block, part.plan.row_samples, part.weights, k == 0, &sums, n);
    }
    for (int i = 0; shares && i < n; ++i)
        for (int c = 0; c < 4; ++c) sums.v[i][c] *= shares[i];
    store_rounded(sums, planes, of.results, n);
}

#endif

constexpr LookUpRows rows = {{bilinear<1>, bilinear<2>, bilinear<3>, bilinear<4>},
                             {filtered<1>, filtered<2>, filtered<3>, filtered<4>},
                             {steps<1>, steps<2>, steps<3>, steps<4>}};

}  // namespace
const LookUpRows* look_up_rows_of_target() { return &rows; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(look_up_rows_of_target);
const LookUpRows& look_up_rows() { return *HWY_DYNAMIC_DISPATCH(look_up_rows_of_target)(); }
}  // namespace velloran
#endif
