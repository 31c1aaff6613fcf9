// Row functions of polygon coverage.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

struct CoverageRows {
    // Signed areas to coverage, 0 to 1, in place: the size of the running sum.
    void (*finish)(float* row, int n);
    // out = (trunc(coverage * 4096) * color) >> 12; color lies within +-32767.
    void (*paint)(const float* coverage, FixPixel* out, int32_t color, int n);
};
const CoverageRows& coverage_rows();

}  // namespace velloran
