// Row functions of a grid on a plane in space.
#pragma once

#include "records/fix_pixel.h"

namespace velloran {

// The lines across one axis of the grid, with the axis counted in boxes and line 0 at 0.
struct GridLines {
    float minor_width, major_width;  // boxes; the first at most 1
    float spacing;                   // every how many lines one has major_width; 0: none
    float first, last;               // the grid's ends
};

// A row of the frame's samples. Place i is seen at ((u, v) + i (u_x, v_x)) / (depth + i depth_x) on the grid; all in
// boxes. _x and _y: what changes for a sample across, and up.
struct GridRow {
    float u, v, depth;
    float u_x, v_x, depth_x, u_y, v_y, depth_y;
    GridLines across_u, across_v;
};

struct GridRows {
    // The share of each sample that lines take, 0 to 4096, from place first on.
    void (*draw)(const GridRow& row, int first, FixPixel* out, int n);
};
const GridRows& grid_rows();

}  // namespace velloran
