// Row functions of bolts.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// A stroke in widths of a sample, from its first end on.
struct StrokeShape {
    float fraction;                // of the first end, which lies so far to the right of a whole sample
    float dx, dy, inverse_square;  // to the other end, and one over its length squared
    float a_width, rise;           // half width at the first end, and what it has more at the other
};
// A row of it: sample i lies first + i - fraction to the right of the first end, and up above it.
struct StrokeSpan {
    FixPixel* p;  // at sample 0
    int32_t first, n;
    int32_t least, most;  // the picture's row is samples least .. most - 1
    float up;
};

struct BoltRows {
    // In each of n rows, p = the larger of p and how much of it the stroke covers
    void (*stroke)(const StrokeShape& shape, const StrokeSpan* spans, int n);
    // p = the larger of p and q * scale
    void (*show)(FixPixel* p, const FixPixel* q, float scale, int n);
};
const BoltRows& bolt_rows();

}  // namespace velloran
