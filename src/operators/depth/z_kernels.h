// Kernels of layers, kept from frame to frame. Host's thread, outside forks.
#pragma once

#include "operators/convolve/convolution.h"

namespace velloran {

// The record of a layer by its index. Beyond so many layers one is shared, whose kernels are made anew each time.
constexpr int kept_z_kernels = 64;
fft_info_t* z_kernel_record(int layer);

// Linear light around a run over the layers: power before on the first n planes, in place, its inverse times scale
// after. A gamma of 1 or of no sense is none.
void to_linear_light(FixPixel* const* planes, int n, float gamma, int samples);
void from_linear_light(FixPixel* const* planes, int n, float gamma, float scale, int width, int height);

}  // namespace velloran
