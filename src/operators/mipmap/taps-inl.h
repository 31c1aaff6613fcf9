// The four taps of a look-up and their weighted sum, for row files: by single samples on the plain target, else in
// registers of four channels.

#if defined(VELLORAN_MIPMAP_TAPS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef VELLORAN_MIPMAP_TAPS_INL_H
#undef VELLORAN_MIPMAP_TAPS_INL_H
#else
#define VELLORAN_MIPMAP_TAPS_INL_H
#endif

#include "hwy/highway.h"
#include "operators/mipmap/sample_rows.h"
#include "rows/lanes-inl.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

[[maybe_unused]] constexpr int32_t farthest = 1 << 29;  // position beyond which nothing is told apart

HWY_INLINE int32_t rounded(float v) { return static_cast<int32_t>(v + (v < 0.0f ? -0.5f : 0.5f)); }
HWY_INLINE float held(float v, float limit) {
    v = v < -limit ? -limit : v;
    return v > limit ? limit : v;
}
HWY_INLINE int32_t held(int32_t v, int32_t low, int32_t high) {
    v = v < low ? low : v;
    return v > high ? high : v;
}

// The next whole number below; |v| below 2^31.
HWY_INLINE int32_t floor_of(float v) {
    const int32_t whole_part = static_cast<int32_t>(v);
    return whole_part - (static_cast<float>(whole_part) > v ? 1 : 0);
}

struct Along {
    int32_t whole, rest;
};
// The left tap and the rest of the way to the right one; both lie on the level or its border.
HWY_INLINE Along along(int32_t position, int32_t size) {
    const int32_t p = held(position, -4096, size << fix_bits);
    int32_t whole = p >> fix_bits;
    whole = whole > size - 1 ? size - 1 : whole;
    return {whole, p - (whole << fix_bits)};
}

// Position in a level.
HWY_INLINE int32_t in_level(int32_t position, float ratio) {
    return floor_of(static_cast<float>(position + 2048) * ratio) - 2048;
}

HWY_INLINE void store_taps(Along x, Along y, uint32_t origin, uint32_t row_samples, int32_t elements, Taps* out,
                           int i) {
    const int32_t right_upper = (x.rest * y.rest) >> fix_bits;
    const int32_t right = x.rest - right_upper, upper = y.rest - right_upper;
    out->at[i] =
        origin + static_cast<uint32_t>(y.whole + 1) * row_samples + static_cast<uint32_t>((x.whole + 1) * elements);
    out->lower[i] = static_cast<uint32_t>(4096 - x.rest - y.rest + right_upper) | static_cast<uint32_t>(right) << 16;
    out->upper[i] = static_cast<uint32_t>(upper) | static_cast<uint32_t>(right_upper) << 16;
}

// The sum of the taps times their weights, of 4096 in all. With one element it stands in all four channels.
#if ROW_TARGET_PLAIN

struct Sum {
    int32_t v[4];
};
template <int elements>
HWY_INLINE Sum sum_of_taps(const int16_t* data, const Taps& taps, uint32_t row_samples, int i) {
    Sum sum = {};
    const int16_t* const lower = data + taps.at[i];
    const int16_t* const upper = lower + row_samples;
    const auto left = [](uint32_t w) { return static_cast<int32_t>(w & 0xffff); };
    const auto right = [](uint32_t w) { return static_cast<int32_t>(w >> 16); };
    for (int c = 0; c < elements; ++c)
        sum.v[c] = lower[c] * left(taps.lower[i]) + lower[c + elements] * right(taps.lower[i]) +
                   upper[c] * left(taps.upper[i]) + upper[c + elements] * right(taps.upper[i]);
    for (int c = 1; c < 4 && elements == 1; ++c) sum.v[c] = sum.v[0];
    return sum;
}

#else

using Tag16 = hn::FixedTag<int16_t, 8>;
using Tag32 = hn::FixedTag<int32_t, 4>;
using TagFloat = hn::FixedTag<float, 4>;
using Quad = hn::Vec<Tag32>;

// The two taps of a row, which lie side by side, as a pair for each channel.
template <int elements>
HWY_INLINE hn::Vec<Tag16> tap_pairs(const int16_t* at) {
    const Tag16 d;
    const hn::FixedTag<uint8_t, 16> bytes;
    const auto v = hn::LoadU(d, at);
    constexpr uint8_t none = 0x80;
    alignas(16) static constexpr uint8_t one[16] = {0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3};
    alignas(16) static constexpr uint8_t two[16] = {0,    1,    4,    5,    2,    3,    6,    7,
                                                    none, none, none, none, none, none, none, none};
    alignas(16) static constexpr uint8_t three[16] = {0, 1, 6, 7, 2, 3, 8, 9, 4, 5, 10, 11, none, none, none, none};
    alignas(16) static constexpr uint8_t four[16] = {0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15};
    const auto order = hn::Load(bytes, elements == 1 ? one : elements == 2 ? two : elements == 3 ? three : four);
    return hn::BitCast(d, hn::TableLookupBytesOr0(hn::BitCast(bytes, v), order));
}

template <int elements>
HWY_INLINE Quad sum_of_taps(const int16_t* data, const Taps& taps, uint32_t row_samples, int i) {
    const Tag16 d;
    const Tag32 d32;
    const auto weights = [&](uint32_t pair) { return hn::BitCast(d, hn::Set(d32, static_cast<int32_t>(pair))); };
    const int16_t* const at = data + taps.at[i];
    const auto lower = tap_pairs<elements>(at), upper = tap_pairs<elements>(at + row_samples);
    // On these targets products of neighbours are added, and nothing goes into the second sum.
    auto unused = hn::Zero(d32);
    const auto lower_sum = hn::ReorderWidenMulAccumulate(d32, lower, weights(taps.lower[i]), hn::Zero(d32), unused);
    return hn::ReorderWidenMulAccumulate(d32, upper, weights(taps.upper[i]), lower_sum, unused);
}

// The sums of pixels i and i + 2, side by side.
#if HWY_TARGET == HWY_AVX2 || HWY_TARGET == HWY_AVX3
using Tag16Twice = hn::FixedTag<int16_t, 16>;
using Tag32Twice = hn::FixedTag<int32_t, 8>;
using TagFloatTwice = hn::FixedTag<float, 8>;

template <int elements>
HWY_INLINE hn::Vec<Tag32Twice> sum_of_taps_twice(const int16_t* data, const Taps& taps, uint32_t row_samples, int i) {
    const Tag16Twice d;
    const Tag32Twice d32;
    alignas(32) static constexpr int32_t both[8] = {0, 0, 0, 0, 2, 2, 2, 2};
    const auto order = hn::SetTableIndices(d32, both);
    const auto weights = [&](const uint32_t* pairs) {
        return hn::BitCast(d, hn::TableLookupLanes(hn::LoadU(d32, reinterpret_cast<const int32_t*>(pairs + i)), order));
    };
    const auto row = [&](uint32_t above) {
        return hn::Combine(d, tap_pairs<elements>(data + taps.at[i + 2] + above),
                           tap_pairs<elements>(data + taps.at[i] + above));
    };
    auto unused = hn::Zero(d32);
    const auto lower = hn::ReorderWidenMulAccumulate(d32, row(0), weights(taps.lower), hn::Zero(d32), unused);
    return hn::ReorderWidenMulAccumulate(d32, row(row_samples), weights(taps.upper), lower, unused);
}
#endif

#endif

}  // namespace
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // toggle
