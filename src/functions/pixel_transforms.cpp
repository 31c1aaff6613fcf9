// Transforms of coordinates.
#include "functions/rows.h"

#include "compile/pass_rules.h"
#include "operators/pixel/pixel_funs.h"
#include "operators/pixel/pixel_rules.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name                 category          cost wt image flags run aux function
    //   "arguments", "signatures", "meaning", {rules}
    {94,  "rotate",            category_math,    3,   1, "",   "",   "", "", pixel_rotate,
      "vector, revolutions, center", "2<212", "position turned around center", {.pass = pass_unmoved}},
    {95,  "vortex",            category_math,    3,   1, "",   "",   "", "", pixel_vortex,
      "vector:c, revolutions:p, center:p, start_rad:p, rotate_offset:p", "2<21211",
      "position turned around center, less with distance"},
    {96,  "axis_rotate",       category_math,    2,   1, "",   "",   "", "", pixel_axis_rotate,
      "value, axis, revolutions", "3<331 3<321 3<231 3<221 3<131 3<121", "colour or 3-vector turned around an axis"},
    {97,  "shear",             category_math,    2,   1, "",   "",   "", "", pixel_shear,
      "vector, shear", "2<22", "position sheared along x and y", {.pass = pass_unmoved}},
    {98,  "perspective",       category_math,    2,   1, "",   "",   "", "", pixel_perspective,
      "vector:c, distance:p, latitude:p, lens_angle:p", "2<2111", "position on a plane seen at a slant"},
    {99,  "perspective_alpha", category_math,    2,   1, "",   "",   "", "", pixel_perspective_alpha,
      "vector:c, distance:p, latitude:p, lens_angle:p", "1<2111",
      "1 on the plane that perspective shows, 0 beyond its horizon"},
    {100, "tilt",              category_math,    2,   1, "",   "",   "", "", pixel_tilt,
      "vector:c, tilt:p, lens_angle:p, shift:p, rotate:p, scale:p, shear:p, wrap:p", "2<22121222",
      "position on a plane tilted before a lens"},
    {101, "tilt_alpha",        category_math,    2,   1, "",   "",   "", "", pixel_tilt_alpha,
      "vector:c, tilt:p, lens_angle:p", "1<221", "1 on the plane that tilt shows, 0 beyond its horizon"},
    {102, "corner_pin",        category_math,    2,   1, "",   "",   "", "", pixel_corner_pin,
      "vector:c, corner1:p, corner2:p, corner3:p, corner4:p, wrap:p, bulge:p", "2<2222222",
      "projective map of the frame onto four corners", {.pass = pass_corner_pin}},
    {155, "kaleido",           category_kaleido, 4,   1, "",   "",   "", "", pixel_kaleido,
      "coords:c, scale", "2<21", "coordinates mirrored in triangles"},
    {156, "kaleido_diamonds",  category_kaleido, 4,   1, "",   "",   "", "", pixel_kaleido_diamonds,
      "coords:c, scale", "2<21", "coordinates mirrored in diamonds"},
    {157, "kaleido_oct",       category_kaleido, 4,   1, "",   "",   "", "", pixel_kaleido_oct,
      "coords:c, scale", "2<21", "coordinates mirrored in eight sectors"},
};
// clang-format on

}  // namespace

const FunRows pixel_transforms_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
