// Distances along a row, from what is known of its columns.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// Above any squared distance that is counted.
constexpr int32_t run_nowhere = 1'000'000'000;
// The largest frame, along either side, whose distances fit.
constexpr int most_run_samples = 16384;

// Integers of scratch for a run of n, and how many squares beyond its end may be overwritten.
constexpr int run_block = 32;
constexpr int run_scratch(int n) { return n + 2 + run_block + 2 * (n / run_block + 1); }

struct RunDistanceRows {
    // Behind the last of the samples from first on that are inside of an edge, or not, as the first one is.
    int (*end_of_run)(const FixPixel* matte, int first, int width);
    // squares[i]: the least of (i - k)^2 + rows[k]^2 over the columns k of a run of n, and of (i + 1)^2 if there_before
    // and (n - i)^2 if there_behind; 1e30 if there is nothing. 0xffff rows is nothing, too.
    void (*measure)(const uint16_t* rows, int n, bool there_before, bool there_behind, int32_t* scratch,
                    float* squares);
};
const RunDistanceRows& run_distance_rows();

}  // namespace velloran
