// Warps that add up several look-ups between two places of each pixel: what repeat_warp and chroma_warp share.
#pragma once

#include "operators/warps/warp_lines.h"
#include "records/node.h"

namespace velloran {

// Which arguments say what.
struct StepArgs {
    int from_coords, to_coords;
    int from_levels, to_levels;  // -1: level 0 alone
    int wrap, steps;
};

// One look-up: where between the two places, how coarse, and its weight in each channel.
struct WarpStep {
    float t;
    int32_t x_level, y_level;  // 12 fraction bits
    float weights[4];
};

// How many steps an argument asks for. More than these do not show.
constexpr int most_warp_steps = 4096;
inline int warp_steps(const Node* node, int arg) {
    return std::clamp(warp_arg(node, arg) >> fix_bits, 2, most_warp_steps);
}

// Evenly spaced steps of a node, without weights: frame memory, freed with frame_free.
WarpStep* make_warp_steps(const Node* node, const StepArgs& args, int count);

// Sums of all steps into the node's planes.
void add_warp_steps(Node* node, const StepArgs& args, const WarpStep* steps, int count);

}  // namespace velloran
