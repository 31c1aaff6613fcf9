#ifndef VELLORAN_NOISE_FRACTAL_ROWS_ONCE
#define VELLORAN_NOISE_FRACTAL_ROWS_ONCE
#include "operators/noise/fractal_rows.h"
#include "operators/noise/hash_words.h"

#include <algorithm>
#endif

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/noise/fractal_rows.cpp"
#include "hwy/foreach_target.h"
// After foreach_target.h.
#include "rows/row_targets.h"

#include "operators/noise/hash_words-inl.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

HWY_INLINE I signed13(I bits) { return (bits & I(0x1fff)) - I(4096); }

#if HASHES_WORDS

void add_random(FixPixel* row, int n, uint32_t row_hash, uint32_t first, FractalChannel channel, int shift) {
    constexpr int width = static_cast<int>(words_of_register);
    const WordHash hash;
    const __m128i places = _mm_cvtsi32_si128(std::min(shift, 15));
    for (int i = 0; i < n; i += width) {
        const Halves h = hash.of_row(row_hash + first + static_cast<uint32_t>(i));
        const __m512i words = channel == fractal_first    ? h.low
                              : channel == fractal_second ? h.high
                                                          : low_shifted(hash.with_entries(h));
        const __m512i value =
            _mm512_sub_epi16(_mm512_and_si512(words, _mm512_set1_epi16(0x1fff)), _mm512_set1_epi16(4096));
        const __m512i part = _mm512_sra_epi16(value, places);
        if (i + width <= n) {
            _mm512_storeu_si512(row + i, _mm512_add_epi16(_mm512_loadu_si512(row + i), part));
            continue;
        }
        alignas(64) int16_t parts[width];
        _mm512_store_si512(parts, part);
        for (int k = 0; k < n - i; ++k) row[i + k] = static_cast<FixPixel>(row[i + k] + parts[k]);
    }
}

#else

void add_random(FixPixel* row, int n, uint32_t row_hash, uint32_t first, FractalChannel channel, int shift) {
    for (int i = 0; i < n; i += lane_count) {
        const I h = bit_hash_lanes(count_from(static_cast<int32_t>(row_hash + first + static_cast<uint32_t>(i))));
        const I value = signed13(channel == fractal_first    ? h
                                 : channel == fractal_second ? logical_shr<16>(h)
                                                             : logical_shr<8>(h + random_entry(h & I(255))));
        const I part = hn::ShiftRightSame(value.v, shift);
        if (i + lane_count <= n) {
            const hn::Rebind<FixPixel, DI> narrow;
            const I sum = I(hn::PromoteTo(DI(), hn::LoadU(narrow, row + i))) + part;
            hn::StoreU(hn::DemoteTo(narrow, sum.v), narrow, row + i);
            continue;
        }
        HWY_ALIGN int32_t parts[lane_count];
        hn::Store(part.v, DI(), parts);
        for (int k = 0; k < n - i; ++k) row[i + k] = static_cast<FixPixel>(row[i + k] + parts[k]);
    }
}

#endif

void halve(FixPixel* row, int n, int32_t offset) {
    for (int i = 0; i < n; ++i) row[i] = static_cast<FixPixel>((row[i] >> 1) + offset);
}
void scale(FixPixel* row, int n, int32_t half_scale) {
    for (int i = 0; i < n; ++i) {
        const int32_t v = fix_mul(row[i], half_scale);
        row[i] = static_cast<FixPixel>(std::min(std::max(v, -fix_image_limit), fix_image_limit));
    }
}

// Floored mean.
HWY_INLINE int32_t mean(int32_t a, int32_t b) { return (a + b) >> 1; }
// The sample b, smoothed with those that come to stand beside it.
HWY_INLINE int32_t smoothed(int32_t a, int32_t b, int32_t c) { return (mean(a, b) + 2 * b + mean(b, c) + 1) >> 2; }

void double_line(const FixPixel* in, int64_t in_first, FixPixel* out, int64_t first, int n) {
    const FixPixel* at = in + ((first >> 1) - in_first);
    if (n > 0 && (first & 1)) {
        *out++ = static_cast<FixPixel>(mean(at[0], at[1]));
        ++at;
        --n;
    }
    const int pairs = n / 2;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < pairs; ++i) {
        out[2 * i] = static_cast<FixPixel>(smoothed(at[i - 1], at[i], at[i + 1]));
        out[2 * i + 1] = static_cast<FixPixel>(mean(at[i], at[i + 1]));
    }
    if (n & 1) out[n - 1] = static_cast<FixPixel>(smoothed(at[pairs - 1], at[pairs], at[pairs + 1]));
}

void between(const FixPixel* a, const FixPixel* b, FixPixel* out, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) out[i] = static_cast<FixPixel>(mean(a[i], b[i]));
}
void on(const FixPixel* a, const FixPixel* b, const FixPixel* c, FixPixel* out, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) out[i] = static_cast<FixPixel>(smoothed(a[i], b[i], c[i]));
}

// The part of the difference that two bits of a fraction say.
HWY_INLINE int32_t quarters_of(int32_t difference, int32_t half, int32_t quarter) {
    return ((difference >> 1) & -half) + ((difference >> 2) & -quarter);
}

// So many samples are read from one base, so that places within fit 32 bits.
constexpr int longest_reading = 1024;

