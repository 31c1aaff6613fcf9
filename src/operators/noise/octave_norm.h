// What brings a sum of octaves, each half as strong as the one before, back to the range of one: by number of octaves,
// 2^(n-1) / (2^n - 1) to four places.
#pragma once

#include <algorithm>

namespace velloran {

constexpr int max_norm_octaves = 16;
inline constexpr float octave_norm_table[max_norm_octaves + 1] = {0,       1,       0.6667f, 0.5714f, 0.5333f, 0.5161f,
                                                                  0.5079f, 0.5039f, 0.5019f, 0.501f,  0.5005f, 0.5002f,
                                                                  0.5001f, 0.5f,    0.5f,    0.5f,    0.5f};

// Octaves beyond the table's count as its last, below 0 as none.
constexpr float octave_norm(int octaves) { return octave_norm_table[std::clamp(octaves, 0, max_norm_octaves)]; }

}  // namespace velloran
