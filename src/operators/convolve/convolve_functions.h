// Image function of the convolution by a kernel picture. Host's thread, no fork under way; a user's abort leaves the
// planes unfinished.
#pragma once

#include "records/node.h"

namespace velloran {

// image, kernel, kernel_min, kernel_max, kernel_center, kernel_xyscale, gamma, dest_scale, kernel_color_p,
// autocenter_p, edge_type, autoscale_type, threshold, boost_highlights, highlight_threshold
void image_convolve(Node* node);

}  // namespace velloran
