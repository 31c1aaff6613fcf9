// Vectors, positions and directions, colour as a vector, and transforms of coordinates.
#include "functions/rows.h"

#include "operators/pixel/pixel_funs.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    // name                      category        cost  wt    image  flags  pass  run  aux  function
    //   "arguments", "signatures", "meaning"
    { "mag_squared",             category_math,  2,    1,    "",    "",     0 ,  "",  "",  pixel_mag_squared,
      "vector", "1<2 1<3", "square of the length of a vector"},
    { "mag",                     category_math,  2,    1,    "",    "",     0 ,  "",  "",  pixel_mag,
      "vector", "1<2 1<3", "length of a vector"},
    { "normalize",               category_math,  2,    1,    "",    "",     0 ,  "",  "",  pixel_normalize,
      "vector", "2<2 3<3", "vector of length 1 in the same direction"},
    { "screen_to_norm",          category_math,  2,    0,    "",    "",     0 ,  "",  "",  pixel_screen_to_norm,
      "vector:p", "2<2", "position in pixels to coordinates of -1 .. 1"},
    { "screen_to_norm_scale",    category_math,  2,    0,    "",    "",     0 ,  "",  "",  pixel_screen_to_norm_scale,
      "vector:p", "1<1 2<2", "size in pixels to a size in coordinates"},
    { "dot",                     category_math,  2,    1,    "",    "",    'U',  "",  "",  pixel_dot,
      "vector1, vector2", "1<22 1<33 1<44 1<13 1<31", "scalar product"},
    { "cross",                   category_math,  2,    1,    "",    "",    'U',  "",  "",  pixel_cross,
      "vector1, vector2", "1<22 3<33", "cross product"},
    { "dist_squared",            category_math,  2,    1,    "",    "",     0 ,  "",  "",  pixel_dist_squared,
      "arg1, arg2", "1<11 1<22 1<33", "square of the distance of two points"},
    { "dist",                    category_math,  2,    1,    "",    "",     0 ,  "",  "",  pixel_dist,
      "arg1, arg2", "1<11 1<22 1<33", "distance of two points"},
    { "max_element",             category_basic, 1,    1,    "",    "",    'R',  "",  "",  pixel_max_element,
      "vector", "1<1 1<2 1<3 1<4", "the largest element"},
    { "min_element",             category_basic, 1,    1,    "",    "",    'R',  "",  "",  pixel_min_element,
      "vector", "1<1 1<2 1<3 1<4", "the smallest element"},
    { "ave_element",             category_basic, 1,    1,    "",    "",    'R',  "",  "",  pixel_ave_element,
      "vector", "1<1 1<2 1<3 1<4", "the mean of the elements"},
    { "direction",               category_math,  2,    1,    "",    "",     0 ,  "",  "",  pixel_direction,
      "vector, offset:p", "1<21", "direction of a vector in turns, plus offset"},
    { "transpose",               category_basic, 1,    1,    "",    "",     0 ,  "",  "",  pixel_transpose,
      "vector", "2<2", "x and y changed over"},
    { "polar_to_xy",             category_math,  2,    1,    "",    "",     0 ,  "",  "",  pixel_polar_to_xy,
      "revs_radius", "2<2", "turns and radius to a position"},
    { "xy_to_polar",             category_math,  2,    1,    "",    "",     0 ,  "",  "",  pixel_xy_to_polar,
      "vector, dir_offset:p", "2<21", "position to turns and radius"},
    { "hsv_to_rgb",              category_math,  3,    1,    "",    "",     0 ,  "",  "",  pixel_hsv_to_rgb,
      "hsv", "3<3", "hue, saturation, value to a colour"},
    { "rgb_to_hsv",              category_math,  3,    0.5f, "",    "",     0 ,  "",  "",  pixel_rgb_to_hsv,
      "rgb", "3<3", "colour to hue, saturation, value"},
    { "sat_scale",               category_math,  2,    1,    "",    "",    'V',  "",  "",  pixel_sat_scale,
      "color, scale", "1<11 2<21 3<31 4<41", "saturation times scale"},
    { "hue_shift",               category_math,  3,    1,    "",    "",    'W',  "",  "",  pixel_hue_shift,
      "color, shift", "1<11 3<31 4<41", "hue turned by shift, value kept"},
    { "hue_shift_preserve_luma", category_math,  3,    1,    "",    "",    'W',  "",  "",  pixel_hue_shift_preserve_luma,
      "color, shift", "1<11 3<31 4<41", "hue turned by shift, brightness kept"},
    { "hotspots",                category_basic, 2,    0,    "",    "",     0 ,  "",  "",  pixel_hotspots,
      "value, threshold:p", "1<11 1<13 2<21 3<31 3<33 3<43", "what is above threshold"},
    { "rotate",                  category_math,  3,    1,    "",    "",    'W',  "",  "",  pixel_rotate,
      "vector, revolutions, center", "2<212", "position turned around center"},
    { "vortex",                  category_math,  3,    1,    "",    "",     0 ,  "",  "",  pixel_vortex,
      "vector:c, revolutions:p, center:p, start_rad:p, rotate_offset:p", "2<21211",
      "position turned around center, less with distance"},
    { "axis_rotate",             category_math,  2,    1,    "",    "",     0 ,  "",  "",  pixel_axis_rotate,
      "value, axis, revolutions", "3<331 3<321 3<231 3<221 3<131 3<121", "colour or 3-vector turned around an axis"},
    { "shear",                   category_math,  2,    1,    "",    "",    'W',  "",  "",  pixel_shear,
      "vector, shear", "2<22", "position sheared along x and y"},
    { "perspective",             category_math,  2,    1,    "",    "",     0 ,  "",  "",  pixel_perspective,
      "vector:c, distance:p, latitude:p, lens_angle:p", "2<2111", "position on a plane seen at a slant"},
    { "perspective_alpha",       category_math,  2,    1,    "",    "",     0 ,  "",  "",  pixel_perspective_alpha,
      "vector:c, distance:p, latitude:p, lens_angle:p", "1<2111",
      "1 on the plane that perspective shows, 0 beyond its horizon"},
    { "tilt",                    category_math,  2,    1,    "",    "",     0 ,  "",  "",  pixel_tilt,
      "vector:c, tilt:p, lens_angle:p, shift:p, rotate:p, scale:p, shear:p, wrap:p", "2<22121222",
      "position on a plane tilted before a lens"},
    { "tilt_alpha",              category_math,  2,    1,    "",    "",     0 ,  "",  "",  pixel_tilt_alpha,
      "vector:c, tilt:p, lens_angle:p", "1<221", "1 on the plane that tilt shows, 0 beyond its horizon"},
    { "corner_pin",              category_math,  2,    1,    "",    "",    'X',  "",  "",  pixel_corner_pin,
      "vector:c, corner1:p, corner2:p, corner3:p, corner4:p, wrap:p, bulge:p", "2<2222222",
      "projective map of the frame onto four corners"},
    { "spotlight",               category_other, 10,   0,    "",    "",     0 ,  "",  "",  pixel_spotlight,
      "light_dir:p, light_to_surface:c, inner_a:p, outer_a:p, falloff_power:p", "1<33111",
      "brightness of a surface in a cone of light"},
};
// clang-format on

}  // namespace

const FunRows vectors_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
