// Thresholds that prepare planes for glows. In place; host's thread, outside forks; the work is forked.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// plane[i] = (plane[i] - threshold) * gain where plane[i] is above threshold and above 0, else 0. A threshold of 0
// leaves the plane as it is.
void threshold_images_1(FixPixel* plane, const int32_t* thresholds, int32_t gain, int count);

// Three planes together, so that the hue stays: with e the sum of what the channels have above their thresholds and s
// the sum of those above 0, each channel times e * gain / s; all 0 where e or s is. Does nothing if all thresholds are
// 0.
void threshold_images_3(FixPixel* const* planes, const int32_t* thresholds, int32_t gain, int count);

}  // namespace velloran
