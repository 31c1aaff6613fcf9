// Image function of glares: a small flare on every bright part. Host's thread, no fork under way; a user's abort leaves
// the planes unfinished. A frame without a glare to draw fails.
#pragma once

#include "records/node.h"

namespace velloran {

// image, threshold, pre_blur, size, brightness, saturation, type, convolve?, rotate, rays_num_scale, rays_length,
// rays_thickness, res_factor
void image_glare(Node* node);

}  // namespace velloran
