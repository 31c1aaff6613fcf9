// Look-ups of sixteen pixels at a time, where registers are that long and samples can be permuted across them: the sums
// of the four taps around each position times their weights, a channel of all pixels in each register.
//
// Neighbours in a line mostly look up neighbouring samples. Where they do, a few rows of samples are loaded once and
// the taps permuted out of them; elsewhere each pixel loads its own.

#if defined(VELLORAN_MIPMAP_LANE_TAPS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef VELLORAN_MIPMAP_LANE_TAPS_INL_H
#undef VELLORAN_MIPMAP_LANE_TAPS_INL_H
#else
#define VELLORAN_MIPMAP_LANE_TAPS_INL_H
#endif

#include "operators/mipmap/look_up_rows.h"
#include "operators/mipmap/taps-inl.h"

#if HWY_TARGET == HWY_AVX3
HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

struct LanesAlong {
    I whole, rest;
};
HWY_INLINE LanesAlong along_lanes(I position, I size) {
    const I p = min(max(position, I(-4096)), shl<fix_bits>(size));
    const I left = min(shr<fix_bits>(p), size - I(1));
    return {left, p - shl<fix_bits>(left)};
}
HWY_INLINE I in_level_lanes(I position, F ratio) { return whole(floor(number(position + I(2048)) * ratio)) - I(2048); }

// The weights of the taps, as in Taps.
struct LaneWeights {
    I lower, upper;
    LaneWeights() = default;
    HWY_INLINE LaneWeights(I x_rest, I y_rest) {
        const I right_upper = shr<fix_bits>(x_rest * y_rest);
        const I right = x_rest - right_upper;
        upper = y_rest - right_upper;
        lower = (I(4096) - x_rest - upper) | shl<16>(right);
        upper = upper | shl<16>(right_upper);
    }
};

using Lanes16 = hn::Repartition<int16_t, DI>;

// The two taps beside each other from data + at[j] on, from at[j + 4] on and so on, as a pair for each of four
// channels.
template <int elements>
HWY_INLINE hn::Vec<Lanes16> tap_blocks(const int16_t* data, const int32_t* at, int j) {
    const auto block = [&](int k) HWY_ATTR { return tap_pairs<elements>(data + static_cast<uint32_t>(at[j + k])).raw; };
    __m512i v = _mm512_castsi128_si512(block(0));
    v = _mm512_inserti32x4(v, block(4), 1);
    v = _mm512_inserti32x4(v, block(8), 2);
    v = _mm512_inserti32x4(v, block(12), 3);
    return {v};
}

// Four channels of pixels j, j + 4, ...
template <int elements, int j>
HWY_INLINE hn::Vec<DI> sum_blocks(const int16_t* data, uint32_t row_samples, const int32_t* at,
                                  const LaneWeights& weights) {
    const Lanes16 d16;
    auto unused = hn::Zero(DI());
    const auto lower_weights = hn::BitCast(d16, hn::Broadcast<j>(weights.lower.v));
    const auto upper_weights = hn::BitCast(d16, hn::Broadcast<j>(weights.upper.v));
    // On these targets products of neighbours are added, and nothing goes into the second sum.
    const auto lower =
        hn::ReorderWidenMulAccumulate(DI(), tap_blocks<elements>(data, at, j), lower_weights, hn::Zero(DI()), unused);
    return hn::ReorderWidenMulAccumulate(DI(), tap_blocks<elements>(data + row_samples, at, j), upper_weights, lower,
                                         unused);
}

// Taps that lie anywhere; at: the lower left ones. A sum for each channel.
template <int elements>
HWY_INLINE void far_sums(const LookUpSource& source, uint32_t row_samples, I at, const LaneWeights& weights, I* sums) {
    HWY_ALIGN int32_t places[lane_count];
    hn::Store(at.v, DI(), places);
    const auto a = sum_blocks<elements, 0>(source.data, row_samples, places, weights);
    const auto b = sum_blocks<elements, 1>(source.data, row_samples, places, weights);
    const auto c = sum_blocks<elements, 2>(source.data, row_samples, places, weights);
    const auto e = sum_blocks<elements, 3>(source.data, row_samples, places, weights);
    // From blocks of channels to channels.
    const hn::Repartition<int64_t, DI> d64;
    const auto first = hn::BitCast(d64, hn::InterleaveLower(DI(), a, b));
    const auto second = hn::BitCast(d64, hn::InterleaveLower(DI(), c, e));
    sums[0] = I(hn::BitCast(DI(), hn::InterleaveLower(d64, first, second)));
    if constexpr (elements > 1) sums[1] = I(hn::BitCast(DI(), hn::InterleaveUpper(d64, first, second)));
    if constexpr (elements > 2) {
        const auto third = hn::BitCast(d64, hn::InterleaveUpper(DI(), a, b));
        const auto fourth = hn::BitCast(d64, hn::InterleaveUpper(DI(), c, e));
        sums[2] = I(hn::BitCast(DI(), hn::InterleaveLower(d64, third, fourth)));
        if constexpr (elements > 3) sums[3] = I(hn::BitCast(DI(), hn::InterleaveUpper(d64, third, fourth)));
    }
}

