// The frame in the coordinates of pixel functions: -1 to 1 across, -r to r up.
#pragma once

namespace velloran {

struct FrameCoords {
    float width, height;  // pixels
    float half_height;    // r
};

// Of the frame in hand; 1 by 1 while there is none, as when a text is first compiled.
FrameCoords frame_coords();

}  // namespace velloran
