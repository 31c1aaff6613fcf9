// The pure hash that every random choice stands on: of seed, frame and place, never of the order of calls. Any task.
#pragma once

#include <array>
#include <cstdint>

namespace velloran {

// The generator whose first 256 draws from seed 0 fill the table of the hash: three steps of a linear congruential rule
// (modulus 714025, after "Numerical Recipes", ranqd tables) shifted over each other.
constexpr uint32_t next_random(uint32_t& state) {
    uint32_t s[3] = {};
    for (uint32_t& step : s) {
        state = static_cast<uint32_t>((static_cast<uint64_t>(state) * 4096 + 150889) % 714025);
        step = state;
    }
    return (s[2] << 18) + (s[1] << 8) + (s[0] >> 2);
}

constexpr std::array<uint32_t, 256> make_random_table() {
    std::array<uint32_t, 256> table = {};
    uint32_t state = 0;
    for (uint32_t& entry : table) entry = next_random(state);
    return table;
}
inline constexpr std::array<uint32_t, 256> random_table = make_random_table();

constexpr uint32_t bit_hash(uint32_t x) {
    for (int round = 0; round < 4; ++round) x = (x >> 8) + random_table[x & 255];
    return x;
}
constexpr uint32_t bit_hash2(uint32_t x, uint32_t y) { return bit_hash(bit_hash(x) + y); }

// [0, 1)
constexpr double unit_hash(uint32_t h) { return (h & 0x3fffffff) * (1.0 / 1073741824.0); }

}  // namespace velloran
