// Row functions of polygon coverage.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// An edge that rises, from the start of a row on.
struct SteepEdge {
    double x0, y0;  // its lower end, not above the start of that row
    double slope;   // columns for a row, at most 2 to either side
    double height_per_x;
    float sign;
    int row;
};

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
    // Adds the edge to n whole rows, the first at `rows`; left is the first column's number. Returns the number of rows
    // that are done: it stops where the edge is not with three columns of room to its right inside the width.
    int (*add_steep_rows)(float* rows, int width, int left, int n, const SteepEdge& edge);
};
const CoverageRows& coverage_rows();

}  // namespace velloran
