// The hash that every random choice stands on, written out plainly: what tests of noise compare with.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

namespace velloran_tests {

inline uint32_t model_table(uint32_t entry) {
    static const std::vector<uint32_t> table = [] {
        std::vector<uint32_t> made;
        uint64_t s = 0;
        const auto step = [&s] { return s = (s * 4096 + 150889) % 714025; };
        for (int i = 0; i < 256; ++i) {
            const uint64_t s1 = step(), s2 = step(), s3 = step();
            made.push_back(static_cast<uint32_t>(s3 * 262144 + s2 * 256 + s1 / 4));
        }
        return made;
    }();
    return table[entry];
}
inline uint32_t model_hash(uint32_t x) {
    for (int i = 0; i < 4; ++i) x = x / 256 + model_table(x % 256);
    return x;
}
inline uint32_t model_hash(uint32_t x, uint32_t y) { return model_hash(model_hash(x) + y); }
inline double model_unit(uint32_t h) { return h % (1u << 30) / 1073741824.0; }
// Thirteen bits of a hash as a number of -4096 .. 4095.
inline int model_signed13(uint32_t bits) { return static_cast<int>(bits % 8192) - 4096; }
// The third number that is drawn from a hash.
inline int model_third(uint32_t h) { return model_signed13((h + model_table(h % 256)) / 256); }

}  // namespace velloran_tests
