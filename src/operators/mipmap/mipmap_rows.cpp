#include "operators/mipmap/mipmap_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/mipmap/mipmap_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/row_targets.h"

#include <hwy/cache_control.h>

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

HWY_INLINE int16_t held(int32_t v, int32_t low, int32_t high) {
    const int32_t raised = v < low ? low : v;
    return static_cast<int16_t>(raised > high ? high : raised);
}

#if !ROW_TARGET_PLAIN
namespace hn = hwy::HWY_NAMESPACE;
using Tag = hn::ScalableTag<int16_t>;
using Vector = hn::Vec<Tag>;

HWY_INLINE Vector held_lanes(const int32_t* in, int32_t low, int32_t high) {
    const hn::ScalableTag<int32_t> d;
    const Tag d16;
    const auto bounds_low = hn::Set(d, low), bounds_high = hn::Set(d, high);
    const auto a = hn::Min(hn::Max(hn::LoadU(d, in), bounds_low), bounds_high);
    const auto b = hn::Min(hn::Max(hn::LoadU(d, in + hn::Lanes(d)), bounds_low), bounds_high);
    const hn::Half<Tag> half;
    return hn::Combine(d16, hn::DemoteTo(half, b), hn::DemoteTo(half, a));
}

HWY_INLINE Vector mean_of(Vector a, Vector b) { return hn::ShiftRight<1>(hn::Add(a, b)); }

// Pixels of three channels, in pairs.
#if HWY_TARGET == HWY_AVX3
// Every sample and the one a pixel on, of which the first of each pair are kept: one permutation for ten pixels.
HWY_INLINE int halve_triples(const int16_t* in, int16_t* out, int n) {
    const Tag d;
    constexpr int lanes = 32, pixels = lanes / 3;
    alignas(64) int16_t kept[lanes];
    for (int i = 0; i < lanes; ++i) kept[i] = static_cast<int16_t>(i / 3 * 6 + i % 3);
    const __m512i index = _mm512_load_si512(kept);
    int x = 0;
    for (; 2 * (x + pixels + 2) <= n; x += pixels) {
        const int16_t* const from = in + 6 * x;
        const auto low = mean_of(hn::LoadU(d, from), hn::LoadU(d, from + 3));
        const auto high = mean_of(hn::LoadU(d, from + lanes), hn::LoadU(d, from + lanes + 3));
        _mm512_storeu_si512(out + 3 * x, _mm512_permutex2var_epi16(low.raw, index, high.raw));  // two more than ten
    }
    return x;
}
#else
HWY_INLINE int halve_triples(const int16_t* in, int16_t* out, int n) {
    // The means of the pairs in two registers of one channel.
    const auto pair_means = [](Vector low, Vector high) HWY_ATTR {
        const Tag d;
        return mean_of(hn::ConcatEven(d, high, low), hn::ConcatOdd(d, high, low));
    };
    const Tag d;
    const int lanes = static_cast<int>(hn::Lanes(d));
    int x = 0;
    for (; 2 * (x + lanes) <= n; x += lanes) {
        Vector a[3], b[3];
        const int16_t* const from = in + 6 * x;
        hn::LoadInterleaved3(d, from, a[0], a[1], a[2]);
        hn::LoadInterleaved3(d, from + lanes * 3, b[0], b[1], b[2]);
        hn::StoreInterleaved3(pair_means(a[0], b[0]), pair_means(a[1], b[1]), pair_means(a[2], b[2]), d, out + 3 * x);
    }
    return x;
}
#endif

// Pixels of the elements' whole width, in pairs.
template <class Wide>
HWY_INLINE int halve_wide(const int16_t* in, int16_t* out, int n, int elements) {
    const hn::ScalableTag<Wide> d;
    const Tag d16;
    const int lanes = static_cast<int>(hn::Lanes(d));
    int x = 0;
    for (; 2 * (x + lanes) <= n; x += lanes) {
        const auto* const from = reinterpret_cast<const Wide*>(in + 2 * x * elements);
        const auto low = hn::LoadU(d, from), high = hn::LoadU(d, from + lanes);
        const auto even = hn::BitCast(d16, hn::ConcatEven(d, high, low));
        const auto odd = hn::BitCast(d16, hn::ConcatOdd(d, high, low));
        hn::StoreU(mean_of(even, odd), d16, out + x * elements);
    }
    return x;
}
#endif

