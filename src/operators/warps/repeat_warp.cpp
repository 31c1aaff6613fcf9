// Several look-ups along the way between two places, added up.
#include "operators/warps/step_warps.h"
#include "operators/warps/warp_functions.h"
#include "support/memory.h"

namespace velloran {
namespace {

enum RepeatWarpArg : int { arg_image, arg_from_coords, arg_to_coords };
constexpr StepArgs plain_args = {arg_from_coords, arg_to_coords, -1, -1, 4, 5};
constexpr int plain_brightness = 3;
constexpr StepArgs filter_args = {arg_from_coords, arg_to_coords, 3, 4, 6, 7};
constexpr int filter_brightness = 5;

void repeat_warp(Node* node, const StepArgs& args, int arg_ends_brightness) {
    if (!warp_mipmap(node, args.wrap, args.from_levels >= 0)) return;
    const int count = warp_steps(node, args.steps);
    WarpStep* const steps = make_warp_steps(node, args, count);
    const RampEnds ramp = ramp_ends(node, arg_ends_brightness);
    for (int k = 0; k < count; ++k) {
        const float weight = (ramp.start + (ramp.end - ramp.start) * steps[k].t) * fix_to_float_scale;
        std::fill_n(steps[k].weights, 4, weight / static_cast<float>(count));
    }
    add_warp_steps(node, args, steps, count);
    frame_free(steps);
}

}  // namespace

// The mean of steps look-ups, evenly spaced from from_coords to to_coords. Their weights ramp from one end to the other
// by ends_brightness, with a mean of 1.
void image_repeat_warp(Node* node) { repeat_warp(node, plain_args, plain_brightness); }

// The same in levels of the mipmap that run from from_levels to to_levels.
void image_repeat_warp_filter(Node* node) { repeat_warp(node, filter_args, filter_brightness); }

}  // namespace velloran
