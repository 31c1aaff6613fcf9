#ifndef VELLORAN_FILM_IMAGE_ROWS_ONCE
#define VELLORAN_FILM_IMAGE_ROWS_ONCE
#include "operators/film/film_image_rows.h"

#include <cstring>
#endif

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/film/film_image_rows.cpp"
#include "hwy/foreach_target.h"
// After foreach_target.h.
#include "rows/row_targets.h"

#include "operators/noise/hash_lanes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

HWY_INLINE FixPixel held(int32_t v) {
    v = v < -fix_image_limit ? -fix_image_limit : v;
    v = v > fix_image_limit ? fix_image_limit : v;
    return static_cast<FixPixel>(v);
}

// Loads and stores are what there is to do, so samples are taken in several at a time.
void tone(FixPixel* p, const FixPixel* table, int n) {
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        uint64_t four[2];
        std::memcpy(four, p + i, sizeof four);
        const FixPixel a = table[four[0] & 0xffff], b = table[four[0] >> 16 & 0xffff],
                       c = table[four[0] >> 32 & 0xffff], d = table[four[0] >> 48];
        const FixPixel e = table[four[1] & 0xffff], f = table[four[1] >> 16 & 0xffff],
                       g = table[four[1] >> 32 & 0xffff], h = table[four[1] >> 48];
        p[i] = a;
        p[i + 1] = b;
        p[i + 2] = c;
        p[i + 3] = d;
        p[i + 4] = e;
        p[i + 5] = f;
        p[i + 6] = g;
        p[i + 7] = h;
    }
    for (; i < n; ++i) p[i] = table[static_cast<uint16_t>(p[i])];
}

void add_glow(FixPixel* p, const FixPixel* glow, int32_t keep, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) p[i] = held(((p[i] * keep) >> fix_bits) + glow[i]);
}

void add(FixPixel* p, const FixPixel* q, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) p[i] = held(p[i] + q[i]);
}

// Groups that are hashed at a time.
constexpr int grain_groups = 64;
constexpr int grain_samples = 4 * grain_groups;

#if HWY_TARGET == HWY_AVX3
// The hash of 32 numbers as halves of 16 bits. Its table lies in registers, where a look-up costs a fraction of a
// gather.
struct HashTable {
    __m512i low[8], high[8];
    HWY_INLINE HashTable() {
        for (int r = 0; r < 8; ++r) {
            HWY_ALIGN uint16_t l[32], h[32];
            for (int i = 0; i < 32; ++i) {
                l[i] = static_cast<uint16_t>(random_table[static_cast<size_t>(32 * r + i)]);
                h[i] = static_cast<uint16_t>(random_table[static_cast<size_t>(32 * r + i)] >> 16);
            }
            low[r] = _mm512_load_si512(l);
            high[r] = _mm512_load_si512(h);
        }
    }
    static HWY_INLINE __m512i entry(const __m512i* part, __m512i index, __mmask32 bit6, __mmask32 bit7) {
        const __m512i a = _mm512_permutex2var_epi16(part[0], index, part[1]),
                      b = _mm512_permutex2var_epi16(part[2], index, part[3]),
                      c = _mm512_permutex2var_epi16(part[4], index, part[5]),
                      d = _mm512_permutex2var_epi16(part[6], index, part[7]);
        return _mm512_mask_blend_epi16(bit7, _mm512_mask_blend_epi16(bit6, a, b), _mm512_mask_blend_epi16(bit6, c, d));
    }
};

