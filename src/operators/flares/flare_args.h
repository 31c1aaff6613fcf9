// What the functions of lens flares read of their arguments.
#pragma once

#include "operators/flares/draw_flare.h"
#include "records/node.h"

namespace velloran {

// Where a function has its arguments; a number of -1 stands for one that it has not.
struct FlareArgs {
    int type, pivot, gamma, saturation, size, rotate, hotspot_color, rays_color, other_color;
};

// All but the hotspot and the scales of rays and reflections.
void read_flare_args(const Node* node, const FlareArgs& at, FlareSettings* settings);
// The flare that argument i names; null after the frame has been failed.
const LensFlare* read_flare_type(const Node* node, int i);

void clear_planes(FixPixel* const* planes);

// Three planes for a flare that is to be masked: the node's own hold the mask meanwhile.
struct MaskedFlare {
    FixPixel* planes[3];
};
// Takes the value of node->args[mask] into the node's planes, and gives black planes of the frame's memory.
MaskedFlare begin_masked_flare(Node* node, int mask);
// Leaves the product in the node's planes.
void finish_masked_flare(Node* node, const MaskedFlare& flare);

}  // namespace velloran
