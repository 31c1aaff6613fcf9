// Image functions of dirt on film. Each evaluates its image argument into its node's planes and draws there. Host's
// thread, no fork under way; a user's abort leaves the planes unfinished.
#pragma once

#include "records/node.h"

namespace velloran {

// image, seed, color1, color2, vary_color, vary_brightness, opacity, vary_opacity, density, vary_density, scale,
// vary_scale
void image_stains(Node* node);
void image_dust(Node* node);
// image, seed, color, opacity, max_hairs, frequency, threshold, scale, vary_scale, noise_amp, noise_freq
void image_hairs(Node* node);
// image, seed, n_scratches, length, width, luma, alpha, sputter, x, taper
void image_scratches(Node* node);

}  // namespace velloran
