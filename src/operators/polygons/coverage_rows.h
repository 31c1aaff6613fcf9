// Row functions of polygon coverage.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

struct CoverageRows {
    // Signed areas to coverage, 0 to 1, in place: the size of the running sum.
    void (*finish)(float* row, int n);
    // The same without writing coverage: out[c] = (trunc(coverage * 4096) * colors[c]) >> 12 for each of the channels;
    // colors lie within +-32767.
    void (*finish_painted)(const float* row, int n, FixPixel* const* out, const int32_t* colors, int channels);
    // What an edge that rises by height_per_x for a column adds to each of n columns from `column` on, all of which it
    // passes through: the area to its right, less that of the column before, all in coverage_units, times sign. It
    // begins at x_low; before: the area of the column before the first.
    void (*add_slope)(float* at, int n, double column, double x_low, double height_per_x, double before, float sign);
};
const CoverageRows& coverage_rows();

}  // namespace velloran