HWY_INLINE void hash_groups(uint32_t sequence, int groups, const HashTable& table, uint32_t* hashes) {
    constexpr __mmask32 odd = 0xaaaaaaaa;
    const __m512i count = _mm512_setr_epi32(0, 4, 8, 12, 16, 20, 24, 28, 32, 36, 40, 44, 48, 52, 56, 60);
    for (int g = 0; g < groups; g += 32) {
        // Numbers g to g + 15 in the even places, the others in the odd ones.
        const __m512i a = _mm512_add_epi32(count, _mm512_set1_epi32(static_cast<int32_t>(sequence) + 4 * g)),
                      b = _mm512_add_epi32(a, _mm512_set1_epi32(64));
        __m512i low = _mm512_mask_blend_epi16(odd, a, _mm512_slli_epi32(b, 16)),
                high = _mm512_mask_blend_epi16(odd, _mm512_srli_epi32(a, 16), b);
        for (int round = 0; round < 4; ++round) {
            const __mmask32 bit6 = _mm512_movepi16_mask(_mm512_slli_epi16(low, 9)),
                            bit7 = _mm512_movepi16_mask(_mm512_slli_epi16(low, 8));
            const __m512i shifted = _mm512_or_si512(_mm512_srli_epi16(low, 8), _mm512_slli_epi16(high, 8));
            const __m512i sum = _mm512_add_epi16(shifted, HashTable::entry(table.low, low, bit6, bit7));
            const __mmask32 carry = _mm512_cmplt_epu16_mask(sum, shifted);
            high = _mm512_add_epi16(_mm512_srli_epi16(high, 8), HashTable::entry(table.high, low, bit6, bit7));
            high = _mm512_sub_epi16(high, _mm512_movm_epi16(carry));
            low = sum;
        }
        _mm512_storeu_si512(hashes + g, _mm512_mask_blend_epi16(odd, low, _mm512_slli_epi32(high, 16)));
        _mm512_storeu_si512(hashes + g + 16, _mm512_mask_blend_epi16(odd, _mm512_srli_epi32(low, 16), high));
    }
}
#else
struct HashTable {};

// Several at a time, since each round waits for the one before.
HWY_INLINE void hash_groups(uint32_t sequence, int groups, const HashTable&, uint32_t* hashes) {
    const uint32_t* const table = random_table.data();
    for (int g = 0; g < groups; g += 4) {
        uint32_t a = sequence + 4 * static_cast<uint32_t>(g), b = a + 4, c = a + 8, d = a + 12;
        for (int round = 0; round < 4; ++round) {
            a = (a >> 8) + table[a & 255];
            b = (b >> 8) + table[b & 255];
            c = (c >> 8) + table[c & 255];
            d = (d >> 8) + table[d & 255];
        }
        hashes[g] = a;
        hashes[g + 1] = b;
        hashes[g + 2] = c;
        hashes[g + 3] = d;
    }
}
#endif
constexpr int room_for_groups = grain_groups + 32;

HWY_INLINE int32_t one_grain(FixPixel on, const float* amounts, uint8_t byte) {
    int32_t level = on >> 6;
    level = level < 0 ? 0 : level;
    level = level > grain_levels - 1 ? grain_levels - 1 : level;
    return held(static_cast<int32_t>(static_cast<float>(byte * 16 - 2048) * amounts[level]));
}

#if HWY_TARGET == HWY_AVX3
// Amounts of 64 levels in registers, and that of the last one.
struct Amounts {
    __m512 of[4], last;
    HWY_INLINE explicit Amounts(const float* amounts) {
        for (int r = 0; r < 4; ++r) of[r] = _mm512_loadu_ps(amounts + 16 * r);
        last = _mm512_set1_ps(amounts[grain_levels - 1]);
    }
    HWY_INLINE __m512 at(__m512i level) const {
        const __m512 a = _mm512_permutex2var_ps(of[0], level, of[1]), b = _mm512_permutex2var_ps(of[2], level, of[3]);
        const __m512 v = _mm512_mask_blend_ps(_mm512_test_epi32_mask(level, _mm512_set1_epi32(32)), a, b);
        return _mm512_mask_blend_ps(_mm512_test_epi32_mask(level, _mm512_set1_epi32(64)), v, last);
    }
};

