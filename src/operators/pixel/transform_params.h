// The numbers that rows of coordinates keep for a whole line.
#pragma once

namespace velloran {

enum : int {
    vortex_revolutions,
    vortex_center_x,
    vortex_center_y,
    vortex_inverse_radius,
    vortex_offset,
    vortex_params
};

// row_project: the 3 x 3 matrix by rows, from (x, y, 1) to picture coordinates that run -1 to 1 both ways; then per
// axis the period of the wrap mode, where it mirrors, the bulge; then the picture's half height.
enum : int { project_period = 9, project_turn = 11, project_bulge = 13, project_height = 15, project_params = 16 };
// Beyond what any reader of coordinates without wrap takes for inside.
constexpr float project_outside = 64.0f;
constexpr float project_least_depth = 1.0f / 65536.0f;
// A period without end, and a turn that is never reached.
constexpr float project_never = 1e30f;

}  // namespace velloran
