// Kernels of layers, kept from frame to frame. Host's thread, outside forks.
#pragma once

#include "operators/convolve/convolution.h"

#include <cstddef>

namespace velloran {

// The record of a layer by its index. Where kernels together take more memory than is kept, those of the last layers
// share one record and are made anew each time.
fft_info_t* z_kernel_record(int layer);
extern size_t most_z_kernel_bytes;

// Linear light around a run over the layers: power before on the first n planes, in place, its inverse times scale
// after. A gamma of 1 or of no sense is none.
void to_linear_light(FixPixel* const* planes, int n, float gamma, int samples);
void from_linear_light(FixPixel* const* planes, int n, float gamma, float scale, int width, int height);

}  // namespace velloran
