// Passes as one loop: the tree of a pass is written down as values, planned, and worked by code that loads the samples
// of host frames and planes, keeps everything between in registers, and stores the result. The row kernels work what
// does not lend itself to that; the pictures are the same to the bit.
//
// Not so: coordinates and functions of the place, functions with numbers for the line, fields, steps above 1, host
// LUTs, added noise, effects that keep their output, inputs that do not cover the area, functions with a record of
// their own; and areas too small to be worth looking at.
#pragma once

#include "fused/value_graph.h"
#include "records/node.h"
#include "records/rinfo.h"

namespace velloran {

// What the rows of a pass are. Samples are of the frame's grid, whose step is 1.
struct FusedArea {
    int left, bottom, width, height;
    int base_column, base_row, pitch;  // of planes
};

// Looks at the nodes of eval_nodes, whose last one is the root, or at root alone where there are none. planes: where n
// planes of the result go; null: into dest, a host frame of dest_raster_info. True: run_fused_rows works the pass.
// Host's thread, outside forks.
bool prepare_fused_pass(const Node* root, const FusedArea& area, void* dest, fix_plane* planes, int n_planes);

// Rows first .. first + count - 1 of the area; any task.
void run_fused_rows(int first, int count);

// Of the pass that was prepared last: the range of an element of a node of eval_nodes. For tests.
ValueRange fused_range(int node, int element);

// Of the pass that was prepared last: whether a node of eval_nodes is looked up in a table, in all its elements.
bool fused_table_p(int node);

// VELLORAN_FUSING in the environment: off leaves everything to the row kernels, all fuses areas of any size.
extern int fuse_passes_p;        // 0: off
extern int least_fused_samples;  // of the area; smaller ones are left to the row kernels
extern int n_fused_passes;       // since the start, for tests

}  // namespace velloran
