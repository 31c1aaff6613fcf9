// Stars: light that runs out from every sample along four lines, fading as it goes. What a line of light sends out adds
// up, so that a larger light has brighter arms, at any resolution alike. Host's thread, outside forks; the work is
// forked.
#pragma once

#include "operators/blur/filter_frame.h"
#include "operators/glow/glow_rows.h"

namespace velloran {

enum StarArm : int { arm_level, arm_upright, arm_rising, arm_falling, n_star_arms };

// sum (of the frame's size) += the arm of light, which is another plane. A user's abort leaves it unfinished.
void add_star_arm(const FixPixel* light, float* sum, StarArm arm, const ArmKernel& kernel, const FilterFrame& frame);

// The kernel of an arm that has faded to a fiftieth at so many samples, of the given brightness. swell: how much of it,
// from 0 to 1, swells to its brightest at middle, in samples, instead of fading from the start.
ArmKernel make_arm_kernel(StarArm arm, float length, float brightness, float swell, float middle,
                          const FilterFrame& frame);

}  // namespace velloran
