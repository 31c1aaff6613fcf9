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

// Of distances from an edge: samples from edge_inside on are inside of it; edge_no_row is no edge in the column, or one
// that is farther than can be counted; edge_nowhere none at all.
constexpr FixPixel edge_inside = fix_scale / 2;
constexpr uint16_t edge_no_row = UINT16_MAX;
constexpr float edge_nowhere = 1e30f;

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
    // Highest and lowest sample of three rows.
    void (*extremes)(const FixPixel* below, const FixPixel* row, const FixPixel* above, FixPixel* high, FixPixel* low,
                     int n);
    // out = 1.0 where a sample differs by more than threshold from one that extremes saw in its column or beside it.
    void (*mark_steps)(const FixPixel* row, const FixPixel* high, const FixPixel* low, uint16_t threshold,
                       FixPixel* out, int n);
    // Rows to the nearest sample of the other kind, by those that the row beside has: counted becomes the less of
    // itself and 1, where matte and the row beside are of different kinds, or beside + 1.
    void (*count_rows)(const FixPixel* matte, const FixPixel* matte_beside, const uint16_t* beside, uint16_t* counted,
                       int n);
    // out = (sqrt(square) - 0.5) * factor, held to +-32767; squares are those of distances, or
    // edge_nowhere, and are used up
    void (*distances)(float* squares, float factor, FixPixel* out, int n);
};
const EdgeRows& edge_rows();

}  // namespace velloran
