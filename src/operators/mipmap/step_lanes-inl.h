// Sums of several look-ups between two places, for sixteen pixels at a time (see lane_taps-inl.h): all of them in
// registers, from the first look-up to the last.

#if defined(VELLORAN_MIPMAP_STEP_LANES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef VELLORAN_MIPMAP_STEP_LANES_INL_H
#undef VELLORAN_MIPMAP_STEP_LANES_INL_H
#else
#define VELLORAN_MIPMAP_STEP_LANES_INL_H
#endif

#include "operators/mipmap/lane_taps-inl.h"

#include <algorithm>

#if HWY_TARGET == HWY_AVX3
HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

HWY_INLINE I load(const int32_t* from) { return hn::LoadU(DI(), from); }

// n values; those that follow in the register repeat the last, so that they look up what is in reach.
HWY_INLINE I load_some(const int32_t* from, int n) {
    if (n >= lane_count) return load(from);
    HWY_ALIGN int32_t buffer[lane_count];
    for (int k = 0; k < lane_count; ++k) buffer[k] = from[k < n ? k : n - 1];
    return hn::Load(DI(), buffer);
}

HWY_INLINE bool all_equal(I v, int32_t value) { return hn::AllTrue(DI(), (v == I(value)).m); }

// |v| below 2^31.
HWY_INLINE I rounded_lanes(F v) {
    const F half = float_of_bits((bits_of(v) & I(INT32_MIN)) | bits_of(F(0.5f)));
    return hn::Vec<DI>{_mm512_cvttps_epi32((v + half).v.raw)};
}

// A look-up of a stretch of a line whose pixels all lie as high as each other: what they share.
struct RowPart {
    float t;
    int32_t y_rest;      // 12 fraction bits
    const int16_t* row;  // that lies below, its left border
    float weights[4];
};
struct RowParts {
    static constexpr int most = 256;
    RowPart parts[most];
    bool top;                 // all parts look level 0 up, whether or not
    bool there;               // these are filled
    int32_t first_y, last_y;  // between which all of them lie
};

// Positions within this of a bound may be beyond it between two ends that are not.
constexpr int32_t near_bound = 64;

HWY_INLINE bool all_within(I v, int32_t low, int32_t high) {
    return lanes_from(v - I(low), I(high - low)) == 0 && low < high;
}

// Whether the steps of a whole block can be taken so; parts is then filled.
HWY_INLINE void find_row_parts(const StepParts& steps, const LookUpSource& source, const int32_t* from_y,
                               const int32_t* to_y, int n, RowParts* rows) {
    rows->top = true;
    rows->there = false;
    for (int k = 0; k < steps.count; ++k)
        rows->top = rows->top && !steps.parts[k].plan.x.scaled && !steps.parts[k].plan.y.scaled;
    if (!rows->top || steps.count > RowParts::most) return;
    for (int i = 0; i < n; i += lane_count)
        if (!all_equal(load_some(from_y + i, n - i), *from_y) || !all_equal(load_some(to_y + i, n - i), *to_y)) return;
    const TapPlan& plan = steps.parts[0].plan;
    rows->first_y = *from_y < *to_y ? *from_y : *to_y;
    rows->last_y = *from_y < *to_y ? *to_y : *from_y;
    if (rows->first_y < near_bound || rows->last_y >= ((plan.y.size - 1) << fix_bits) - near_bound) return;
    const float way = static_cast<float>(*to_y - *from_y);
    for (int k = 0; k < steps.count; ++k) {
        const StepPart& part = steps.parts[k];
        const int32_t y = *from_y + rounded(way * part.t);
        RowPart& row = rows->parts[k];
        row.t = part.t;
        row.y_rest = y & 4095;
        row.row = source.data + part.plan.origin + ptrdiff_t{(y >> fix_bits) + 1} * part.plan.row_samples;
        std::copy_n(part.weights, 4, row.weights);
    }
    rows->there = true;
}