// Grain of 16 samples. Amounts are bounded, so that the numbers fit.
HWY_INLINE __m256i sixteen_grains(const Amounts& amounts, __m256i level, const uint8_t* bytes) {
    const __m512i byte = _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)));
    const __m512 noise = _mm512_cvtepi32_ps(_mm512_sub_epi32(_mm512_slli_epi32(byte, 4), _mm512_set1_epi32(2048)));
    const __m512 grain = _mm512_mul_ps(noise, amounts.at(_mm512_cvtepi16_epi32(level)));
    return _mm512_cvtsepi32_epi16(_mm512_cvttps_epi32(grain));
}

template <bool added>
HWY_INLINE int work_registers(const FixPixel* p, FixPixel* out, const Amounts& amounts, const uint8_t* bytes, int n) {
    const __m512i least = _mm512_set1_epi16(-fix_image_limit), top = _mm512_set1_epi16(grain_levels - 1);
    int i = 0;
    for (; i + 32 <= n; i += 32) {
        const __m512i on = _mm512_loadu_si512(p + i);
        const __m512i level = _mm512_min_epi16(_mm512_max_epi16(_mm512_srai_epi16(on, 6), _mm512_setzero_si512()), top);
        const __m256i a = sixteen_grains(amounts, _mm512_castsi512_si256(level), bytes + i),
                      b = sixteen_grains(amounts, _mm512_extracti64x4_epi64(level, 1), bytes + i + 16);
        __m512i grain = _mm512_max_epi16(_mm512_inserti64x4(_mm512_castsi256_si512(a), b, 1), least);
        if constexpr (added) grain = _mm512_max_epi16(_mm512_adds_epi16(grain, on), least);
        _mm512_storeu_si512(out + i, grain);
    }
    return i;
}
#elif ROW_TARGET_PLAIN
using Amounts = const float*;

template <bool added>
HWY_INLINE int work_registers(const FixPixel*, FixPixel*, Amounts, const uint8_t*, int) {
    return 0;
}
#else
using Amounts = const float*;

template <bool added>
HWY_INLINE int work_registers(const FixPixel* p, FixPixel* out, Amounts amounts, const uint8_t* bytes, int n) {
    const hn::Rebind<int16_t, DI> samples;
    const hn::Rebind<uint8_t, DI> noises;
    const I limit(fix_image_limit), least(-fix_image_limit);
    int i = 0;
    for (; i + lane_count <= n; i += lane_count) {
        const I on = I(hn::PromoteTo(DI(), hn::LoadU(samples, p + i)));
        const I level = min(max(shr<6>(on), I(0)), I(grain_levels - 1));
        const I noise = shl<4>(I(hn::PromoteTo(DI(), hn::LoadU(noises, bytes + i)))) - I(2048);
        I grain = min(max(whole(number(noise) * gather(amounts, level)), least), limit);
        if constexpr (added) grain = min(max(on + grain, least), limit);
        hn::StoreU(hn::DemoteTo(samples, grain.v), samples, out + i);
    }
    return i;
}
#endif

template <bool added>
HWY_INLINE void work_grain(const FixPixel* p, FixPixel* out, const float* amounts, GrainRow row, int n) {
    HWY_ALIGN uint32_t hashes[room_for_groups];
    const HashTable table;
    const Amounts in_registers(amounts);
    for (int done = 0; done < n; done += grain_samples) {
        const int some = n - done < grain_samples ? n - done : grain_samples;
        hash_groups(row.sequence + static_cast<uint32_t>(done), (row.skip + some + 3) / 4, table, hashes);
        // A byte for each sample: machines are little-endian, so that the lowest one is the first.
        const uint8_t* const bytes = reinterpret_cast<const uint8_t*>(hashes) + row.skip;
        int i = work_registers<added>(p + done, out + done, in_registers, bytes, some);
        for (; i < some; ++i) {
            const int32_t grain = one_grain(p[done + i], amounts, bytes[i]);
            out[done + i] = held(added ? p[done + i] + grain : grain);
        }
    }
}

void make_grain(const FixPixel* p, FixPixel* grain, const float* amounts, GrainRow row, int n) {
    work_grain<false>(p, grain, amounts, row, n);
}
void add_grain(FixPixel* p, const float* amounts, GrainRow row, int n) { work_grain<true>(p, p, amounts, row, n); }

