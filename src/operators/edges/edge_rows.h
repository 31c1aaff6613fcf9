// Row functions of differences and slopes. n counts samples; rows do not overlap unless they are the same.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// A row of accumulators and its neighbours; slopes are (right - left) * x_factor and (above - below) * y_factor, in
// floats of 1.0. At the ends of a row the end sample stands for its missing neighbour.
struct SlopeRow {
    const int32_t *row, *below, *above;
    float x_factor, y_factor;
    int n;
};

// Light on a height map. The eye looks straight down.
constexpr int highlight_entries = 1024;
struct Light {
    float to_light[3], half[3];               // unit vectors: to the light, and halfway between it and the eye
    float highlights[highlight_entries + 2];  // by the cosine between the normal and half, from 0 to 1
};

struct EdgeRows {
    // out = base + (((a - b) * scale) >> 12), held to +-32767; base is offset in the first, a in the second
    void (*scaled_difference)(const FixPixel* a, const FixPixel* b, FixPixel* out, int32_t offset, int32_t scale,
                              int n);
    void (*add_difference)(const FixPixel* a, const FixPixel* b, FixPixel* out, int32_t scale, int n);
    void (*slopes)(const SlopeRow& in, FixPixel* x, FixPixel* y);
    void (*slope_length)(const SlopeRow& in, FixPixel* out);
    // Direction in turns plus offset, from 0 up to 1.0; 0 slopes have direction 0.
    void (*slope_direction)(const SlopeRow& in, float offset, FixPixel* out);
    // Slope along a vector of each pixel: dot product with (x, y). For the samples first .. first + n - 1 of the row;
    // x, y and out begin at first.
    void (*slope_along)(const SlopeRow& in, int first, int n, const FixPixel* x, const FixPixel* y, FixPixel* out);
    // Length of the slope after x and y were added to it.
    void (*moved_slope_length)(const SlopeRow& in, float x, float y, FixPixel* out);
    // Light on slopes of heights: how much of it is scattered, 0 to 1, and how much is reflected, by the table.
    void (*shade)(const SlopeRow& in, const Light& light, float* scattered, float* reflected);
    // p = color * (p * scattered + reflected), truncated and held to +-32767
    void (*apply_light)(FixPixel* p, const float* scattered, const float* reflected, float color, int n);
};
const EdgeRows& edge_rows();

}  // namespace velloran
