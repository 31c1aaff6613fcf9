// Row functions of stamps.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// A row of a stamp as a picture sees it: place first + i * step between its samples, 32 fraction bits, for sample i of
// the picture. Both rows, and the samples to both sides of every place, are there.
struct CoverRow {
    const FixPixel *near, *far;  // rows around the line
    int32_t far_weight;          // 0 .. 4095
    int64_t first, step;
    int32_t opacity;  // 0 .. 4096
};

struct CompRows {
    // out: how much is covered, 0 .. 4096
    void (*cover)(const CoverRow& row, int32_t* out, int n);
    // p goes as far towards color as is covered. |color| up to 32767
    void (*comp)(FixPixel* p, const int32_t* covered, int32_t color, int n);
};
const CompRows& comp_rows();

}  // namespace velloran
