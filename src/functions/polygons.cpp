// Shapes and grids drawn by their outlines.
#include "functions/rows.h"

#include "operators/polygons/polygon_functions.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name          category        cost wt image     flags run aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {193, "draw_grid",  category_other, 2,   0, "-1/1/0", "nc", "", "1,0", image_draw_grid,
      "boxes:p, line_width:p, center:p, size:p, z_dist:p, latitude:p, swing:p, roll:p, tele_lens_width:p, "
      "major_line_spacing:p, major_line_width:p",
      "1<22221111111", "a grid of lines on a plane in space"},
    {202, "draw_shape", category_other, 1,   0, "0/1/0",  "nc", "", "1,0", image_draw_shape,
      "type:p, center:p, size:p, points:p, pointiness:p, roundness:p, swirl:p, rotate:p, color:p",
      "1<122111121 3<122111123 4<122111124", "a polygon or star, softly filled"},
};
// clang-format on

}  // namespace

const FunRows polygons_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
