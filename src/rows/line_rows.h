// Rows between planes (16-bit samples) and lines (32-bit samples).
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

struct LineRows {
    void (*samples_to_line)(const FixPixel* in, int32_t* out, int n);
    // Held to -limit .. limit.
    void (*line_to_samples)(const int32_t* in, FixPixel* out, int n, int limit);
    // out = (a + b) >> 1; out may be a.
    void (*average)(const int32_t* a, const int32_t* b, int32_t* out, int n);
};

const LineRows& line_rows();

}  // namespace velloran
