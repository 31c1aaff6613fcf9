// Directional blur: every channel spread along a line of its own, by convolution.
#pragma once

#include "operators/blur/filter_frame.h"
#include "operators/convolve/convolution.h"
#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// How the weight runs along the line: t is 0 in the middle and 1 at the ends.
enum LineFilter : int {
    line_constant = 1,  // also any other number
    line_tent = 2,      // 1 - t
    line_bell = 3       // 1 - 2 t^2, from the half on 2 (t - 1)^2
};

struct DirBlur {
    int n_channels;    // 1 to 4
    float lengths[4];  // of the whole line, in samples, per channel
    float offsets[4];  // of its middle along the line, in half lengths, per channel
    float gains[4];    // per channel
    float angle;       // turns, counter-clockwise from the x axis
    float aspect;      // rows of a unit of length upwards: one over the pixels' aspect
    float bias;        // -1 .. 1: weight moved to the line's first or second half; 0 even
    int filter;        // LineFilter
    int edge_mode;     // ConvolveEdge
};

// dest = source spread along the channel's line; they may be the same.
void dir_blur_image(const FixPixel* source, FixPixel* dest, int channel, const DirBlur& blur, const FilterFrame& frame);
// Whether all channels are spread alike, so that one kernel does for them.
bool dir_blur_alike(const DirBlur& blur);

// Weight of a line's filter at -1 .. 1 along it.
float line_filter_weight(int filter, float bias, float at);

}  // namespace velloran
