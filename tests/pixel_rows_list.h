// Every pixel function with the name of its row, for tests that hold for all of them.
#pragma once

#include "engine/pixel/pixel_funs.h"
#include "genotype/node_fun.h"

namespace velloran_tests {

struct PixelRow {
    const char* name;
    velloran::PixelFun fun;
};

#define ROW(name) \
    { #name, velloran::pixel_##name }
// clang-format off
inline const PixelRow pixel_row_list[] = {
    {"+", velloran::pixel_add}, {"-", velloran::pixel_subtract}, {"*", velloran::pixel_multiply},
    {"/", velloran::pixel_divide}, {"*+", velloran::pixel_multiply_add}, {"if+", velloran::pixel_if_positive},
    {"if+_coerce", velloran::pixel_if_positive_coerce}, {"if>", velloran::pixel_if_greater},
    {"if>_coerce", velloran::pixel_if_greater_coerce},
    ROW(abs), ROW(negate), ROW(one_minus), ROW(sin), ROW(cos), ROW(nsin), ROW(ncos), ROW(sqrt), ROW(log_for_mipmap),
    ROW(log_for_mipmap_rotate), ROW(add_rgb), ROW(subtract_rgb), ROW(diff), ROW(scale_rgb), ROW(mod), ROW(bounce),
    ROW(round), ROW(min), ROW(max), ROW(xor), ROW(and), ROW(or), ROW(screen), ROW(screen_clamp), ROW(overlay), ROW(expt),
    ROW(log), ROW(atan), ROW(clamp), ROW(interp), ROW(dissolve), ROW(comp_premult), ROW(comp_rgba), ROW(comp_rgba1),
    ROW(if_eq), ROW(if_has_alpha), ROW(posterize), ROW(monochrome), ROW(monochrome_a), ROW(v2), ROW(v3), ROW(v4),
    ROW(element_of), ROW(v3_to_v4), ROW(v3_to_v4_if4), ROW(v3_to_v4_if4_a), ROW(alpha_from_rgb_max_v4),
    ROW(alpha_from_rgb_max), ROW(coerce_to_v3), ROW(coerce_up_to_v3), ROW(coerce_to_v4), ROW(coerce_up),
    ROW(coerce_up_a1), ROW(coerce_to), ROW(coerce_to_alpha), ROW(get_alpha), ROW(get_alpha_or_luma), ROW(remove_alpha),
    ROW(mag_squared), ROW(mag), ROW(normalize), ROW(screen_to_norm), ROW(screen_to_norm_scale), ROW(dot), ROW(cross),
    ROW(dist_squared), ROW(dist), ROW(max_element), ROW(min_element), ROW(ave_element), ROW(direction), ROW(transpose),
    ROW(polar_to_xy), ROW(xy_to_polar), ROW(hsv_to_rgb), ROW(rgb_to_hsv), ROW(sat_scale), ROW(hue_shift),
    ROW(hue_shift_preserve_luma), ROW(hotspots), ROW(rotate), ROW(vortex), ROW(axis_rotate), ROW(shear),
    ROW(perspective), ROW(perspective_alpha), ROW(tilt), ROW(tilt_alpha), ROW(corner_pin), ROW(spotlight), ROW(kaleido),
    ROW(kaleido_diamonds), ROW(kaleido_oct), ROW(slow_in_out), ROW(force_no_cache), ROW(no_pass_vars), ROW(copy),
};
// clang-format on
#undef ROW

}  // namespace velloran_tests
