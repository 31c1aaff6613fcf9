// The lens out of focus as a convolution: apertures of any shape, with a hole, a rim and grain, and a size of its own
// for each channel.
//
// Host's thread, outside forks.
#pragma once

#include "operators/blur/filter_frame.h"
#include "operators/convolve/convolution.h"
#include "operators/defocus/lens_shape.h"
#include "records/fix_pixel.h"

namespace velloran {

// In samples. The ring is a hole of the same shape in the aperture's middle; it is held to most of the radius.
struct LensRadii {
    float x, y, ring_x, ring_y;
};

struct LensDefocus {
    LensSettings lens;
    int n_kernels = 1;  // 1: all channels are spread alike
    LensRadii radii[max_kernels] = {};
    int edge_mode = 0;  // ConvolveEdge
    float gamma = 1.0f;
    float boost = 0.0f, boost_threshold = 1.0f;
    float scales[max_kernels] = {1, 1, 1, 1};  // brightness of each channel
};

// Sets the kernel of a lens for the planes of the frame, unless it is at hand. A radius is held to the frame.
void set_lens_kernel(fft_info_t* info, const LensDefocus& lens, const FilterFrame& frame);

// n_dests planes from n_sources, which are the first of them; a missing source is the first one.
void defocus_image_advanced(FixPixel* const* planes, int n_sources, int n_dests, const LensDefocus& lens,
                            const FilterFrame& frame, fft_info_t* info);

// The apertures themselves in the middle of the frame, brightest at 1.0, one a plane.
void show_lens_shape(FixPixel* const* planes, int n, const LensDefocus& lens, const FilterFrame& frame);

}  // namespace velloran
