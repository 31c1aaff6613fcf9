// Image functions that draw shapes. Each fills its node's planes on the tasks of the host. Host's thread, no fork under
// way. A user's abort leaves the planes unfinished.
#pragma once

#include "records/node.h"

namespace velloran {

// type, center, size, points, pointiness, roundness, swirl, rotate, color
void image_draw_shape(Node* node);
// boxes, line_width, center, size, z_dist, latitude, swing, roll, tele_lens_width, major_line_spacing, major_line_width
void image_draw_grid(Node* node);

}  // namespace velloran
