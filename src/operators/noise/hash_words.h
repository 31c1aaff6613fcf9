// The table of the hash in halves of 16 bits, as registers that permute words read it. The beginning follows the end,
// so that neighbours of any entry are read at once.
#pragma once

#include "support/hash.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace velloran {

constexpr size_t words_of_register = 32;
using HashWords = std::array<uint16_t, 256 + words_of_register>;

constexpr HashWords hash_words(int shift) {
    HashWords words = {};
    for (size_t i = 0; i < words.size(); ++i) words[i] = static_cast<uint16_t>(random_table[i % 256] >> shift);
    return words;
}
alignas(64) inline constexpr HashWords hash_low_words = hash_words(0);
alignas(64) inline constexpr HashWords hash_high_words = hash_words(16);

}  // namespace velloran
