// The hump that solid noise and spots are made of, by squared distance.
#pragma once

#include <array>
#include <cstdint>

namespace velloran {

constexpr int radial_kernel_size = 4608;

struct RadialKernel {
    // Entry i, with r the square root of i / 4608: 1 - 2 r^2, from r = 1/2 on 2 (1 - r)^2; 4096 is 1.0.
    std::array<int32_t, radial_kernel_size> weights;
    // From this squared distance on there is nothing; a squared distance d has entry d / 2. Radius 1 is about 1.5
    // lattice cells.
    int32_t limit;
};
// Made when the library is loaded.
extern const RadialKernel radial_kernel;

}  // namespace velloran
