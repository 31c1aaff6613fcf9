// Geometry of vectors, and colour.
#include "functions/rows.h"

#include "compile/pass_rules.h"
#include "operators/pixel/pixel_funs.h"
#include "operators/pixel/pixel_rules.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name                       category        cost wt    image flags run aux function
    //   "arguments", "signatures", "meaning", {rules}
    {72,  "mag_squared",             category_math,  2,   1,    "",   "",   "", "", pixel_mag_squared,
      "vector", "1<2 1<3", "square of the length of a vector"},
    {73,  "mag",                     category_math,  2,   1,    "",   "",   "", "", pixel_mag,
      "vector", "1<2 1<3", "length of a vector"},
    {74,  "normalize",               category_math,  2,   1,    "",   "",   "", "", pixel_normalize,
      "vector", "2<2 3<3", "vector of length 1 in the same direction"},
    {75,  "screen_to_norm",          category_math,  2,   0,    "",   "",   "", "", pixel_screen_to_norm,
      "vector:p", "2<2", "position in pixels to coordinates of -1 .. 1"},
    {76,  "screen_to_norm_scale",    category_math,  2,   0,    "",   "",   "", "", pixel_screen_to_norm_scale,
      "vector:p", "1<1 2<2", "size in pixels to a size in coordinates"},
    {77,  "dot",                     category_math,  2,   1,    "",   "",   "", "", pixel_dot,
      "vector1, vector2", "1<22 1<33 1<44 1<13 1<31", "scalar product", {.pass = pass_zero_factor}},
    {78,  "cross",                   category_math,  2,   1,    "",   "",   "", "", pixel_cross,
      "vector1, vector2", "1<22 3<33", "cross product", {.pass = pass_zero_factor}},
    {79,  "dist_squared",            category_math,  2,   1,    "",   "",   "", "", pixel_dist_squared,
      "arg1, arg2", "1<11 1<22 1<33", "square of the distance of two points"},
    {80,  "dist",                    category_math,  2,   1,    "",   "",   "", "", pixel_dist,
      "arg1, arg2", "1<11 1<22 1<33", "distance of two points"},
    {81,  "max_element",             category_basic, 1,   1,    "",   "",   "", "", pixel_max_element,
      "vector", "1<1 1<2 1<3 1<4", "the largest element", {.pass = pass_scalar}},
    {82,  "min_element",             category_basic, 1,   1,    "",   "",   "", "", pixel_min_element,
      "vector", "1<1 1<2 1<3 1<4", "the smallest element", {.pass = pass_scalar}},
    {83,  "ave_element",             category_basic, 1,   1,    "",   "",   "", "", pixel_ave_element,
      "vector", "1<1 1<2 1<3 1<4", "the mean of the elements", {.pass = pass_scalar}},
    {84,  "direction",               category_math,  2,   1,    "",   "",   "", "", pixel_direction,
      "vector, offset:p", "1<21", "direction of a vector in turns, plus offset"},
    {85,  "transpose",               category_basic, 1,   1,    "",   "",   "", "", pixel_transpose,
      "vector", "2<2", "x and y changed over"},
    {86,  "polar_to_xy",             category_math,  2,   1,    "",   "",   "", "", pixel_polar_to_xy,
      "revs_radius", "2<2", "turns and radius to a position"},
    {87,  "xy_to_polar",             category_math,  2,   1,    "",   "",   "", "", pixel_xy_to_polar,
      "vector, dir_offset:p", "2<21", "position to turns and radius"},
    {88,  "hsv_to_rgb",              category_math,  3,   1,    "",   "",   "", "", pixel_hsv_to_rgb,
      "hsv", "3<3", "hue, saturation, value to a colour"},
    {89,  "rgb_to_hsv",              category_math,  3,   0.5f, "",   "",   "", "", pixel_rgb_to_hsv,
      "rgb", "3<3", "colour to hue, saturation, value"},
    {90,  "sat_scale",               category_math,  2,   1,    "",   "",   "", "", pixel_sat_scale,
      "color, scale", "1<11 2<21 3<31 4<41", "saturation times scale", {.pass = pass_sat_scale}},
    {91,  "hue_shift",               category_math,  3,   1,    "",   "",   "", "", pixel_hue_shift,
      "color, shift", "1<11 3<31 4<41", "hue turned by shift, value kept", {.pass = pass_unmoved}},
    {92,  "hue_shift_preserve_luma", category_math,  3,   1,    "",   "",   "", "", pixel_hue_shift_preserve_luma,
      "color, shift", "1<11 3<31 4<41", "hue turned by shift, brightness kept", {.pass = pass_unmoved}},
    {93,  "hotspots",                category_basic, 2,   0,    "",   "",   "", "", pixel_hotspots,
      "value, threshold:p", "1<11 1<13 2<21 3<31 3<33 3<43", "what is above threshold"},
    {103, "spotlight",               category_other, 10,  0,    "",   "",   "", "", pixel_spotlight,
      "light_dir:p, light_to_surface:c, inner_a:p, outer_a:p, falloff_power:p", "1<33111",
      "brightness of a surface in a cone of light"},
};
// clang-format on

}  // namespace

const FunRows pixel_vectors_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
