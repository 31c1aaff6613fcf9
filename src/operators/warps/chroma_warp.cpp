// Several look-ups along the way between two places, each in its colour of a spectrum.
#include "operators/warps/step_warps.h"
#include "operators/warps/warp_functions.h"
#include "support/memory.h"

#include <cmath>

namespace velloran {
namespace {

enum ChromaWarpArg : int { arg_image, arg_from_coords, arg_to_coords };
struct ChromaArgs {
    StepArgs steps;
    int color1;  // color2, color3, white_balance and brightness follow
};
constexpr ChromaArgs plain_args = {{arg_from_coords, arg_to_coords, -1, -1, 3, 4}, 5};
constexpr ChromaArgs filter_args = {{arg_from_coords, arg_to_coords, 3, 4, 5, 6}, 7};

// Colour of the spectrum at t: the three colours are its beginning, middle and end.
float spectrum(const Node* node, int color1, float t, int channel) {
    const int left = t < 0.5f ? 0 : 1;
    const float part = 2.0f * t - static_cast<float>(left);
    const float a = warp_arg_float(node, color1 + left, channel), b = warp_arg_float(node, color1 + left + 1, channel);
    return std::max(a + (b - a) * part, 0.0f);
}

void set_weights(const Node* node, const ChromaArgs& args, WarpStep* steps, int count) {
    float sums[3] = {};
    for (int k = 0; k < count; ++k)
        for (int c = 0; c < 3; ++c) {
            steps[k].weights[c] = spectrum(node, args.color1, steps[k].t, c);
            sums[c] += steps[k].weights[c];
        }
    // Without white balance the spectrum as a whole is as bright as white.
    const float mean = (sums[0] + sums[1] + sums[2]) / 3.0f;
    const float balance = std::clamp(warp_arg_float(node, args.color1 + 3), 0.0f, 1.0f);
    const float brightness = warp_arg_float(node, args.color1 + 4);
    for (int k = 0; k < count; ++k) {
        for (int c = 0; c < 3; ++c) {
            const float divisor = mean + (sums[c] - mean) * balance;
            steps[k].weights[c] = divisor > 0.0f ? steps[k].weights[c] / divisor * brightness : 0.0f;
        }
        steps[k].weights[3] = 1.0f / static_cast<float>(count);
    }
}

void chroma_warp(Node* node, const ChromaArgs& args) {
    if (!warp_mipmap(node, args.steps.wrap, args.steps.from_levels >= 0)) return;
    const int count = warp_steps(node, args.steps.steps);
    WarpStep* const steps = make_warp_steps(node, args.steps, count);
    set_weights(node, args, steps, count);
    add_warp_steps(node, args.steps, steps, count);
    frame_free(steps);
}

// What the steps make of a picture of one value.
void fold(Node* node, const ChromaArgs& args) {
    const int count = warp_steps(node, args.steps.steps);
    WarpStep* const steps = make_warp_steps(node, args.steps, count);
    set_weights(node, args, steps, count);
    for (int e = 0; e < 4; ++e) {
        float sum = 0;
        for (int k = 0; k < count; ++k) sum += steps[k].weights[e];
        node->vals[e] = static_cast<int32_t>(std::lround(sum * static_cast<float>(warp_arg(node, arg_image, e))));
    }
    frame_free(steps);
}

}  // namespace

// steps look-ups, evenly spaced from from_coords to to_coords, in the colours of a spectrum through color1, color2 and
// color3. white_balance 1 makes the weights of each channel 1 in all, so that white stays white where nothing varies; 0
// keeps the colours as they are, together as bright as white. An alpha is the plain mean.
void image_chroma_warp(Node* node) { chroma_warp(node, plain_args); }

// The same in levels of the mipmap that run from from_levels to to_levels.
void image_chroma_warp_filter(Node* node) { chroma_warp(node, filter_args); }

void fold_chroma_warp(Node* node) { fold(node, plain_args); }
void fold_chroma_warp_filter(Node* node) { fold(node, filter_args); }

}  // namespace velloran