// Along an axis: both ends of the ways of all pixels lie in the picture, and ahead of the first pixel's by less than
// reach and not a whole sample behind it. Then so does all between, and nothing need be asked at each step.
HWY_INLINE bool stay_near(I from, I to, int32_t size, int32_t reach) {
    const int32_t end = ((size - 1) << fix_bits) - near_bound;
    return all_within(from, near_bound, end) && all_within(to, near_bound, end) &&
           all_within(from - I(hn::GetLane(from.v)), near_bound - fix_scale, reach - near_bound) &&
           all_within(to - I(hn::GetLane(to.v)), near_bound - fix_scale, reach - near_bound);
}
template <int elements>
constexpr int32_t step_reach = (LevelLanes::narrow_window / elements - 4) << fix_bits;

// Where the last window begins that steps between these places and below y may read.
template <int elements>
HWY_INLINE ptrdiff_t window_after(const TapPlan& plan, I from_x, I to_x, int32_t y) {
    return plan.origin + ptrdiff_t{y >> fix_bits} * plan.row_samples +
           ptrdiff_t{(std::max(hn::GetLane(from_x.v), hn::GetLane(to_x.v)) >> fix_bits) + 1} * elements;
}

// The numbers of the left and right taps of the first channel in a window that begins one pixel before the first.
template <int elements>
HWY_INLINE __m512i step_index(I px, int32_t first) {
    const __m512i twice = _mm512_set4_epi32(0x0d0c0d0c, 0x09080908, 0x05040504, 0x01000100);
    const I base(
        static_cast<int32_t>((static_cast<uint32_t>(first - 1) & 0xffff) | static_cast<uint32_t>(first - 2) << 16));
    const __m512i pixels = _mm512_sub_epi16(_mm512_shuffle_epi8(shr<fix_bits>(px).v.raw, twice), base.v.raw);
    return _mm512_mullo_epi16(pixels, _mm512_set1_epi16(elements));
}
HWY_INLINE I channel_index(__m512i index, int channel) {
    return hn::Vec<DI>{_mm512_add_epi16(index, _mm512_set1_epi16(static_cast<int16_t>(channel)))};
}

// All steps of a register of pixels. False: they are not near each other.
template <int elements>
HWY_INLINE bool row_steps(const RowParts& rows, const LookUpSource& source, const TapPlan& plan, int count, I from,
                          I to, F* totals) {
    constexpr int results = elements == 1 ? 4 : elements;
    if (!stay_near(from, to, plan.x.size, step_reach<elements>) ||
        window_after<elements>(plan, from, to, rows.last_y + 2 * fix_scale) > LevelLanes(source, plan).last_window)
        return false;
    const F way = number(to - from);
    const __m512i row_weights = _mm512_set1_epi32(fix_scale);
    const uint32_t row_samples = plan.row_samples;
    F sums[results];
    for (F& sum : sums) sum = F(0.0f);
    for (const RowPart *part = rows.parts, *const last = part + count; part < last; ++part) {
        const I px = from + rounded_lanes(way * F(part->t));
        // From one pixel before the first on; the border of a row is a pixel, too.
        const int32_t first = hn::GetLane(px.v) >> fix_bits;
        const RowWindow lower(part->row + ptrdiff_t{first} * elements),
            upper(part->row + ptrdiff_t{first} * elements + row_samples);
        const __m512i index = step_index<elements>(px, first);
        // Weights of the taps, as in Taps.
        const I x_rest = px & I(fix_scale - 1);
        const I right_upper = hn::Vec<DI>{_mm512_mulhi_epu16(x_rest.v.raw, I(part->y_rest << 4).v.raw)};
        const I above = (I(part->y_rest) - right_upper) | shl<16>(right_upper);
        const I below = I(hn::Vec<DI>{row_weights}) - x_rest + shl<16>(x_rest) - above;
        for (int c = 0; c < elements; ++c) {
            const I at = channel_index(index, c);
            const F sum = number(pair_products(lower.pairs(at), below) + pair_products(upper.pairs(at), above));
            for (int r = c; r < (elements == 1 ? results : c + 1); ++r) sums[r] = sums[r] + sum * F(part->weights[r]);
        }
    }
    for (int c = 0; c < results; ++c) totals[c] = sums[c];
    return true;
}

