// Row functions of glows and glints. n counts samples; rows do not overlap unless they are the same.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// Light that runs on along a line: from sample to sample a part of it is left. Beside the light that fades from the
// start there may be some that swells first: what has been left so four times over.
constexpr int arm_stages = 4;
struct ArmKernel {
    float decay, gain;              // what is left after a sample, and how much of it shows
    float swell_decay, swell_gain;  // of the light that swells; gain 0: none
};

struct GlowRows {
    // p = p * scale + light, held to the range of a sample
    void (*add_light)(FixPixel* p, const FixPixel* light, int32_t scale, int n);
    // p = p * scale + sum * brightness
    void (*add_sum)(FixPixel* p, const float* sum, int32_t scale, float brightness, int n);
    // A step of so many lines side by side: the light of the lines before, carried[stage * pitch + i], takes in
    // light[i]. With own the sample itself counts in the sum, without it what has come to it from elsewhere.
    void (*step)(const FixPixel* light, float* sum, float* carried, int pitch, const ArmKernel& kernel, bool own,
                 int n);
    // Both ways along one row.
    void (*along)(const FixPixel* light, float* sum, const ArmKernel& kernel, int n);
};
const GlowRows& glow_rows();

}  // namespace velloran
