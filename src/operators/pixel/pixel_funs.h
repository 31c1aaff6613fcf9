// Pixel functions: the code of the catalogue rows that work sample by sample, and gamma, which works on planes.
//
// pixel_NAME(node) writes node->lines[e][0 .. n_pixels) for e below node->elnum from the node's arguments. One function
// serves all signatures of its row; element counts and constants are read from the node.
//   samples    i32, 12 fraction bits (4096 is 1.0), unclipped.
//   arguments  element e of argument a is at arg_lines[a][min(e, elnum - 1)]; one value if the argument is constant.
//              A colour without alpha counts 1.0 as its fourth element where the result has four, but in rows that
//              scalars and vectors alone enter, where the last element repeats.
//   aliasing   an output line may be an argument's line of the same element; any other overlap of an output with an
//              input is not allowed.
//   cannot fail; any task may call on its own node.
// Angles are in turns, but those of sin and cos in radians. Coordinates run -1 to 1 across and -r to r up.
#pragma once

namespace velloran {

struct Node;

// Arithmetic, comparisons, blends.
void pixel_abs(Node* node);
void pixel_negate(Node* node);
void pixel_one_minus(Node* node);
void pixel_add(Node* node);  // +
void pixel_add_rgb(Node* node);
void pixel_subtract(Node* node);  // -
void pixel_subtract_rgb(Node* node);
void pixel_diff(Node* node);
void pixel_multiply(Node* node);  // *
void pixel_scale_rgb(Node* node);
void pixel_divide(Node* node);  // /
void pixel_mod(Node* node);
void pixel_bounce(Node* node);
void pixel_round(Node* node);
void pixel_min(Node* node);
void pixel_max(Node* node);
void pixel_xor(Node* node);
void pixel_and(Node* node);
void pixel_or(Node* node);
void pixel_screen(Node* node);
void pixel_screen_clamp(Node* node);
void pixel_overlay(Node* node);
void pixel_clamp(Node* node);
void pixel_multiply_add(Node* node);  // *+
void pixel_interp(Node* node);
void pixel_dissolve(Node* node);
void pixel_posterize(Node* node);
void pixel_slow_in_out(Node* node);

// Compositing.
void pixel_comp_premult(Node* node);
void pixel_comp_rgba(Node* node);
void pixel_comp_rgba1(Node* node);

// Branches.
void pixel_if_positive(Node* node);         // if+
void pixel_if_positive_coerce(Node* node);  // if+_coerce
void pixel_if_greater(Node* node);          // if>
void pixel_if_greater_coerce(Node* node);   // if>_coerce
void pixel_if_eq(Node* node);
void pixel_if_has_alpha(Node* node);

// Functions of one or two numbers, in float.
void pixel_sin(Node* node);
void pixel_cos(Node* node);
void pixel_nsin(Node* node);
void pixel_ncos(Node* node);
void pixel_sqrt(Node* node);
void pixel_log_for_mipmap(Node* node);
void pixel_log_for_mipmap_rotate(Node* node);
void pixel_expt(Node* node);
void pixel_log(Node* node);
void pixel_atan(Node* node);

// Making, taking apart and coercing values.
void pixel_v2(Node* node);
void pixel_v3(Node* node);
void pixel_v4(Node* node);
void pixel_element_of(Node* node);
void pixel_v3_to_v4(Node* node);
void pixel_v3_to_v4_if4(Node* node);
void pixel_v3_to_v4_if4_a(Node* node);
void pixel_alpha_from_rgb_max_v4(Node* node);
void pixel_alpha_from_rgb_max(Node* node);
void pixel_coerce_to_v3(Node* node);
void pixel_coerce_up_to_v3(Node* node);
void pixel_coerce_to_v4(Node* node);
void pixel_coerce_up(Node* node);
void pixel_coerce_up_a1(Node* node);
void pixel_coerce_to(Node* node);
void pixel_coerce_to_alpha(Node* node);
void pixel_get_alpha(Node* node);
void pixel_get_alpha_or_luma(Node* node);
void pixel_remove_alpha(Node* node);
void pixel_max_element(Node* node);
void pixel_min_element(Node* node);
void pixel_ave_element(Node* node);
void pixel_transpose(Node* node);
void pixel_force_no_cache(Node* node);
void pixel_no_pass_vars(Node* node);
void pixel_copy(Node* node);

// Colour.
void pixel_monochrome(Node* node);
void pixel_monochrome_a(Node* node);
void pixel_hsv_to_rgb(Node* node);
void pixel_rgb_to_hsv(Node* node);
void pixel_sat_scale(Node* node);
void pixel_hue_shift(Node* node);
void pixel_hue_shift_preserve_luma(Node* node);
void pixel_hotspots(Node* node);

// Vectors.
void pixel_mag_squared(Node* node);
void pixel_mag(Node* node);
void pixel_normalize(Node* node);
void pixel_dot(Node* node);
void pixel_cross(Node* node);
void pixel_dist_squared(Node* node);
void pixel_dist(Node* node);
void pixel_direction(Node* node);
void pixel_polar_to_xy(Node* node);
void pixel_xy_to_polar(Node* node);
void pixel_screen_to_norm(Node* node);
void pixel_screen_to_norm_scale(Node* node);
void pixel_spotlight(Node* node);

// Transforms of coordinates.
void pixel_rotate(Node* node);
void pixel_vortex(Node* node);
void pixel_axis_rotate(Node* node);
void pixel_shear(Node* node);
void pixel_perspective(Node* node);
void pixel_perspective_alpha(Node* node);
void pixel_tilt(Node* node);
void pixel_tilt_alpha(Node* node);
void pixel_corner_pin(Node* node);
void pixel_kaleido(Node* node);
void pixel_kaleido_diamonds(Node* node);
void pixel_kaleido_oct(Node* node);

// gamma: an image function. Evaluates its first argument into the planes of the node and maps them as expt does, in a
// fork. Host thread only.
void image_gamma(Node* node);

}  // namespace velloran