// A level, as look-ups in it read it.
struct LevelLanes {
    TapPlan plan;
    // Positions below these, and not negative, need no border and no bringing back into the picture.
    I x_inside, y_inside;
    ptrdiff_t last_window;  // the last sample from which two rows of a narrow window may be read

    HWY_INLINE LevelLanes(const LookUpSource& source, const TapPlan& of)
        : plan(of),
          x_inside((of.x.size - 1) << fix_bits),
          y_inside((of.y.size - 1) << fix_bits),
          last_window(source.samples - of.row_samples - narrow_window) {}

    static constexpr int narrow_window = 64, wide_window = 128;  // samples of a row
};

HWY_INLINE int32_t last_lane(I v) { return _mm_extract_epi32(_mm512_extracti32x4_epi32(v.v.raw, 3), 3); }
HWY_INLINE __mmask16 lanes_from(I v, I limit) { return _mm512_cmpge_epu32_mask(v.v.raw, limit.v.raw); }
// Products of the samples of each lane, added up.
HWY_INLINE I pair_products(__m512i samples, I weights) {
    return hn::Vec<DI>{_mm512_madd_epi16(samples, weights.v.raw)};
}
// Of rests below 1.0.
HWY_INLINE LaneWeights inner_weights(I x_rest, I y_rest) {
    LaneWeights weights;
    const I right_upper = hn::Vec<DI>{_mm512_mulhi_epu16(shl<4>(x_rest).v.raw, y_rest.v.raw)};
    const I upper = y_rest - right_upper;
    weights.lower = (I(4096) - x_rest - upper) | shl<16>(x_rest - right_upper);
    weights.upper = upper | shl<16>(right_upper);
    return weights;
}
// For the left and the right tap of a channel, so many pixels from the beginning of a window: their numbers in it.
template <int elements>
HWY_INLINE I window_index(I pixels, int channel) {
    const I twice = pixels | shl<16>(pixels);
    const I start = hn::Vec<DI>{_mm512_mullo_epi16(twice.v.raw, _mm512_set1_epi16(elements))};
    return start + I(channel | (channel + elements) << 16);
}

// Samples of a row from one on, in two registers or four, of which pairs are chosen by their numbers.
struct RowWindow {
    __m512i part[4];

    HWY_INLINE explicit RowWindow(const int16_t* from) {
        part[0] = _mm512_loadu_si512(from);
        part[1] = _mm512_loadu_si512(from + 32);
    }
    HWY_INLINE void widen(const int16_t* from) {
        part[2] = _mm512_loadu_si512(from + 64);
        part[3] = _mm512_loadu_si512(from + 96);
    }
    HWY_INLINE __m512i pairs(I index) const { return _mm512_permutex2var_epi16(part[0], index.v.raw, part[1]); }
    HWY_INLINE __m512i wide_pairs(I index) const {
        const __mmask32 beyond = _mm512_test_epi16_mask(index.v.raw, _mm512_set1_epi16(LevelLanes::narrow_window));
        return _mm512_mask_blend_epi16(beyond, pairs(index), _mm512_permutex2var_epi16(part[2], index.v.raw, part[3]));
    }
};

// The common case: well inside the picture, between the same two rows, and not far from the first in them. False: it is
// another.
template <int elements>
HWY_INLINE bool row_sums(const LookUpSource& source, const LevelLanes& level, I px, I py, I* sums) {
    constexpr int32_t reach = LevelLanes::narrow_window / elements - 2;
    const I x = shr<fix_bits>(px), y = shr<fix_bits>(py);
    const I first_x = hn::Vec<DI>{_mm512_broadcastd_epi32(_mm512_castsi512_si128(x.v.raw))};
    const I first_y = hn::Vec<DI>{_mm512_broadcastd_epi32(_mm512_castsi512_si128(y.v.raw))};
    // From one pixel before the first on.
    const I dx = x - (first_x - I(1));
    const __mmask16 elsewhere = lanes_from(px, level.x_inside) | lanes_from(py, level.y_inside) |
                                lanes_from(dx, I(reach + 1)) | _mm512_cmpneq_epi32_mask(y.v.raw, first_y.v.raw);
    const ptrdiff_t first = level.plan.origin + ptrdiff_t{hn::GetLane(y.v) + 1} * level.plan.row_samples +
                            ptrdiff_t{hn::GetLane(x.v)} * elements;
    if (elsewhere || first > level.last_window) return false;
    const LaneWeights weights = inner_weights(px & I(4095), py & I(4095));
    const RowWindow lower(source.data + first), upper(source.data + first + level.plan.row_samples);
    for (int c = 0; c < elements; ++c) {
        const I index = window_index<elements>(dx, c);
        sums[c] = pair_products(lower.pairs(index), weights.lower) + pair_products(upper.pairs(index), weights.upper);
    }
    return true;
}