void read_some(const FixPixel* in, uint32_t start, uint32_t pitch, FixPixel* out, int n) {
    int i = 0;
#if HWY_TARGET == HWY_AVX3
    // Samples that are read one behind the other are permuted out of two registers of them, or four.
    constexpr int width = 32;
    constexpr uint32_t narrow_pitch = 61 * 65536 / 31, wide_pitch = 125 * 65536 / 31;
    if (pitch <= wide_pitch) {
        const bool wide = pitch > narrow_pitch;
        alignas(64) static constexpr uint16_t evens[width] = {0,  2,  4,  6,  8,  10, 12, 14, 16, 18, 20,
                                                              22, 24, 26, 28, 30, 32, 34, 36, 38, 40, 42,
                                                              44, 46, 48, 50, 52, 54, 56, 58, 60, 62};
        const __m512i even = _mm512_load_si512(evens), one = _mm512_set1_epi16(1);
        const __m512i odd = _mm512_add_epi16(even, one);
        for (; i + width <= n; i += width) {
            const uint32_t place = start + static_cast<uint32_t>(i) * pitch;
            const FixPixel* const from = in + (place >> 16);
            const I steps = count_from(0) * I(static_cast<int32_t>(pitch)) + I(static_cast<int32_t>(place & 0xffff));
            const I more = steps + I(static_cast<int32_t>(pitch * 16));
            const __m512i index = _mm512_permutex2var_epi16(steps.v.raw, odd, more.v.raw);
            const __m512i rest = _mm512_permutex2var_epi16(steps.v.raw, even, more.v.raw);
            const __m512i a = _mm512_loadu_si512(from), b = _mm512_loadu_si512(from + 32);
            const __m512i next_index = _mm512_add_epi16(index, one);
            __m512i here = _mm512_permutex2var_epi16(a, index, b), next = _mm512_permutex2var_epi16(a, next_index, b);
            if (wide) {
                const __m512i c = _mm512_loadu_si512(from + 64), e = _mm512_loadu_si512(from + 96);
                const __m512i half = _mm512_set1_epi16(64);
                here = _mm512_mask_blend_epi16(_mm512_test_epi16_mask(index, half), here,
                                               _mm512_permutex2var_epi16(c, index, e));
                next = _mm512_mask_blend_epi16(_mm512_test_epi16_mask(next_index, half), next,
                                               _mm512_permutex2var_epi16(c, next_index, e));
            }
            // Half the difference, rounded down, without its 17th bit.
            const __m512i borrow = _mm512_and_si512(_mm512_andnot_si512(next, here), one);
            const __m512i half_way =
                _mm512_sub_epi16(_mm512_sub_epi16(_mm512_srai_epi16(next, 1), _mm512_srai_epi16(here, 1)), borrow);
            __m512i value = _mm512_mask_add_epi16(here, _mm512_movepi16_mask(rest), here, half_way);
            value = _mm512_mask_add_epi16(value, _mm512_movepi16_mask(_mm512_slli_epi16(rest, 1)), value,
                                          _mm512_srai_epi16(half_way, 1));
            _mm512_storeu_si512(out + i, value);
        }
    }
#endif
#if ROW_TARGET_GATHERS
    // A gather of 32 bits brings a sample and the next one.
    const auto* pairs = reinterpret_cast<const int32_t*>(in);
    const hn::Rebind<FixPixel, DI> narrow;
    I place = I(static_cast<int32_t>(start + static_cast<uint32_t>(i) * pitch)) +
              count_from(0) * I(static_cast<int32_t>(pitch));
    const I on_by(static_cast<int32_t>(pitch) * lane_count);
    for (; i + lane_count <= n; i += lane_count, place = place + on_by) {
        const I both = hn::GatherOffset(DI(), pairs, shl<1>(logical_shr<16>(place)).v);
        const I here = shr<16>(shl<16>(both)), difference = shr<16>(both) - here;
        const I half = shr<31>(shl<16>(place)), quarter = shr<31>(shl<17>(place));
        const I value = here + (shr<1>(difference) & half) + (shr<2>(difference) & quarter);
        hn::StoreU(hn::DemoteTo(narrow, value.v), narrow, out + i);
    }
#endif
    for (; i < n; ++i) {
        const uint32_t place = start + static_cast<uint32_t>(i) * pitch;
        const FixPixel* const at = in + (place >> 16);
        out[i] = static_cast<FixPixel>(at[0] + quarters_of(at[1] - at[0], (place >> 15) & 1, (place >> 14) & 1));
    }
}
void read(const FixPixel* in, int64_t start, int64_t pitch, FixPixel* out, int n) {
    // Where the noise is finer than the samples, steps are long.
    const int most = pitch < (1 << 20) ? longest_reading : 1;
    for (int done = 0; done < n; done += most) {
        const int64_t place = start + pitch * done;
        read_some(in + (place >> 16), static_cast<uint32_t>(place & 0xffff), static_cast<uint32_t>(pitch), out + done,
                  std::min(most, n - done));
    }
}

void blend(const FixPixel* a, const FixPixel* b, int quarters, FixPixel* out, int n) {
    const int32_t half = quarters >> 1, quarter = quarters & 1;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) out[i] = static_cast<FixPixel>(a[i] + quarters_of(b[i] - a[i], half, quarter));
}

constexpr FractalRows rows = {add_random, halve, scale, double_line, between, on, read, blend};

}  // namespace

const FractalRows* fractal_rows_of_target() { return &rows; }

}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(fractal_rows_of_target);
const FractalRows& fractal_rows() { return *HWY_DYNAMIC_DISPATCH(fractal_rows_of_target)(); }
}  // namespace velloran
#endif