template <int elements>
void interleave(const int32_t* const* lines, int16_t* out, int n, int low, int high) {
    const int32_t* line[elements];
    for (int c = 0; c < elements; ++c) line[c] = lines[c];
    int x = 0;
#if !ROW_TARGET_PLAIN
    const Tag d;
    const int lanes = static_cast<int>(hn::Lanes(d));
    for (; x + lanes <= n; x += lanes) {
        Vector v[elements];
        for (int c = 0; c < elements; ++c) v[c] = held_lanes(line[c] + x, low, high);
        int16_t* const to = out + x * elements;
        if constexpr (elements == 1) hn::StoreU(v[0], d, to);
        if constexpr (elements == 2) hn::StoreInterleaved2(v[0], v[1], d, to);
        if constexpr (elements == 3) hn::StoreInterleaved3(v[0], v[1], v[2], d, to);
        if constexpr (elements == 4) hn::StoreInterleaved4(v[0], v[1], v[2], v[3], d, to);
    }
#endif
    for (; x < n; ++x)
        for (int c = 0; c < elements; ++c) out[x * elements + c] = held(line[c][x], low, high);
}

template <int elements>
void halve(const int16_t* in, int16_t* out, int n) {
    int x = 0;
#if !ROW_TARGET_PLAIN
    if constexpr (elements == 3) x = halve_triples(in, out, n);
    if constexpr (elements == 1) x = halve_wide<int16_t>(in, out, n, elements);
    if constexpr (elements == 2) x = halve_wide<int32_t>(in, out, n, elements);
    if constexpr (elements == 4) x = halve_wide<int64_t>(in, out, n, elements);
#endif
    for (; 2 * x + 1 < n; ++x)
        for (int c = 0; c < elements; ++c) {
            const int16_t* const pair = in + 2 * x * elements + c;
            out[x * elements + c] = static_cast<int16_t>((pair[0] + pair[elements]) >> 1);
        }
    if (n & 1)
        for (int c = 0; c < elements; ++c) out[x * elements + c] = in[2 * x * elements + c];
}

void mean(const int16_t* a, const int16_t* b, int16_t* out, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<int16_t>(
            (static_cast<unsigned>(static_cast<uint16_t>(a[i])) + static_cast<uint16_t>(b[i]) + 1) >> 1);
}

void stream(const int16_t* in, int16_t* out, int n) {
    int i = 0;
#if !ROW_TARGET_PLAIN
    constexpr int line = 64 / static_cast<int>(sizeof(int16_t));
    const Tag d;
    const int lanes = static_cast<int>(hn::Lanes(d));
    const int past_line = static_cast<int>(reinterpret_cast<uintptr_t>(out) % 64 / sizeof(int16_t));
    const int head = past_line ? line - past_line : 0;
    for (; i < n && i < head; ++i) out[i] = in[i];
    for (; i + line <= n; i += line)
        for (int v = i; v < i + line; v += lanes) hn::Stream(hn::LoadU(d, in + v), d, out + v);
#endif
    for (; i < n; ++i) out[i] = in[i];
}

constexpr MipmapRows rows = {{interleave<1>, interleave<2>, interleave<3>, interleave<4>},
                             {halve<1>, halve<2>, halve<3>, halve<4>},
                             mean,
                             stream};

}  // namespace
const MipmapRows* mipmap_rows_of_target() { return &rows; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(mipmap_rows_of_target);
const MipmapRows& mipmap_rows() { return *HWY_DYNAMIC_DISPATCH(mipmap_rows_of_target)(); }
}  // namespace velloran
#endif