// Taps in a few rows, in a wider part of them. False: they lie further apart.
template <int elements>
HWY_NOINLINE bool near_sums(const LookUpSource& source, const TapPlan& plan, const LanesAlong& x, const LanesAlong& y,
                            I* sums) {
    constexpr int32_t most_rows = 3;
    constexpr int32_t narrow_reach = LevelLanes::narrow_window / elements - 2,
                      wide_reach = LevelLanes::wide_window / elements - 2;
    // The ends of the register tell where the others will be, but for one sample more.
    const int32_t left = held(std::min(hn::GetLane(x.whole.v), last_lane(x.whole)) - 1, -1, INT32_MAX);
    const int32_t bottom = std::min(hn::GetLane(y.whole.v), last_lane(y.whole));
    const I dx = x.whole - I(left), dy = y.whole - I(bottom);
    if (lanes_from(dx, I(wide_reach + 1)) | lanes_from(dy, I(most_rows - 1))) return false;
    const ptrdiff_t first = plan.origin + ptrdiff_t{bottom + 1} * plan.row_samples + ptrdiff_t{left + 1} * elements;
    if (first + (most_rows - 1) * ptrdiff_t{plan.row_samples} + LevelLanes::wide_window > source.samples) return false;
    const int16_t* row = source.data + first;
    const LaneWeights weights(x.rest, y.rest);
    I index[elements];
    for (int c = 0; c < elements; ++c) {
        index[c] = window_index<elements>(dx, c);
        sums[c] = I(0);
    }
    const bool wide = lanes_from(dx, I(narrow_reach + 1)) != 0;
    for (int r = 0;; ++r, row += plan.row_samples) {
        RowWindow window(row);
        const I of_row = select(dy == I(r), weights.lower, select(dy == I(r - 1), weights.upper, I(0)));
        if (wide) {
            window.widen(row);
            for (int c = 0; c < elements; ++c) sums[c] = sums[c] + pair_products(window.wide_pairs(index[c]), of_row);
        } else {
            for (int c = 0; c < elements; ++c) sums[c] = sums[c] + pair_products(window.pairs(index[c]), of_row);
        }
        if (r > 0 && !lanes_from(dy, I(r))) return true;
    }
}

// An axis whose positions are brought back into a repeated or mirrored picture; no wrap: they already are.
HWY_INLINE I wrapped(I p, const AxisWrap* wrap) {
    if (!wrap || !wrap->on) return p;
    const I times = whole(floor(number(p + I(2048)) * F(wrap->inverse_period)));
    const I inside = p - times * I(wrap->period);
    if (!wrap->mirrored) return inside;
    return select((times & I(1)) == I(0), inside, I(wrap->period - 4096) - inside);
}

template <int elements>
HWY_NOINLINE void sums_anywhere(const LookUpSource& source, const TapPlan& plan, const AxisWrap* x_wrap,
                                const AxisWrap* y_wrap, I px, I py, I* sums) {
    px = wrapped(px, x_wrap);
    py = wrapped(py, y_wrap);
    if (plan.x.scaled) px = in_level_lanes(px, F(plan.x.ratio));
    if (plan.y.scaled) py = in_level_lanes(py, F(plan.y.ratio));
    const LanesAlong x = along_lanes(px, I(plan.x.size)), y = along_lanes(py, I(plan.y.size));
    if (near_sums<elements>(source, plan, x, y, sums)) return;
    const I at = I(static_cast<int32_t>(plan.origin)) + (y.whole + I(1)) * I(static_cast<int32_t>(plan.row_samples)) +
                 (x.whole + I(1)) * I(elements);
    far_sums<elements>(source, plan.row_samples, at, LaneWeights(x.rest, y.rest), sums);
}

// The sums of a level. A wrap is that of positions which have not been brought back into the picture.
template <int elements>
HWY_INLINE void sums_at(const LookUpSource& source, const LevelLanes& level, const AxisWrap* x_wrap,
                        const AxisWrap* y_wrap, I px, I py, I* sums) {
    // What lies inside level 0 is where it was before a wrap, since that counts from half a sample before the first.
    if (!level.plan.x.scaled && !level.plan.y.scaled) {
        if (row_sums<elements>(source, level, px, py, sums)) return;
    } else if ((!x_wrap || !x_wrap->on) && (!y_wrap || !y_wrap->on)) {
        const I x = level.plan.x.scaled ? in_level_lanes(px, F(level.plan.x.ratio)) : px;
        const I y = level.plan.y.scaled ? in_level_lanes(py, F(level.plan.y.ratio)) : py;
        if (row_sums<elements>(source, level, x, y, sums)) return;
    }
    sums_anywhere<elements>(source, level.plan, x_wrap, y_wrap, px, py, sums);
}

}  // namespace
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#endif  // toggle
