// Sine and cosine in fixed point, of angles in a circle of 4096: rounded, exact at the quarters.
#pragma once

#include "records/fix_pixel.h"

#include <cmath>
#include <cstdint>

namespace velloran {

inline int32_t fix_sin(int32_t angle) {
    return static_cast<int32_t>(std::lround(4096 * std::sin((angle & 4095) * (3.14159265358979323846 / 2048))));
}
inline int32_t fix_cos(int32_t angle) { return fix_sin(angle + 1024); }

}  // namespace velloran
