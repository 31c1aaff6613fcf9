// Image functions of light that bleeds from bright parts. Each evaluates its image, works in its node's planes on the
// tasks of the host, and leaves the result in the first elnum of them. Host's thread, no fork under way. A user's abort
// leaves the planes unfinished.
//
// Light is what stands above a threshold; three channels keep its hue.
#pragma once

#include "records/node.h"

namespace velloran {

// image, threshold, width_xy, width, brightness, scale_source, subpixel
void image_glow(Node* node);
// image, threshold, pre_blur, size, brightness, ray_sizes, ray_brightnesses, scale_source
void image_glint(Node* node);
// image, threshold, pre_blur, size, brightness, ray_sizes, ray_brightnesses, color_spread, scale_source
void image_rainbow_glint(Node* node);

// What the compiler asks of glow; see compile/need_rect.h.
void need_rect_glow(Node* node);

}  // namespace velloran
