// What the lightning functions read of their arguments, and share.
#pragma once

#include "operators/lightning/bolts.h"
#include "records/node.h"

namespace velloran {

// The arguments from width_vary on, which all functions have in this order.
enum LookArg : int {
    look_width_vary,
    look_end_pointiness,
    look_start_len,
    look_wrinkle_curve,
    look_branchiness,
    look_branch_ang_len,
    look_seed_phase,
    look_threshold_show
};
// first: the argument width_vary. A wrinkle of one element has no curve.
BoltLook read_bolt_look(const Node* node, int first);

constexpr int most_bolts = 1000;
int read_bolt_count(const Node* node, int i, int e = 0);  // 0 to most_bolts

// Draws the bolts into the node's first plane, over black or over the object, show times as bright, and frees them.
// object may be null.
void finish_bolts(Node* node, BoltStrokes* all, const FixPixel* object, float show);

}  // namespace velloran
