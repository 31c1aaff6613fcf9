// The row kernels behind the pixel functions: plain pointers in and out, one table per instruction set.
#pragma once

#include "rows/row_patterns.h"

namespace velloran {

// Kernels by subject. A number at the end is the element count that the kernel is for.
enum RowId {
    // one input
    row_abs,
    row_negate,
    row_one_minus,
    row_sin,
    row_cos,
    row_nsin,
    row_ncos,
    row_sqrt,
    row_log2,
    // two inputs
    row_add,
    row_subtract,
    row_diff,
    row_multiply,
    row_divide,
    row_mod,
    row_bounce,
    row_round,
    row_min,
    row_max,
    row_xor,
    row_and,
    row_or,
    row_screen,
    row_screen_clamp,
    row_overlay,
    row_expt,
    row_log,
    row_atan,
    row_scale_clamp,
    row_above_threshold,
    // three inputs
    row_multiply_add,
    row_clamp,
    row_interp,
    row_dissolve,
    row_comp_premult,
    row_select,
    // four inputs
    row_if_greater,
    row_if_equal,
    row_posterize,
    row_comp_rgba,
    // vectors
    row_mag_squared2,
    row_mag_squared3,
    row_mag2,
    row_mag3,
    row_log2_rates,
    row_normalize2,
    row_normalize3,
    row_dot2,
    row_dot3,
    row_dot4,
    row_cross2,
    row_cross3,
    row_dist1,
    row_dist2,
    row_dist3,
    row_dist_squared1,
    row_dist_squared2,
    row_dist_squared3,
    row_direction,
    row_polar_to_xy,
    row_xy_to_polar,
    row_transpose,
    row_spotlight,
    row_max_element2,
    row_max_element3,
    row_max_element4,
    row_min_element2,
    row_min_element3,
    row_min_element4,
    row_ave_element2,
    row_ave_element3,
    row_ave_element4,
    row_max_scale_clamp,
    row_element,  // of vector and index element counts n and m: row_element + 4 * (n - 1) + m - 1
    row_element_last = row_element + 15,
    // colour
    row_luma,
    row_above_luma,
    row_rgb_to_hsv,
    row_hsv_to_rgb,
    row_sat_scale,
    row_hue_shift,
    row_hue_shift_preserve_luma,
    // transforms
    row_rotate,
    row_vortex,
    row_axis_rotate22,
    row_axis_rotate23,
    row_axis_rotate32,
    row_axis_rotate33,
    row_shear,
    row_project,
    row_project_alpha,
    row_kaleido,
    row_kaleido_diamonds,
    row_kaleido_oct,
    row_count
};

struct RowTable {
    RowPatterns fun[row_count];
};

// The table of the target in force. Any task may call.
const RowTable& pixel_rows();

}  // namespace velloran
