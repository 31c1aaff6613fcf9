// Lines scratched along the film. A scratch belongs to the film and not to the frame: it runs from one frame into the
// next, and a long one stays for as many frames as it is long.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// One set of scratches.
struct ScratchParams {
    uint32_t seed;
    float n_scratches;        // of a number that is not whole the last one is faint
    float length;             // frame heights, on average
    float width, vary_width;  // pixels of a frame 1920 wide, and the width of the range around it
    float luma[3];            // light of a scratch
    float alpha, vary_alpha;  // factor of its light, and the width of the range around it
    float sputter;            // 0 whole, 1 hardly anything left
    float distance, speed;    // how far it wanders, in frame widths, and changes in a frame
    float taper;              // 0 blunt ends, 1 it narrows from its middle on
    float dark;               // 1: light is taken away
};

// Draws into the frame's planes. Of 1 or 2 channels each gets the brightness of luma, of 3 or 4 the first three their
// own part; the fourth, alpha, stays. Host's thread, no fork under way. A user's abort leaves the planes unfinished.
void render_scratches(FixPixel* const* images, int channels, const ScratchParams& params);

}  // namespace velloran
