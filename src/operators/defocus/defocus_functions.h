// Image functions of the lens out of focus. Each evaluates its own image argument, works in its node's planes on the
// tasks of the host, and leaves the result in the first elnum of them. Host's thread, no fork under way. A user's abort
// leaves the planes unfinished.
//
// A radius of 1.0 is one eighth of the frame's width; angles are in turns, counter-clockwise.
#pragma once

#include "records/node.h"

namespace velloran {

// image, radius, gamma, scale, subpixel, shape
void image_defocus(Node* node);

// What the compiler asks of it; see compile/need_rect.h.
void need_rect_defocus(Node* node);

}  // namespace velloran
