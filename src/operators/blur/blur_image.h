// The blur: a repeated box filter on 32-bit accumulators. Its cost does not depend on the radius, and three passes come
// close to a Gaussian (Wells, "Efficient Synthesis of Gaussian Filters by Cascaded Uniform Filters", PAMI 8(2), 1986).
//
// Planes have a row pitch of the frame's width. All functions: host's thread, outside forks; the work is forked. A
// user's abort leaves the result unfinished.
#pragma once

#include "operators/blur/filter_frame.h"
#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// A line beyond its ends.
enum BlurEdge : int { blur_edge_black = 0, blur_edge_mirror = 1 };  // mirrored: the end sample doubled
constexpr int blur_default_edge_mode = blur_edge_mirror;

// Radii and gains are integers scaled by 4096: 4096 is one sample, or 1.0. A box is never wider than the whole frame
// allows, whatever part of it the planes are. On fields the even and the odd rows are blurred apart.
struct BlurSettings {
    int32_t x_radius = 0, y_radius = 0;
    int edge_mode = blur_default_edge_mode;
    int passes = 3;         // 1 to 3; 0 counts as 1 and more as 3
    bool subpixel = false;  // weighs the two nearest whole radii; without it a radius is rounded
    int32_t gain = fix_scale;
};

// The long image as the last blur left it, and the value that a sample of 1.0 has in it; valid until the next user of
// the long image.
extern int32_t* long_image;
extern int32_t long_image_scale;
extern int long_image_width, long_image_height;

// source and dest may be the same plane. Results are held to +-32767.
void blur_image(const FixPixel* source, FixPixel* dest, const BlurSettings& blur, const FilterFrame& frame);

// The part up to the accumulators, which have no gain.
void blur_into_long_image(const FixPixel* source, const BlurSettings& blur, const FilterFrame& frame);

// Multiplies the long image by gain / long_image_scale; afterwards its scale is gain. 0 clears it.
void scale_long_image(int32_t gain);

// Fills a with 1 and filters it, black outside, by n_passes boxes of the given radii; the result, how many samples
// within the line each position's filter took, ends in a. b is scratch; both have n elements.
void fill_edge_weight_table(int32_t* a, int32_t* b, const int32_t* radii, int n_passes, int n);

// For a division by scale that is to be a multiplication by weight and a shift: weight = (numerator << shift) / scale.
void set_shift_and_weight_for_divide(int* shift, int32_t* weight, int32_t numerator, int32_t scale);

// dest[i] = (source[i] * gain) >> 12, held to +-32767. May be in place.
void scale_fix_image(const FixPixel* source, FixPixel* dest, int32_t gain, int width, int height);

}  // namespace velloran
