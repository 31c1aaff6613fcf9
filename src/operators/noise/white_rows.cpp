// Rows of white noise and of hexagonal tiles.
#ifndef VELLORAN_NOISE_WHITE_ROWS_ONCE
#define VELLORAN_NOISE_WHITE_ROWS_ONCE
#include "operators/noise/hash_words.h"
#include "operators/noise/noise_rows.h"
#include "operators/noise/static_bytes.h"

#include <algorithm>
#endif

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/noise/white_rows.cpp"
#include "hwy/foreach_target.h"
// After foreach_target.h.
#include "rows/row_targets.h"

#include "operators/noise/hash_words-inl.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

// body(i, n) for each register: from sample i on there are n.
template <class Body>
HWY_INLINE void for_each_register(int n, Body body) {
    for (int i = 0; i < n; i += lane_count) body(i, n - i);
}
HWY_INLINE I twelve_bits(I h) { return h & I(0xfff); }
HWY_INLINE I hash_of_sample(uint32_t first, int i) {
    return bit_hash_lanes(count_from(static_cast<int32_t>(first + static_cast<uint32_t>(i))));
}

#if HASHES_WORDS

// body(hash, i) for each 32 samples of a line, the last of them perhaps beyond its end.
template <class Body>
HWY_INLINE void for_each_words(int n, Body body) {
    const WordHash hash;
    for (int i = 0; i < n; i += static_cast<int>(words_of_register)) body(hash, i);
}
HWY_INLINE __m512i twelve_bits_of(__m512i words) { return _mm512_and_si512(words, _mm512_set1_epi16(0xfff)); }
// Words from out on, of which there are n.
HWY_INLINE void store_words(__m512i words, int32_t* out, int n) {
    const I first(hn::Vec<DI>{_mm512_cvtepi16_epi32(_mm512_castsi512_si256(words))});
    const I second(hn::Vec<DI>{_mm512_cvtepi16_epi32(_mm512_extracti64x4_epi64(words, 1))});
    store_some(first, out, n);
    if (n > lane_count) store_some(second, out + lane_count, n - lane_count);
}

void static1(uint32_t first, int n, int32_t* const* out) {
    int32_t* const out0 = out[0];
    if (static_bytes_p()) {
        static_bytes(first, n, out0);
        return;
    }
    for_each_words(n, [=](const WordHash& hash, int i) HWY_ATTR {
        store_words(twelve_bits_of(hash.low_of_row(first + static_cast<uint32_t>(i))), out0 + i, n - i);
    });
}
void static2(uint32_t first, int n, int32_t* const* out) {
    int32_t *const out0 = out[0], *const out1 = out[1];
    for_each_words(n, [=](const WordHash& hash, int i) HWY_ATTR {
        const Halves h = hash.of_row(first + static_cast<uint32_t>(i));
        const __m512i middle = _mm512_set1_epi16(2048);
        store_words(_mm512_sub_epi16(twelve_bits_of(h.low), middle), out0 + i, n - i);
        store_words(_mm512_sub_epi16(twelve_bits_of(h.high), middle), out1 + i, n - i);
    });
}
void static3(uint32_t first, int n, int32_t* const* out) {
    int32_t *const out0 = out[0], *const out1 = out[1], *const out2 = out[2];
    for_each_words(n, [=](const WordHash& hash, int i) HWY_ATTR {
        const Halves h = hash.of_row(first + static_cast<uint32_t>(i));
        store_words(twelve_bits_of(h.low), out0 + i, n - i);
        store_words(twelve_bits_of(h.high), out1 + i, n - i);
        store_words(twelve_bits_of(low_shifted(hash.of(h))), out2 + i, n - i);
    });
}

#else

void static1(uint32_t first, int n, int32_t* const* out) {
    int32_t* const out0 = out[0];
    for_each_register(
        n, [=](int i, int some) HWY_ATTR { store_some(twelve_bits(hash_of_sample(first, i)), out0 + i, some); });
}
void static2(uint32_t first, int n, int32_t* const* out) {
    int32_t *const out0 = out[0], *const out1 = out[1];
    for_each_register(n, [=](int i, int some) HWY_ATTR {
        const I h = hash_of_sample(first, i);
        store_some(twelve_bits(h) - I(2048), out0 + i, some);
        store_some(twelve_bits(logical_shr<16>(h)) - I(2048), out1 + i, some);
    });
}
void static3(uint32_t first, int n, int32_t* const* out) {
    int32_t *const out0 = out[0], *const out1 = out[1], *const out2 = out[2];
    for_each_register(n, [=](int i, int some) HWY_ATTR {
        const I h = hash_of_sample(first, i);
        store_some(twelve_bits(h), out0 + i, some);
        store_some(twelve_bits(logical_shr<16>(h)), out1 + i, some);
        store_some(twelve_bits(logical_shr<8>(bit_hash_lanes(h))), out2 + i, some);
    });
}

#endif

void random1(const int32_t* a, int n, int32_t* out) {
    for_each_register(n, [=](int i, int some) HWY_ATTR {
        store_some(twelve_bits(bit_hash_lanes(load_some(a + i, some))), out + i, some);
    });
}
void random2(const int32_t* a, const int32_t* b, int n, int32_t* out0, int32_t* out1) {
    for_each_register(n, [=](int i, int some) HWY_ATTR {
        const I va = load_some(a + i, some), vb = load_some(b + i, some);
        const I first = twelve_bits(bit_hash_lanes(bit_hash_lanes(va) + vb));
        store_some(first, out0 + i, some);
        store_some(twelve_bits(bit_hash_lanes(first + va)), out1 + i, some);
    });
}

// A honeycomb of corners at heights that the direction of the slope gives; the tiles between are plane.
void hex_tiles(const int32_t* x, const int32_t* y, int n, const HexTileParams& params, int32_t* out) {
    const F frequency_x(params.frequency_x), frequency_y(params.frequency_y), across(params.across), up(params.up);
    const I base(params.base), period(8192);
    for_each_register(n, [=](int i, int some) HWY_ATTR {
        const I u = whole(number(load_some(x + i, some)) * frequency_x * F(1.1547f));
        const I v = whole(number(load_some(y + i, some)) * frequency_y);
        const I c = u & I(0x1fff), d = (shr<1>(u) + v) & I(0x1fff);
        const I a = max(c, d), b = min(c, d);
        const I h = shr<1>(a);
        const I m = select(b < h, a - b, b);
        const MI over = a + m > period;
        const I a1 = select(over, period - m, a), m1 = select(over, period - a, m), h1 = shr<1>(a1);
        store_some(base + whole(number(a1) * across + number(max(m1 - h1, h1 - m1)) * up), out + i, some);
    });
}

constexpr WhiteRows rows = {static1, static2, static3, random1, random2, hex_tiles};

}  // namespace

const WhiteRows* white_rows_of_target() { return &rows; }

}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(white_rows_of_target);
const WhiteRows& white_rows() { return *HWY_DYNAMIC_DISPATCH(white_rows_of_target)(); }
}  // namespace velloran
#endif
