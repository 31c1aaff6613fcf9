// Spreading an image inside a mask, so that what is masked out neither changes nor bleeds into the rest.
#pragma once

#include "operators/blur/filter_frame.h"
#include "records/node.h"

namespace velloran {

enum SpreadOf : int { of_image, of_mask };

// How planes are spread: in place, by the settings of a channel. The mask is spread like the image, but never made
// brighter. Host's thread, outside forks.
struct MaskedSpread {
    void (*spread)(FixPixel* plane, SpreadOf what, int channel, const void* settings, const FilterFrame& frame);
    const void* settings;
    bool alike;  // all channels
};

// For image functions whose first two arguments are an image and a mask: inside the mask the image is replaced by its
// spread, which takes nothing from outside. The node's planes behind the result hold the mask, how much of the mask
// reaches each pixel, and the channel in hand.
void spread_inside_mask(Node* node, const MaskedSpread& by);

}  // namespace velloran
