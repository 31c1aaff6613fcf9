// Directional blur: every channel spread along a line of its own, by convolution.
#pragma once

#include "operators/convolve/convolve.h"
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
    float lengths[4];  // of the whole line, in samples, per channel
    float offsets[4];  // of its middle along the line, in half lengths, per channel
    float gains[4];    // per channel
    float angle;       // turns, counter-clockwise from the x axis
    float aspect;      // rows of a unit of length upwards: one over the pixels' aspect
    float bias;        // -1 .. 1: weight moved to the line's first or second half; 0 even
    int filter;        // LineFilter
    int edge_mode;     // ConvolveEdge
};

// dest[c] = source[c] spread along its line. vlen planes of width x height; source and dest may be the same.
void dir_blur_images(const FixPixel* const* source, FixPixel* const* dest, int vlen, const DirBlur& blur, int width,
                     int height);
// Whether all channels are spread alike, so that one kernel does for them.
bool dir_blur_alike(const DirBlur& blur, int vlen);
// Channel alone, with the kernels of all; vlen 1: one kernel for all. any_offset tells whether an offset is not 0.
void dir_blur_image(const FixPixel* source, FixPixel* dest, int vlen, int channel, bool any_offset, const DirBlur& blur,
                    int width, int height);

// Weight of a line's filter at -1 .. 1 along it.
float line_filter_weight(int filter, float bias, float at);

}  // namespace velloran
