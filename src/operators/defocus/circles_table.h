// The aperture of a plain defocus as a table of weights: how much of each cell around the centre lies inside a disc or
// a polygon. Only the quarter above and to the right of the centre is stored; the aperture is symmetrical to both axes.
//
// Host's thread, outside forks.
#pragma once

#include <cstdint>

namespace velloran {

enum DefocusShape : int {
    defocus_circle = 0,
    defocus_hexagon_flat = 1,   // with a flat top
    defocus_hexagon_point = 2,  // on its point
    defocus_octagon_flat = 3,
    defocus_octagon_point = 4,  // turned by a sixteenth
    defocus_shapes = 5
};

struct circles_table {
    float key_rx, key_ry, key_blur;  // what built it
    int32_t key_subpixel, key_max_w, key_max_h, key_shape;
    int32_t table_w, table_h;  // columns from the centre to the right, rows from the centre up
    uint16_t* row_span;        // [table_h][table_w] weights, 4096 is full
    int32_t* row_width;        // [table_h] columns whose weight is not 0
    float* row_weight;         // [table_h][table_w] sums of the weights, 1.0 is full, over the rows and columns up to
                               // each cell, those of the centre halved: see circles_table_weight
    int32_t weight_step;       // all weights are multiples of it
};

// Factors of the radii that give every shape the disc's area.
struct ShapeFactors {
    float x, y;
};
ShapeFactors defocus_shape_factors(int shape);

// Makes the table of an aperture, unless it is at hand: true, or false after a message for a shape that there is not.
//   rx, ry        radii in samples before the shape's factors, 0 and more; the aperture reaches half a sample farther,
//                 so that 0 is the sample itself
//   blur          width of a soft edge in samples, 0 none
//   subpixel      0: cells are in or out by their centres; else weighed by how much of them is inside
//   max_w, max_h  size of the frame; the table has at most half of it
bool set_circles_table(float rx, float ry, float blur, int subpixel, int max_w, int max_h, int shape);
const circles_table& get_circles_table();

// Total weight within `left` columns to the left of the centre, `right` to the right, `down` rows and `up` rows, in
// full cells. Any task.
float circles_table_weight(const circles_table& table, int left, int right, int down, int up);

// Tables built so far, for tests.
extern int circles_tables_built;

}  // namespace velloran
