// Sums of a plane's samples over an aperture, at a cost that grows with the aperture's rim and not with its area.
//
// Along a row the sum changes from one sample to the next by what enters and what leaves the aperture, that is by the
// differences of neighbouring weights. Where weights are equal they fall out, so of a disc only the cells along its rim
// are left. Two neighbouring differences are a tap: both are taken in by one multiplication of pairs of 16-bit numbers.
// All is summed in integers, so that no rounding adds up along a row and nothing depends on who works where.
#pragma once

#include "records/fix_pixel.h"

#include <cstddef>
#include <cstdint>

namespace velloran {

// Takes samples x - column and x - column + 1 of a row in, by its two weights.
struct ApertureTap {
    int32_t column;
    int16_t weights[2];
};

struct Aperture {
    int first_row, n_rows;  // rows of weights, relative to the centre, up
    int left, right;        // columns that taps reach to the left and right of a sample, at most
    int32_t* row_taps;      // [n_rows + 1] index of each row's first tap
    ApertureTap* taps;
    int n_taps;
    float unit;  // the integer that a weight of 1.0 is
};

// weights: [height][width] of the whole aperture, with the centre at centre_x, centre_y. Sums of the differences' sizes
// may not exceed 65535. Both blocks live on and are freed by free_aperture. Host's thread.
void make_aperture(const int16_t* weights, int width, int height, int centre_x, int centre_y, float unit,
                   Aperture* aperture);
void free_aperture(Aperture* aperture);

struct circles_table;

// What is summed, and where it goes. Rows are pitch samples apart, as those of a field are.
struct ApertureSums {
    const Aperture* aperture;
    const FixPixel* source;
    FixPixel* dest;  // may be the source
    int width, height;
    ptrdiff_t pitch;
    int edge_x, edge_y;              // ConvolveEdge
    const circles_table* weighed;    // the sum is divided by the weights inside the picture by this table; null: not
    float scale;                     // of the sum, in units of 1.0; used without a table
    float* inner_inverse = nullptr;  // of make_inner_inverse; may be null
};

// What sums of the rows that are no aperture's reach from the first and the last one are multiplied by, [width], from
// frame_malloc; null: there are none, or there is no table.
float* make_inner_inverse(const ApertureSums& sums);

// Forked over rows; host's thread, outside forks. Uses the long image. Rounds to nearest. A user's abort leaves dest
// unfinished.
void sum_aperture(const ApertureSums& sums);

// The last step alone, for n sums of row y from column x on that were made elsewhere. Any task.
void divide_aperture_sums(const ApertureSums& sums, int x, int y, const float* of_samples, int n);

}  // namespace velloran