// The same where pixels are not as high as each other, but so near that two or three rows hold their taps. False: they
// are not so near all the way.
template <int elements>
HWY_INLINE bool near_steps(const LookUpSource& source, const StepParts& steps, I from_x, I from_y, I to_x, I to_y,
                           F* totals) {
    constexpr int results = elements == 1 ? 4 : elements;
    const TapPlan plan = steps.parts[0].plan;
    if (!stay_near(from_x, to_x, plan.x.size, step_reach<elements>) ||
        !stay_near(from_y, to_y, plan.y.size, fix_scale) ||
        window_after<elements>(plan, from_x, to_x,
                               std::max(hn::GetLane(from_y.v), hn::GetLane(to_y.v)) + 3 * fix_scale) >
            LevelLanes(source, plan).last_window)
        return false;
    const F way_x = number(to_x - from_x), way_y = number(to_y - from_y);
    F sums[results];
    for (F& sum : sums) sum = F(0.0f);
    for (const StepPart *part = steps.parts, *const last = part + steps.count; part < last; ++part) {
        const I px = from_x + rounded_lanes(way_x * F(part->t)), py = from_y + rounded_lanes(way_y * F(part->t));
        const I y = shr<fix_bits>(py);
        const int32_t first = hn::GetLane(px.v) >> fix_bits, bottom = std::min(hn::GetLane(y.v), last_lane(y));
        const I dy = y - I(bottom);
        I of_step[elements];
        if (lanes_from(dy, I(2))) {
            sums_anywhere<elements>(source, plan, &steps.x_wrap, &steps.y_wrap, px, py, of_step);
        } else {
            const int16_t* const row =
                source.data + plan.origin + ptrdiff_t{bottom + 1} * plan.row_samples + ptrdiff_t{first} * elements;
            const __mmask16 higher = lanes_from(dy, I(1));
            const LaneWeights weights = inner_weights(px & I(fix_scale - 1), py & I(fix_scale - 1));
            const I low = hn::Vec<DI>{_mm512_maskz_mov_epi32(static_cast<__mmask16>(~higher), weights.lower.v.raw)};
            const I middle = hn::Vec<DI>{_mm512_mask_mov_epi32(weights.upper.v.raw, higher, weights.lower.v.raw)};
            const __m512i index = step_index<elements>(px, first);
            const RowWindow lower(row), upper(row + plan.row_samples);
            for (int c = 0; c < elements; ++c) {
                const I at = channel_index(index, c);
                of_step[c] = pair_products(lower.pairs(at), low) + pair_products(upper.pairs(at), middle);
            }
            if (higher) {
                const I high = hn::Vec<DI>{_mm512_maskz_mov_epi32(higher, weights.upper.v.raw)};
                const RowWindow top(row + 2 * ptrdiff_t{plan.row_samples});
                for (int c = 0; c < elements; ++c)
                    of_step[c] = of_step[c] + pair_products(top.pairs(channel_index(index, c)), high);
            }
        }
        for (int c = 0; c < results; ++c)
            sums[c] = sums[c] + number(of_step[elements == 1 ? 0 : c]) * F(part->weights[c]);
    }
    for (int c = 0; c < results; ++c) totals[c] = sums[c];
    return true;
}

// All steps of a register of pixels, wherever they lie.
template <int elements>
HWY_NOINLINE void any_steps(const LookUpSource& source, const StepParts& steps, I from_x, I from_y, I to_x, I to_y,
                            F* totals) {
    constexpr int results = elements == 1 ? 4 : elements;
    const F way_x = number(to_x - from_x), way_y = number(to_y - from_y);
    for (int c = 0; c < results; ++c) totals[c] = F(0.0f);
    for (int k = 0; k < steps.count; ++k) {
        const StepPart& part = steps.parts[k];
        const I px = from_x + rounded_lanes(way_x * F(part.t)), py = from_y + rounded_lanes(way_y * F(part.t));
        I sums[elements];
        sums_at<elements>(source, LevelLanes(source, part.plan), &steps.x_wrap, &steps.y_wrap, px, py, sums);
        for (int c = 0; c < results; ++c)
            totals[c] = totals[c] + number(sums[elements == 1 ? 0 : c]) * F(part.weights[c]);
    }
}

}  // namespace
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#endif  // toggle
