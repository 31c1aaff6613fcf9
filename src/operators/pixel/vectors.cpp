// Vectors: lengths, products, directions, positions in the frame; the spotlight.
#include "operators/pixel/frame_coords.h"
#include "operators/pixel/node_rows.h"
#include "operators/pixel/pixel_funs.h"

#include <algorithm>
#include <cmath>

namespace velloran {
namespace {

// A kernel of one vector, chosen by its elements: 2, 3.
void run_one(Node* node, RowId two, RowId three, int results) {
    const int n = arg_elnum(node, 0);
    run_vectors(node, n == 2 ? two : three, &n, 1, results);
}

// A kernel of two vectors, chosen by the longer: 1 to 4. A single number stands for all elements.
void run_two(Node* node, const RowId (&ids)[4], int results) {
    const int n = std::max(arg_elnum(node, 0), arg_elnum(node, 1));
    const int counts[2] = {n, n};
    run_vectors(node, ids[n - 1], counts, 2, results);
}

constexpr RowId no_row = row_count;
constexpr int pair[1] = {2};
constexpr int pair_and_one[2] = {2, 1};

double real(int32_t sample) { return sample / 4096.0; }
// As the kernels do it: truncated and held to 32 bits.
int32_t fix(double value) { return static_cast<int32_t>(std::clamp(value * 4096.0, -2147483648.0, 2147483647.0)); }

constexpr double pi = 3.14159265358979323846;

}  // namespace

void pixel_mag_squared(Node* node) { run_one(node, row_mag_squared2, row_mag_squared3, 1); }
void pixel_mag(Node* node) { run_one(node, row_mag2, row_mag3, 1); }
void pixel_normalize(Node* node) { run_one(node, row_normalize2, row_normalize3, node->elnum); }
void pixel_dot(Node* node) { run_two(node, {no_row, row_dot2, row_dot3, row_dot4}, 1); }
void pixel_cross(Node* node) { run_two(node, {no_row, row_cross2, row_cross3, no_row}, node->elnum); }
void pixel_dist(Node* node) { run_two(node, {row_dist1, row_dist2, row_dist3, no_row}, 1); }
void pixel_dist_squared(Node* node) {
    run_two(node, {row_dist_squared1, row_dist_squared2, row_dist_squared3, no_row}, 1);
}
void pixel_direction(Node* node) { run_vectors(node, row_direction, pair_and_one, 2, 1); }
void pixel_xy_to_polar(Node* node) { run_vectors(node, row_xy_to_polar, pair_and_one, 2, 2); }
void pixel_polar_to_xy(Node* node) { run_vectors(node, row_polar_to_xy, pair, 1, 2); }

// Levels of a picture that coordinates shrink: of a rate per axis, or of four elements, the rates of x and then of y in
// both directions.
void pixel_log_for_mipmap(Node* node) {
    if (arg_elnum(node, 0) < 4) {
        run_elements(node, row_log2);
        return;
    }
    static constexpr int counts[1] = {4};
    run_vectors(node, row_log2_rates, counts, 1, 2);
}
// A picture turned and scaled: a pixel's square covers scale * (|cos| + |sin|) along each axis.
void pixel_log_for_mipmap_rotate(Node* node) {
    run_samples(node, [](const Node*, const int32_t(*vals)[4], int32_t* result) {
        const double angle = 2.0 * pi * (vals[0][0] & 4095) / 4096.0;
        const double extent =
            std::fabs(vals[1][0] / 4096.0) * (std::fabs(std::cos(angle)) + std::fabs(std::sin(angle)));
        result[0] = result[1] = fix(std::log2(std::max(extent, 1.0 / 4096.0)));
    });
}

// A position in pixels from the left lower corner.
void pixel_screen_to_norm(Node* node) {
    run_samples(node, [](const Node*, const int32_t(*vals)[4], int32_t* result) {
        const FrameCoords frame = frame_coords();
        result[0] = fix(real(vals[0][0]) * 2.0 / frame.width - 1.0);
        result[1] = fix((real(vals[0][1]) * 2.0 / frame.height - 1.0) * frame.half_height);
    });
}
// A size in pixels; a single number is measured along x.
void pixel_screen_to_norm_scale(Node* node) {
    run_samples(node, [](const Node*, const int32_t(*vals)[4], int32_t* result) {
        const FrameCoords frame = frame_coords();
        result[0] = fix(real(vals[0][0]) * 2.0 / frame.width);
        result[1] = fix(real(vals[0][1]) * 2.0 / frame.height * frame.half_height);
    });
}

// The angles are measured from the axis, in turns. A light of no direction shines nowhere.
void pixel_spotlight(Node* node) {
    run_params(
        node, row_spotlight, 1,
        [](const int32_t(*vals)[4], float* params) {
            const double x = vals[0][0], y = vals[0][1], z = vals[0][2];
            const double length = std::sqrt(x * x + y * y + z * z);
            const double divisor = length > 0.0 ? length : 1.0;
            params[0] = static_cast<float>(x / divisor);
            params[1] = static_cast<float>(y / divisor);
            params[2] = static_cast<float>(z / divisor);
            const auto cosine = [](int32_t turns) { return std::cos(2.0 * pi * std::clamp(turns / 4096.0, 0.0, 0.5)); };
            const double inner = cosine(vals[2][0]), outer = std::min(cosine(vals[3][0]), inner);
            params[3] = static_cast<float>(length > 0.0 ? outer : 2.0);
            params[4] = static_cast<float>(1.0 / std::max(inner - outer, 1e-6));
            params[5] = static_cast<float>(real(vals[4][0]));
        },
        1);
}

// The way from 0 to 1 in time value: a cubic after Hermite whose speed at either end is 1 - slowness, so 0 and 0 give a
// straight line and 1 and 1 a smooth start and stop. With derivative_p above 0, its speed. Values are held to 0 .. 1.
void pixel_slow_in_out(Node* node) {
    run_samples(node, [](const Node*, const int32_t(*vals)[4], int32_t* result) {
        const double value = vals[0][0] / 4096.0, t = std::clamp(value, 0.0, 1.0);
        const double start = 1.0 - std::clamp(vals[1][0] / 4096.0, 0.0, 1.0);
        const double end = 1.0 - std::clamp(vals[2][0] / 4096.0, 0.0, 1.0);
        if (vals[3][0] <= 0) {
            result[0] = fix(((t - 2.0) * t + 1.0) * t * start + (3.0 - 2.0 * t) * t * t + (t - 1.0) * t * t * end);
        } else if (value < 0.0 || value > 1.0) {
            result[0] = 0;
        } else {
            result[0] = fix(((3.0 * t - 4.0) * t + 1.0) * start + 6.0 * t * (1.0 - t) + (3.0 * t - 2.0) * t * end);
        }
    });
}

}  // namespace velloran
