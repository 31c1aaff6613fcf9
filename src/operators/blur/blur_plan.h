// How a radius is divided among the passes of a repeated box filter, and what each pass does to the scale of the
// accumulators.
//
// A pass sums 2r + 1 samples and is not normalised: the value that a sample of 1.0 has in the accumulators, the scale,
// grows by the width of the box. Before a pass that would overfill them the accumulators are shifted right.
#pragma once

#include <bit>
#include <cstdint>

namespace velloran {

constexpr int max_blur_passes = 3;
constexpr int long_image_bits = 30;           // bits that an accumulator of the long image may fill
constexpr int short_plan_bits = 16;           // bits of the widths' product in the plans of the variants
constexpr int32_t max_blur_amount = 0x40000;  // 64.0

struct blur_plan {
    int32_t lo_radius[max_blur_passes];  // box radius of each pass, lower bound
    int32_t hi_radius[max_blur_passes];  // the same, upper bound; differs only with subpixel
    int32_t pre_shift[max_blur_passes];  // right shift of the accumulators before the pass
    float lo_weight[max_blur_passes];    // of the lower radius's result, where the bounds differ
    float hi_weight;                     // of the upper radius's result: the fraction of the radius
};

// Binary digits of a positive integer.
constexpr int bit_count(uint32_t n) { return static_cast<int>(std::bit_width(n)); }

constexpr int clamp_passes(int passes) { return passes < 1 ? 1 : passes > max_blur_passes ? max_blur_passes : passes; }

// Divides radius r among passes 0 .. passes - 1; what does not divide goes to the later ones. Each is held to
// size / 2 - 1, so that a box never reaches over both ends of a line of size samples; none is negative.
void split_radius(int32_t r, int passes, int size, int32_t* radii);

// Plan for a radius (4096 is one sample) along lines of size samples. scale goes in as the present scale of the
// accumulators and comes out as the one after all passes. bits: what accumulator scales may fill.
blur_plan make_blur_plan(int32_t radius, int size, int passes, bool subpixel, int bits, int32_t* scale);

}  // namespace velloran
