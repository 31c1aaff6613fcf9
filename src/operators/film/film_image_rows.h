// Row functions of the film look. n counts samples; rows do not overlap unless they are the same.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// How strong grain is by the sample it lies on, for samples of 64 levels each.
constexpr int grain_levels = 65;

// The noise of a row: every four samples, counted from a multiple of four of the frame's columns, have the four bytes
// of one hash, that of a number that rises by four.
struct GrainRow {
    uint32_t sequence;  // number of the first group
    int skip;           // its samples that lie before the row, 0 to 3
};

// A blur of few samples, the same along rows and columns, as its weights from the middle on.
constexpr int longest_grain_reach = 12;
struct GrainKernel {
    int reach;                                // samples to each side
    float weights[longest_grain_reach + 1];   // for columns
    float brighter[longest_grain_reach + 1];  // for rows: times what strength is given back
};

struct FilmImageRows {
    // p = table[p]; table has an entry for every sample, that of -1 behind the one of 32767.
    void (*tone)(FixPixel* p, const FixPixel* table, int n);
    // p = p * keep + glow; keep is 0 to 4096
    void (*add_glow)(FixPixel* p, const FixPixel* glow, int32_t keep, int n);
    // grain = noise * amounts[level of p], truncated; magnitudes of amounts are 100000 at most
    void (*make_grain)(const FixPixel* p, FixPixel* grain, const float* amounts, GrainRow row, int n);
    // p = p + that grain
    void (*add_grain)(FixPixel* p, const float* amounts, GrainRow row, int n);
    // p = p + q
    void (*add)(FixPixel* p, const FixPixel* q, int n);
    // p = p + the blur of a row, truncated, of which rows has those around it as well: 2 * reach + 1, from one end to
    // the other. Rows end mirrored, the end sample doubled; they are longer than the reach. line: n + 2 * reach floats.
    void (*add_blurred)(FixPixel* p, const FixPixel* const* rows, const GrainKernel& kernel, float* line, int n);
};
const FilmImageRows& film_image_rows();

}  // namespace velloran
