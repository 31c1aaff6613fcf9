// The edge of an object, as points that bolts can stand on. Host's thread.
#pragma once

#include "operators/lightning/bolts.h"

namespace velloran {

struct EdgePoint {
    float x, y;          // places of bolts
    float out_x, out_y;  // away from the object, of length 1
};

struct ObjectEdge {
    EdgePoint* points;  // of the frame's memory
    int count;
    float left, right, bottom, top;  // around the points
};

// The samples of a matte at threshold and above that have a neighbour below it; where a mask is given, those that are
// white enough in it, too. Of a long edge every so many.
ObjectEdge find_object_edge(const BoltCanvas& canvas, const FixPixel* matte, const FixPixel* mask, int32_t threshold);

// The point nearest to a place that is drawn for a number; evenness 1 spreads these places as far as it goes, 0 leaves
// them to chance. Null if the edge has no point.
const EdgePoint* pick_edge_point(const ObjectEdge& edge, const BoltLook& look, uint32_t number, float evenness);

}  // namespace velloran
