// Image functions that read frames of other times. The host gives the frames, each once however many pixels want it; a
// frame that it does not give fails the frame in hand, a user's abort leaves the planes unfinished. Host's thread, no
// fork under way.
#pragma once

#include "records/node.h"

namespace velloran {

// clip, frame, interp: the frame may vary with the pixel. get_frame is meant for one frame, and warns of several.
void image_time_warp(Node* node);
void image_get_frame(Node* node);

}  // namespace velloran
