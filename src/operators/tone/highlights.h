// Raising highlights before a spread, so that bright points stay bright in what they spread into. Host's thread,
// outside forks; the work is forked.
#pragma once

#include "records/fix_pixel.h"

namespace velloran {

// With x a sample over top: above the threshold x becomes threshold + (x - threshold) * g, where g lets 1.0 become
// boost_highlights_maxval. No sample exceeds 32766. top is the value that 1.0 has in the planes, as 1.0.
void boost_highlights(FixPixel* const* planes, int vlen, float amount, float threshold, float top, int n);

// What 1.0 becomes.
float boost_highlights_maxval(float amount, float threshold);

}  // namespace velloran
