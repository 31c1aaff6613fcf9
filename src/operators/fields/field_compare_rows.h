// How different the fields of two frames are, for one pair of lines.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// One channel of a pair of lines in one frame: the even line, the odd line above it, and the odd line below it, which
// together give the odd field at the even line's place.
struct LinePair {
    const FixPixel *even, *odd, *odd_below;
};

// Which two fields of the frames 1 and 2 a sum compares.
enum FieldSum : int { sum_e1_o1, sum_e1_e2, sum_e1_o2, sum_o1_e2, sum_o1_o2, sum_e2_o2, n_field_sums };

struct FieldCompareRows {
    // Adds the squares of the differences of blocks of four samples; blocks counts them. The sums are exact, so they
    // are the same in any order.
    void (*add_differences)(const LinePair& one, const LinePair& two, int blocks, uint64_t* sums);
};
const FieldCompareRows& field_compare_rows();

}  // namespace velloran
