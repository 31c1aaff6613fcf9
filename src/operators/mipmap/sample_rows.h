// Row functions of look-ups in a mipmap. A position is a place in samples of level 0, 12 fraction bits, 0 at the centre
// of its first sample; a look-up goes from coordinates to positions, to taps, to samples, some look_up_block pixels at
// a time.
#pragma once

#include "frame/mipmap_size.h"
#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

constexpr int look_up_block = 256;

// One axis of a line of coordinates: position = start + i * step + scale * (coords - own), where own are the
// coordinates of the pixels themselves. Unmoved coordinates thus give the pixel's own place, whatever was lost where
// they were rounded.
struct AxisLine {
    const int32_t* coords;
    const int32_t* own;          // null: coords are movements
    bool coords_vary, own_vary;  // else the first entry holds for all
    int32_t start, step;
    float scale;
};

// How positions along an axis come back into the picture.
struct AxisWrap {
    int32_t period;        // of a repeated picture; positions -2048 .. period - 2048 lie in it
    float inverse_period;  // 1 / period
    bool on, mirrored;
};

// One level of an axis.
struct AxisLevel {
    float ratio;   // its samples to one of level 0
    int32_t size;  // in samples
    bool scaled;   // it is not level 0
};

struct TapPlan {
    AxisLevel x, y;
    uint32_t origin;  // sample of the level's lower left border
    uint32_t row_samples;
    int32_t elements;
};

// All levels, for look-ups that choose one for each pixel.
struct LevelTable {
    float x_ratio[max_mipmap_levels + 1], y_ratio[max_mipmap_levels + 1];
    int32_t x_size[max_mipmap_levels + 1], y_size[max_mipmap_levels + 1];
    uint32_t x_origin[max_mipmap_levels + 1], y_origin[max_mipmap_levels + 1];  // samples
    uint32_t row_samples;
    int32_t elements;
    int32_t max_x, max_y;  // highest level to ask for, 12 fraction bits
};

// Where the four samples around each position are, and their weights: the left one in the lower half, the right one in
// the upper; 4096 in all.
struct Taps {
    static constexpr int entries = look_up_block + 8;  // registers are read whole
    alignas(64) uint32_t at[entries];                  // sample of the lower left tap
    alignas(64) uint32_t lower[entries];               // weights of its row
    alignas(64) uint32_t upper[entries];               // weights of the row above
};

// Movements as they are stored: less whole periods where the axis repeats, and as coarser steps of the whole, by which
// differences of the others that are off by periods are known.
struct StoredMovements {
    const FixPixel *fine, *coarse;  // coarse null: the axis does not repeat
    bool there() const { return fine != nullptr; }
    StoredMovements from(int i) const { return {fine + i, coarse ? coarse + i : nullptr}; }
};
constexpr int coarse_step = 16;

// Movements along an axis around a line, for how much a look-up shrinks the picture.
struct ChangeLine {
    StoredMovements row;           // the line from its first pixel on
    StoredMovements below, above;  // as far below and above; fine null: outside the frame
    int width, first;              // pixels of the line, and the first to work on
    int apart;                     // pixels to the neighbours that are compared
    float scale;                   // of a difference of movements over that distance, in samples a pixel
    float own_x, own_y;            // change without movements
};

// n up to look_up_block.
struct SampleRows {
    void (*positions)(const AxisLine& line, int first, int32_t* out, int n);
    // Positions start + i * step, in samples, rounded to 12 fraction bits.
    void (*along_line)(double start, double step, int32_t* out, int n);
    void (*wrap)(int32_t* positions, const AxisWrap& wrap, int n);
    // Movements of coordinates (coords - own), less whole periods where the axis repeats, held to +-32767.
    void (*movements)(const AxisLine& line, int first, const AxisWrap& wrap, FixPixel* out, int n);
    // The same whole, in steps of coarse_step.
    void (*coarse_movements)(const AxisLine& line, int first, FixPixel* out, int n);
    // How fast a position changes from pixel to pixel: the squares of its changes in x and y, added up. Of the two
    // neighbours in each direction the one that differs less counts, so that a seam does not.
    void (*change_squared)(const ChangeLine& line, float* out, int n);
    // Levels for a reduction by these factors times scale, 1.0 and more; 0 below.
    void (*levels)(const float* x_squared, const float* y_squared, float scale, const LevelTable& table,
                   int32_t* x_level, int32_t* y_level, int n);
};
const SampleRows& sample_rows();

}  // namespace velloran
