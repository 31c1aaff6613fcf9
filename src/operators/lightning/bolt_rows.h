// Row functions of bolts.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// A stroke on a row, in widths of a sample. Sample i lies first + i - fraction to the right of its first end, and up
// above it.
struct StrokeRow {
    FixPixel* p;  // at sample 0
    int32_t first, n;
    float fraction, up;
    float dx, dy, inverse_square;  // to the other end, and one over its length squared
    float a_width, rise;           // half width at the first end, and what it has more at the other
};

struct BoltRows {
    // p = the larger of p and how much of it the stroke covers
    void (*stroke)(const StrokeRow& row);
    // p = the larger of p and q * scale
    void (*show)(FixPixel* p, const FixPixel* q, float scale, int n);
};
const BoltRows& bolt_rows();

}  // namespace velloran