// Columns first, from the rows as they lie in memory, then along the line that this makes. A register's sum is made tap
// by tap, in the order of the plain one.
HWY_INLINE float column(const FixPixel* const* around, const GrainKernel& kernel, int x) {
    const FixPixel* const* const middle = around + kernel.reach;
    float sum = kernel.weights[0] * static_cast<float>(middle[0][x]);
    for (int k = 1; k <= kernel.reach; ++k) sum += kernel.weights[k] * static_cast<float>(middle[-k][x] + middle[k][x]);
    return sum;
}
HWY_INLINE FixPixel with_grain(FixPixel on, const float* at, const GrainKernel& kernel) {
    float sum = kernel.brighter[0] * at[0];
    for (int k = 1; k <= kernel.reach; ++k) sum += kernel.brighter[k] * (at[-k] + at[k]);
    sum = sum < -32767.0f ? -32767.0f : sum;
    sum = sum > 32767.0f ? 32767.0f : sum;
    return held(on + static_cast<int32_t>(sum));
}

#if ROW_TARGET_PLAIN
int columns_in_registers(const FixPixel* const*, const GrainKernel&, float*, int) { return 0; }
int rows_in_registers(FixPixel*, const float*, const GrainKernel&, int) { return 0; }
#else
HWY_INLINE I samples_at(const FixPixel* at) {
    const hn::Rebind<int16_t, DI> samples;
    return I(hn::PromoteTo(DI(), hn::LoadU(samples, at)));
}
HWY_INLINE F floats_at(const float* at) { return F(hn::LoadU(DF(), at)); }

int columns_in_registers(const FixPixel* const* around, const GrainKernel& kernel, float* out, int n) {
    const FixPixel* const* const middle = around + kernel.reach;
    int x = 0;
    for (; x + lane_count <= n; x += lane_count) {
        F sum = F(kernel.weights[0]) * number(samples_at(middle[0] + x));
        for (int k = 1; k <= kernel.reach; ++k)
            sum = sum + F(kernel.weights[k]) * number(samples_at(middle[-k] + x) + samples_at(middle[k] + x));
        hn::StoreU(sum.v, DF(), out + x);
    }
    return x;
}
int rows_in_registers(FixPixel* p, const float* middle, const GrainKernel& kernel, int n) {
    const hn::Rebind<int16_t, DI> samples;
    const I limit(fix_image_limit), least(-fix_image_limit);
    int x = 0;
    for (; x + lane_count <= n; x += lane_count) {
        F sum = F(kernel.brighter[0]) * floats_at(middle + x);
        for (int k = 1; k <= kernel.reach; ++k)
            sum = sum + F(kernel.brighter[k]) * (floats_at(middle + x - k) + floats_at(middle + x + k));
        const I grain = whole(clamp(sum, F(-32767.0f), F(32767.0f)));
        hn::StoreU(hn::DemoteTo(samples, min(max(samples_at(p + x) + grain, least), limit).v), samples, p + x);
    }
    return x;
}
#endif

void add_blurred(FixPixel* p, const FixPixel* const* around, const GrainKernel& kernel, float* line, int n) {
    float* const middle = line + kernel.reach;
    for (int x = columns_in_registers(around, kernel, middle, n); x < n; ++x) middle[x] = column(around, kernel, x);
    for (int k = 0; k < kernel.reach; ++k) {
        middle[-1 - k] = middle[k];
        middle[n + k] = middle[n - 1 - k];
    }
    for (int x = rows_in_registers(p, middle, kernel, n); x < n; ++x) p[x] = with_grain(p[x], middle + x, kernel);
}

constexpr FilmImageRows rows = {tone, add_glow, make_grain, add_grain, add, add_blurred};

}  // namespace

const FilmImageRows* film_image_rows_of_target() { return &rows; }

}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(film_image_rows_of_target);
const FilmImageRows& film_image_rows() { return *HWY_DYNAMIC_DISPATCH(film_image_rows_of_target)(); }
}  // namespace velloran
#endif
