// The kernel of a glare: one flare, drawn in the middle of an image of its own. Host's thread, outside forks.
#pragma once

#include "operators/blur/filter_frame.h"
#include "operators/convolve/convolution.h"
#include "operators/flares/draw_flare.h"

namespace velloran {

struct GlareKernel {
    const LensFlare* flare;
    int type;                // number of the flare, for the kernel's name
    FlareSettings settings;  // all but the places
    float res_factor;        // drawn so many times coarser; below 1 counts as 1
    float aspect;            // height of a sample
};

// Sets the kernel of info, whose crop is set, unless it is at hand. The answer is its width in samples.
int set_glare_kernel(fft_info_t* info, const GlareKernel& kernel, const FilterFrame& frame);

}  // namespace velloran
