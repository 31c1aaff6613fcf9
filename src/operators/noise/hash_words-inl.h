// The hash of 32 numbers at once, where words can be permuted out of registers: the table stays in sixteen of them, and
// numbers are two registers of 16-bit halves.

#if defined(VELLORAN_NOISE_HASH_WORDS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef VELLORAN_NOISE_HASH_WORDS_INL_H
#undef VELLORAN_NOISE_HASH_WORDS_INL_H
#else
#define VELLORAN_NOISE_HASH_WORDS_INL_H
#endif

#include "operators/noise/hash_lanes-inl.h"
#include "operators/noise/hash_words.h"

#undef HASHES_WORDS
#define HASHES_WORDS (HWY_TARGET == HWY_AVX3)

#if HASHES_WORDS
HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

// Halves of 32 numbers.
struct Halves {
    __m512i low, high;
};

// Bits 8 to 23.
HWY_INLINE __m512i low_shifted(Halves x) {
    return _mm512_or_si512(_mm512_srli_epi16(x.low, 8), _mm512_slli_epi16(x.high, 8));
}

class WordHash {
public:
    HWY_INLINE WordHash() {
        for (int i = 0; i < parts; ++i) {
            low_[i] = _mm512_load_si512(hash_low_words.data() + i * words_of_register);
            high_[i] = _mm512_load_si512(hash_high_words.data() + i * words_of_register);
        }
    }

    // Of any numbers.
    HWY_INLINE Halves of(Halves x) const { return round(round(round(round(x)))); }
    // Of first, first + 1, ...
    HWY_INLINE Halves of_row(uint32_t first) const { return round(round(round(first_round(first)))); }
    // Numbers and the entries that they choose.
    HWY_INLINE Halves with_entries(Halves x) const { return sum(x, {entries(low_, x.low), entries(high_, x.low)}); }
    // Their lower halves alone.
    HWY_INLINE __m512i low_of_row(uint32_t first) const { return low_round(round(round(first_round(first)))); }

private:
    static constexpr int parts = 8;
    __m512i low_[parts], high_[parts];

    // Entries by the lower eight bits.
    static HWY_INLINE __m512i entries(const __m512i* table, __m512i index) {
        const __mmask32 bit6 = _mm512_test_epi16_mask(index, _mm512_set1_epi16(64));
        const __mmask32 bit7 = _mm512_test_epi16_mask(index, _mm512_set1_epi16(128));
        const auto quarter = [&](int i) HWY_ATTR { return _mm512_permutex2var_epi16(table[i], index, table[i + 1]); };
        const __m512i lower = _mm512_mask_blend_epi16(bit6, quarter(0), quarter(2));
        const __m512i upper = _mm512_mask_blend_epi16(bit6, quarter(4), quarter(6));
        return _mm512_mask_blend_epi16(bit7, lower, upper);
    }
    static HWY_INLINE Halves sum(Halves a, Halves b) {
        const __m512i low = _mm512_add_epi16(a.low, b.low), high = _mm512_add_epi16(a.high, b.high);
        const __mmask32 carry = _mm512_cmplt_epu16_mask(low, b.low);
        return {low, _mm512_mask_sub_epi16(high, carry, high, _mm512_set1_epi16(-1))};
    }
    HWY_INLINE Halves round(Halves x) const {
        const Halves shifted = {low_shifted(x), _mm512_srli_epi16(x.high, 8)};
        return sum(shifted, {entries(low_, x.low), entries(high_, x.low)});
    }
    HWY_INLINE __m512i low_round(Halves x) const { return _mm512_add_epi16(low_shifted(x), entries(low_, x.low)); }
    // Neighbours take neighbouring entries, and what is above them changes once at the most.
    HWY_INLINE Halves first_round(uint32_t first) const {
        const uint32_t start = first & 255, above = first >> 8, next = (first + (256 - start)) >> 8;
        const __mmask32 beyond =
            start + words_of_register > 256 ? static_cast<__mmask32>(UINT32_MAX << (256 - start)) : __mmask32{0};
        const auto halves = [&](int shift) HWY_ATTR {
            return _mm512_mask_blend_epi16(beyond, _mm512_set1_epi16(static_cast<int16_t>(above >> shift)),
                                           _mm512_set1_epi16(static_cast<int16_t>(next >> shift)));
        };
        return sum({halves(0), halves(16)}, {_mm512_loadu_si512(hash_low_words.data() + start),
                                             _mm512_loadu_si512(hash_high_words.data() + start)});
    }
};

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();
#endif

#endif  // toggle
