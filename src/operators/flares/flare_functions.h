// Image functions of lens flares. Each draws into the first three planes of its node. Host's thread, no fork under way;
// a user's abort leaves the planes unfinished. A frame without a flare to draw fails.
#pragma once

#include "records/node.h"

namespace velloran {

// type, hotspot, pivot, gamma, saturation, scale_size, rotate, hotspot_color, rays_color, other_color,
// scale_rays_number, scale_rays_width, scale_rays_length, scale_other_width
void image_lens_flare(Node* node);
// mask, and the same
void image_lens_flare_mask(Node* node);
// image, pre_blur, type, pivot, gamma, saturation, scale_size, rotate, hotspot_color, rays_color, other_color, shift,
// max_flares, scale_rays
void image_lens_flare_auto(Node* node);
// image, mask, and the same
void image_lens_flare_auto_mask(Node* node);

}  // namespace velloran
