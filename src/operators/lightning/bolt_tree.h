// Trees of bolts: end points that join, two by two, on their way to a target, as discharges do. Host's thread.
//
// Places are in halves of the frame's width, y up, in round space.
#pragma once

namespace velloran {

struct BoltNodeTree {
    float x, y;
    float ratio;        // end points that hang on it
    float start_ratio;  // the same, of its root's
    BoltNodeTree *parent, *child0, *child1, *sibling;
    float sibling_distance;  // squared
    bool done;               // it has no partner left
};

struct BoltTarget {
    float x, y;
};

// Whether two bolts may join at a place.
struct BoltGround {
    bool (*open)(const void* context, float x, float y);
    const void* context;
};

// Joins the first n of nodes, of which there is room for 2 n; the answer is how many are in use. ground may be null. A
// user's abort ends it early.
int build_bolt_tree(BoltNodeTree* nodes, int n, const BoltTarget& target, const BoltGround* ground = nullptr);

// Moves the joints below a node towards it, target being where the node itself hangs.
void set_bolt_node_tree_positions(BoltNodeTree* node, const BoltTarget& target);
void set_bolt_node_tree_start_ratios(BoltNodeTree* node);

}  // namespace velloran
