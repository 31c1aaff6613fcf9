// Kernels from pictures: a cropped, scaled part of some planes.
#pragma once

#include "operators/blur/filter_frame.h"
#include "operators/convolve/convolution.h"
#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

struct KernelPicture {
    const FixPixel* const* planes;
    int n_planes, width, height;
    float x0, y0, x1, y1;      // opposite corners of the part to take, in samples; no area: the whole picture
    float centre_x, centre_y;  // in samples
    float scale_x, scale_y;    // of the part's size; 1 or what is not above 0 keeps it
    int color;                 // 1: a kernel for each channel; 0: one, of the luminance
    int autocenter;            // 1: the centroid of the luminance is the centre
};

// Sets corners and centre from pixels of the frame: corners from its left lower one, the centre from its middle.
struct FramePoint {
    float x, y;
};
void place_kernel_picture(KernelPicture* picture, const FilterFrame& frame, FramePoint corner_1, FramePoint corner_2,
                          FramePoint centre);

// What a kernel is divided by, of the number in a text: 0 to 3 as ConvolveAutoscale from the largest sum on, others the
// area.
constexpr int kernel_autoscale(int type) { return type >= 0 && type <= 3 ? type + 2 : autoscale_area; }

// A number for the samples of the part: a changed picture has another, whatever lies outside of the part. Any thread.
uint64_t kernel_picture_hash(const KernelPicture& picture);

// Sets the kernel. Scaling averages the samples that a kernel's sample covers, and interpolates where it covers less
// than one. Host's thread.
void set_kernel_picture(fft_info_t* info, const KernelPicture& picture, int autoscale, int edge_x, int edge_y,
                        const char* key);

}  // namespace velloran
