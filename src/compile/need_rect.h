// Needed regions: how much of each value a part of the frame needs.
//
// A region is a NeedRect: pixels of the full frame, all four edges inclusive, held to -32767 .. 32767. A walk from the
// root downwards unites into each node's region what its users need of it. Host thread only, before a frame's passes.
#pragma once

#include "records/node_fun.h"

#include <cstdint>

namespace velloran {

struct Genotype;
struct NeedRect;

void need_rect_clear(NeedRect* rect);  // nothing needed
void need_rect_set_all(NeedRect* rect);
// x0 .. x1, y0 .. y1, inclusive; empty if either is inverted.
void need_rect_set(NeedRect* rect, int64_t x0, int64_t y0, int64_t x1, int64_t y1);
// Moves the edges inwards by so many pixels; empty if nothing is left.
void need_rect_crop(NeedRect* rect, int64_t left, int64_t right, int64_t down, int64_t up);
// Coordinates times the factors: lower edges are rounded down and upper ones up.
void need_rect_scale(NeedRect* rect, double x, double y);
void need_rect_union(const NeedRect& a, NeedRect* b);      // b takes in a
void need_rect_intersect(const NeedRect& a, NeedRect* b);  // b keeps what lies in a
// Unites rect, widened by dx and dy samples on each side, into target. An empty rect stays empty.
void need_rect_grow(const NeedRect& rect, int64_t dx, int64_t dy, NeedRect* target);

// The node's region, made on first need.
NeedRect* node_need_rect(Node* node);
// The node's region is needed of every argument that varies, from first_arg on.
void default_need_rect(Node* node, int first_arg);

// Clears all regions, gives the root the region root_rect, and lets every function pass its need on to its arguments.
void need_rect_walk(Genotype* genotype, const NeedRect& root_rect);

// Rules of several families; the others stand in the rules file of their operators' family, made of need_reach.h.
void need_rect_plane(Node* node);       // the whole of the first argument
void need_rect_two_planes(Node* node);  // the whole of the first two

}  // namespace velloran
