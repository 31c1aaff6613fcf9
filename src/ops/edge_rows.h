// Row functions of masks, differences and slopes. n counts samples; rows do not overlap unless they are the same.
#pragma once

#include "ops/fix_pixel.h"

#include <cstdint>

namespace velloran {

// A row of accumulators and its neighbours; slopes are (right - left) * x_factor and (above - below) * y_factor, in
// floats of 1.0. At the ends of a row the end sample stands for its missing neighbour.
struct SlopeRow {
    const int32_t *row, *below, *above;
    float x_factor, y_factor;
    int n;
};

struct EdgeRows {
    // p = p where m is white, 0 where it is black, else (p * m) >> 12
    void (*apply_mask)(FixPixel* p, const FixPixel* m, int n);
    // Where m is above 0: p, divided by b where that lies between black and white, mixed over c by m, goes to c.
    void (*resolve_mask)(FixPixel* c, const FixPixel* p, const FixPixel* b, const FixPixel* m, int n);
    // out = base + (((a - b) * scale) >> 12), held to +-32767; base 0 in the first, a in the second
    void (*scaled_difference)(const FixPixel* a, const FixPixel* b, FixPixel* out, int32_t offset, int32_t scale,
                              int n);
    void (*add_difference)(const FixPixel* a, const FixPixel* b, FixPixel* out, int32_t scale, int n);
    void (*slopes)(const SlopeRow& in, FixPixel* x, FixPixel* y);
    void (*slope_length)(const SlopeRow& in, FixPixel* out);
    // Direction in turns plus offset, from 0 up to 1.0; 0 slopes have direction 0.
    void (*slope_direction)(const SlopeRow& in, float offset, FixPixel* out);
    // Slope along a vector of each pixel: dot product with (x, y).
    void (*slope_along)(const SlopeRow& in, const FixPixel* x, const FixPixel* y, FixPixel* out);
    // As floats.
    void (*float_slopes)(const SlopeRow& in, float* x, float* y);
};
const EdgeRows& edge_rows();

}  // namespace velloran
