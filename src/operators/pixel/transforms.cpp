// Transforms of coordinates. Each takes a place in the frame to the place in the picture that is seen there.
#include "operators/pixel/frame_coords.h"
#include "operators/pixel/node_rows.h"
#include "operators/pixel/pixel_funs.h"
#include "operators/pixel/transform_params.h"
#include "records/rinfo.h"
#include "records/run_state.h"

#include <algorithm>
#include <cmath>

namespace velloran {

FrameCoords frame_coords() {
    if (the_frame->render_info.full_ren.w < 1 || the_frame->render_info.full_ren.h < 1) return {1.0f, 1.0f, 1.0f};
    const float width = static_cast<float>(the_frame->render_info.full_ren.w);
    const float height = static_cast<float>(the_frame->render_info.full_ren.h);
    return {width, height, height / width * the_frame->pixel_aspect_ratio};
}

namespace {

constexpr double pi = 3.14159265358979323846;
double real(int32_t sample) { return sample / 4096.0; }

// A 3 x 3 matrix by rows, acting on (x, y, 1).
struct Matrix {
    double m[9];
};
Matrix multiply(const Matrix& a, const Matrix& b) {
    Matrix c;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            c.m[3 * i + j] = a.m[3 * i] * b.m[j] + a.m[3 * i + 1] * b.m[3 + j] + a.m[3 * i + 2] * b.m[6 + j];
    return c;
}
// The transposed matrix of cofactors: the inverse times the determinant.
Matrix adjugate(const Matrix& a) {
    const double* m = a.m;
    return {{m[4] * m[8] - m[5] * m[7], m[2] * m[7] - m[1] * m[8], m[1] * m[5] - m[2] * m[4], m[5] * m[6] - m[3] * m[8],
             m[0] * m[8] - m[2] * m[6], m[2] * m[3] - m[0] * m[5], m[3] * m[7] - m[4] * m[6], m[1] * m[6] - m[0] * m[7],
             m[0] * m[4] - m[1] * m[3]}};
}
double determinant(const Matrix& a, const Matrix& adj) {
    return a.m[0] * adj.m[0] + a.m[1] * adj.m[3] + a.m[2] * adj.m[6];
}
// A map that sees nothing: the depth is 0 everywhere.
constexpr Matrix blind = {{0, 0, 0, 0, 0, 0, 0, 0, 0}};
// The inverse, scaled so that depths are of the order of 1; blind where there is none.
Matrix invert(const Matrix& a) {
    Matrix inverse = adjugate(a);
    const double det = determinant(a, inverse);
    if (std::fabs(det) < 1e-9) return blind;
    for (double& value : inverse.m) value /= det;
    return inverse;
}

// Numbers of row_project: the map onto coordinates of -1 .. 1 and -r .. r, the wrap modes (0 none, up to 1 repeat,
// above mirror) and the bulge.
void project_setup(const Matrix& map, const int32_t* wrap, const int32_t* bulge, float* params) {
    const double half_height = frame_coords().half_height;
    for (int k = 0; k < 9; ++k) params[k] = static_cast<float>(map.m[k] / (k / 3 == 1 ? half_height : 1.0));
    for (int axis = 0; axis < 2; ++axis) {
        const int32_t mode = wrap ? wrap[axis] : 0;
        params[project_period + axis] = mode <= 0 ? project_never : mode <= 4096 ? 2.0f : 4.0f;
        params[project_turn + axis] = mode > 4096 ? 1.0f : project_never;
        params[project_bulge + axis] = bulge ? static_cast<float>(real(bulge[axis])) : 0.0f;
    }
    params[project_height] = static_cast<float>(half_height);
}
// Numbers of row_project_alpha: the depth, scaled to rise to 1 over 1/256 of half the frame's width.
void project_alpha_setup(const Matrix& map, float* params) {
    const double x = map.m[6], y = map.m[7];
    const double slope = std::sqrt(x * x + y * y);
    const double scale = 256.0 / std::max(slope, 1e-6 * std::max(std::fabs(map.m[8]), 1e-6));
    for (int k = 0; k < 3; ++k) params[k] = static_cast<float>(map.m[6 + k] * scale);
}

// Half the frame's width at distance 1 from a lens whose field of view is lens_angle turns wide.
double lens_slope(int32_t lens_angle) { return std::tan(pi * std::clamp(real(lens_angle), 0.0, 0.49)); }

// A plane through the origin seen by a camera that looks at the origin from latitude turns above it. At latitude 0.25
// and distance 1 the plane fills the frame as it is, whatever the lens.
//   With k the lens slope, the ray of frame point (x, y) meets the plane where
//       X = distance * x * sin / (sin - k * y * cos),   Y = distance * y / (sin - k * y * cos).
Matrix perspective_map(const int32_t* distance, const int32_t* latitude, const int32_t* lens_angle) {
    const double angle = 2.0 * pi * (latitude[0] & 4095) / 4096.0;
    const double sine = std::sin(angle), cosine = std::cos(angle), d = real(distance[0]);
    return {{d * sine, 0, 0, 0, d, 0, 0, -lens_slope(lens_angle[0]) * cosine, sine}};
}

// A card in the plane of the frame, turned about its upright middle line by the first angle (its right side goes away)
// and about the level one by the second (its top goes away), seen through a lens at whose distance it filled the frame.
Matrix tilt_map(const int32_t* tilt, const int32_t* lens_angle) {
    const double a = 2.0 * pi * (tilt[0] & 4095) / 4096.0, b = 2.0 * pi * (tilt[1] & 4095) / 4096.0;
    const double k = lens_slope(lens_angle[0]);
    // Where the card's own axes point after the turns; z away from the camera. First about the level line, then
    // upright.
    const double ux = std::cos(a), uz = std::sin(a);
    const double vx = -std::sin(b) * std::sin(a), vy = std::cos(b), vz = std::sin(b) * std::cos(a);
    return invert({{ux, vx, 0, 0, vy, 0, k * uz, k * vz, 1}});
}

// The picture's place in its plane is found in the order of the arguments: shift, rotate, scale and shear are undone.
void tilt_setup(const int32_t (*vals)[4], float* params) {
    enum { vector, tilt, lens_angle, shift, rotate, scale, shear, wrap };
    const double turn = 2.0 * pi * (vals[rotate][0] & 4095) / 4096.0;
    const double c = std::cos(turn), s = std::sin(turn);
    const double sx = real(vals[scale][0]), sy = real(vals[scale][1]);
    const double hx = real(vals[shear][0]), hy = real(vals[shear][1]);
    const Matrix moved = {{1, 0, real(vals[shift][0]), 0, 1, real(vals[shift][1]), 0, 0, 1}};
    const Matrix turned = {{c, -s, 0, s, c, 0, 0, 0, 1}};
    const Matrix scaled = {{sx, 0, 0, 0, sy, 0, 0, 0, 1}};
    const Matrix sheared = {{1, hx, 0, hy, 1, 0, 0, 0, 1}};
    const Matrix placed = invert(multiply(multiply(moved, turned), multiply(scaled, sheared)));
    project_setup(multiply(placed, tilt_map(vals[tilt], vals[lens_angle])), vals[wrap], nullptr, params);
}

// The map from a square to four corners after P. Heckbert, "Fundamentals of Texture Mapping and Image Warping", 1989,
// is inverted. Corners counter-clockwise from the left lower one. Where the corners make no plane picture (three in a
// line, all in one place) nothing is seen.
void corner_pin_setup(const int32_t (*vals)[4], float* params) {
    const double half_height = frame_coords().half_height;
    double x[4], y[4];
    for (int corner = 0; corner < 4; ++corner) {
        x[corner] = real(vals[1 + corner][0]);
        y[corner] = real(vals[1 + corner][1]);
    }
    const double dx1 = x[1] - x[2], dx2 = x[3] - x[2], sx = x[0] - x[1] + x[2] - x[3];
    const double dy1 = y[1] - y[2], dy2 = y[3] - y[2], sy = y[0] - y[1] + y[2] - y[3];
    const double det = dx1 * dy2 - dx2 * dy1;
    Matrix map = blind;
    if (std::fabs(det) > 1e-7) {
        const double g = (sx * dy2 - dx2 * sy) / det, h = (dx1 * sy - sx * dy1) / det;
        const Matrix forward = {{x[1] - x[0] + g * x[1], x[3] - x[0] + h * x[3], x[0], y[1] - y[0] + g * y[1],
                                 y[3] - y[0] + h * y[3], y[0], g, h, 1}};
        // From the unit square to -1 .. 1 and -r .. r.
        const Matrix square = {{2, 0, -1, 0, 2 * half_height, -half_height, 0, 0, 1}};
        map = multiply(square, invert(forward));
    }
    project_setup(map, vals[5], vals[6], params);
}

}  // namespace

void pixel_rotate(Node* node) {
    static constexpr int counts[3] = {2, 1, 2};
    run_vectors(node, row_rotate, counts, 3, 2);
}

void pixel_vortex(Node* node) {
    run_params(
        node, row_vortex, 0,
        [](const int32_t(*vals)[4], float* params) {
            params[vortex_revolutions] = static_cast<float>(real(vals[1][0]));
            params[vortex_center_x] = static_cast<float>(real(vals[2][0]));
            params[vortex_center_y] = static_cast<float>(real(vals[2][1]));
            // Without a radius only the centre itself is inside.
            params[vortex_inverse_radius] = static_cast<float>(1.0 / std::max(real(vals[3][0]), 1e-6));
            params[vortex_offset] = static_cast<float>(real(vals[4][0]));
        },
        2);
}

// A value or axis of two elements lies in the plane z = 0.
void pixel_axis_rotate(Node* node) {
    const int value = arg_elnum(node, 0) == 2 ? 2 : 3, axis = arg_elnum(node, 1) == 2 ? 2 : 3;
    static constexpr RowId ids[2][2] = {{row_axis_rotate22, row_axis_rotate23}, {row_axis_rotate32, row_axis_rotate33}};
    const int counts[3] = {value, axis, 1};
    run_vectors(node, ids[value - 2][axis - 2], counts, 3, 3);
}

void pixel_shear(Node* node) {
    static constexpr int counts[2] = {2, 2};
    run_vectors(node, row_shear, counts, 2, 2);
}

void pixel_perspective(Node* node) {
    run_params(
        node, row_project, 0,
        [](const int32_t(*vals)[4], float* params) {
            project_setup(perspective_map(vals[1], vals[2], vals[3]), nullptr, nullptr, params);
        },
        2);
}
void pixel_perspective_alpha(Node* node) {
    run_params(
        node, row_project_alpha, 0,
        [](const int32_t(*vals)[4], float* params) {
            project_alpha_setup(perspective_map(vals[1], vals[2], vals[3]), params);
        },
        1);
}
void pixel_tilt(Node* node) { run_params(node, row_project, 0, tilt_setup, 2); }
void pixel_tilt_alpha(Node* node) {
    run_params(
        node, row_project_alpha, 0,
        [](const int32_t(*vals)[4], float* params) { project_alpha_setup(tilt_map(vals[1], vals[2]), params); }, 1);
}
void pixel_corner_pin(Node* node) { run_params(node, row_project, 0, corner_pin_setup, 2); }

namespace {

void run_kaleido(Node* node, RowId id) {
    static constexpr int counts[2] = {2, 1};
    run_vectors(node, id, counts, 2, 2);
}

}  // namespace

void pixel_kaleido(Node* node) { run_kaleido(node, row_kaleido); }
void pixel_kaleido_diamonds(Node* node) { run_kaleido(node, row_kaleido_diamonds); }
void pixel_kaleido_oct(Node* node) { run_kaleido(node, row_kaleido_oct); }

}  // namespace velloran
