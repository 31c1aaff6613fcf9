// A hash is four rounds of shifting a number right by 8 bits and adding an entry of a table that its lower 8 bits
// choose. Here each of the four bytes of 64 numbers has a register of its own. So the shift is only another name for a
// register, and an entry's byte is looked up among 256 by two permutations of 128.
#include "operators/noise/static_bytes.h"

#include "support/hash.h"

#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#define BYTES_ATTR __attribute__((target("avx512f,avx512bw,avx512vbmi")))
#define BYTES_INLINE BYTES_ATTR inline __attribute__((always_inline))
#endif

namespace velloran {

bool static_bytes_wanted = true;

#if defined(__x86_64__)

bool static_bytes_p() {
    static const bool can =
        __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vbmi");
    return can && static_bytes_wanted;
}

namespace {

constexpr int bytes_of_number = 4, samples_of_register = 64;

// The bytes of the table's entries; the beginning follows the end, so that neighbours of any entry are read at once.
struct EntryBytes {
    alignas(64) uint8_t of[bytes_of_number][256 + samples_of_register];
};
constexpr EntryBytes make_entry_bytes() {
    EntryBytes bytes = {};
    for (int b = 0; b < bytes_of_number; ++b)
        for (size_t i = 0; i < sizeof bytes.of[b]; ++i)
            bytes.of[b][i] = static_cast<uint8_t>(random_table[i % 256] >> (8 * b));
    return bytes;
}
constexpr EntryBytes entry_bytes = make_entry_bytes();

struct Numbers {
    __m512i byte[bytes_of_number];
};

// a + b of so many bytes, from the lowest on; what is carried beyond them is lost.
template <int n_bytes>
BYTES_INLINE Numbers sum(const Numbers& a, const Numbers& b) {
    Numbers total = {};
    __mmask64 carry = 0;
    for (int i = 0; i < n_bytes; ++i) {
        const __m512i plain = _mm512_add_epi8(a.byte[i], b.byte[i]), all = _mm512_set1_epi8(-1);
        total.byte[i] = _mm512_mask_sub_epi8(plain, carry, plain, all);
        // A byte of 255 hands on what it gets.
        carry = _mm512_cmplt_epu8_mask(plain, b.byte[i]) | _mm512_mask_cmpeq_epi8_mask(carry, plain, all);
    }
    return total;
}

// The lower n_bytes bytes of a round's result.
template <int n_bytes>
BYTES_INLINE Numbers round(const Numbers& x, const __m512i (*table)[4]) {
    const __mmask64 upper = _mm512_movepi8_mask(x.byte[0]);
    Numbers entries = {};
    for (int b = 0; b < n_bytes; ++b)
        entries.byte[b] = _mm512_mask_blend_epi8(upper, _mm512_permutex2var_epi8(table[b][0], x.byte[0], table[b][1]),
                                                 _mm512_permutex2var_epi8(table[b][2], x.byte[0], table[b][3]));
    return sum<n_bytes>({{x.byte[1], x.byte[2], x.byte[3], _mm512_setzero_si512()}}, entries);
}

// The first round for first, first + 1, ...: neighbours take neighbouring entries, and what is above them changes once
// at the most.
BYTES_INLINE Numbers first_round(uint32_t first) {
    const uint32_t start = first & 255, above = first >> 8, next = (first + (256 - start)) >> 8;
    const __mmask64 beyond = start + samples_of_register > 256 ? UINT64_MAX << (256 - start) : 0;
    Numbers shifted = {}, entries = {};
    for (int b = 0; b < bytes_of_number; ++b) {
        shifted.byte[b] = _mm512_mask_blend_epi8(beyond, _mm512_set1_epi8(static_cast<char>(above >> (8 * b))),
                                                 _mm512_set1_epi8(static_cast<char>(next >> (8 * b))));
        entries.byte[b] = _mm512_loadu_si512(entry_bytes.of[b] + start);
    }
    return sum<bytes_of_number>(shifted, entries);
}

}  // namespace

BYTES_ATTR void static_bytes(uint32_t first, int n, int32_t* out) {
    constexpr int quarter = samples_of_register / 4;
    __m512i table[bytes_of_number][4], places[4];
    for (int b = 0; b < bytes_of_number; ++b)
        for (int i = 0; i < 4; ++i) table[b][i] = _mm512_load_si512(entry_bytes.of[b] + i * samples_of_register);
    // Where the two bytes of the samples of each quarter are, of a pair of registers.
    for (int q = 0; q < 4; ++q) {
        alignas(64) uint8_t at[samples_of_register] = {};
        for (int i = 0; i < quarter; ++i) {
            at[4 * i] = static_cast<uint8_t>(q * quarter + i);
            at[4 * i + 1] = static_cast<uint8_t>(at[4 * i] + samples_of_register);
        }
        places[q] = _mm512_load_si512(at);
    }
    constexpr __mmask64 lower_bytes = 0x3333333333333333;
    for (int i = 0; i < n; i += samples_of_register) {
        const Numbers x =
            round<2>(round<3>(round<4>(first_round(first + static_cast<uint32_t>(i)), table), table), table);
        const __m512i low = x.byte[0], high = _mm512_and_si512(x.byte[1], _mm512_set1_epi8(15));
        for (int q = 0; q < 4; ++q) {
            const __m512i samples = _mm512_maskz_permutex2var_epi8(lower_bytes, low, places[q], high);
            const int left = n - i - q * quarter;
            if (left >= quarter)
                _mm512_storeu_si512(out + i + q * quarter, samples);
            else if (left > 0)
                _mm512_mask_storeu_epi32(out + i + q * quarter, static_cast<__mmask16>((1u << left) - 1), samples);
        }
    }
}

#else

bool static_bytes_p() { return false; }
void static_bytes(uint32_t, int, int32_t*) {}

#endif

}  // namespace velloran
