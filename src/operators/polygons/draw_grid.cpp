#include "operators/blur/filter_args.h"
#include "operators/pixel/frame_coords.h"
#include "operators/polygons/grid_rows.h"
#include "operators/polygons/polygon_functions.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

enum DrawGridArg : int {
    arg_boxes,
    arg_line_width,
    arg_center,
    arg_size,
    arg_z_dist,
    arg_latitude,
    arg_swing,
    arg_roll,
    arg_tele_lens_width,
    arg_major_line_spacing,
    arg_major_line_width
};

constexpr double pi = 3.14159265358979323846;
constexpr float endless = 1e6f;  // boxes to either side
constexpr double least_size = 1e-3;

double number(const Node* node, int arg, int e = 0) { return static_cast<double>(filter_arg_float(node, arg, e)); }

double box_size(const Node* node, int axis) { return std::max(std::fabs(number(node, arg_size, axis)), least_size); }

// Lines are counted from the middle one, or from the first behind the middle of an odd number of boxes.
GridLines read_lines(const Node* node, int axis) {
    GridLines g;
    const double size = box_size(node, axis);
    const int boxes = std::max(filter_arg(node, arg_boxes, axis) >> fix_bits, 0);
    g.minor_width = static_cast<float>(std::clamp(number(node, arg_line_width, axis) / size, 0.0, 1.0));
    g.spacing = static_cast<float>(std::max(filter_arg(node, arg_major_line_spacing) >> fix_bits, 0));
    g.major_width =
        static_cast<float>(std::clamp(number(node, arg_major_line_width) / size, static_cast<double>(g.minor_width),
                                      std::max(1.0, number(node, arg_major_line_spacing))));
    if (g.spacing == 0.0f) g.major_width = g.minor_width;
    g.first = boxes ? -static_cast<float>(boxes / 2) : -endless;
    g.last = boxes ? static_cast<float>(boxes - boxes / 2) : endless;
    return g;
}

// u, v and depth at a place of the frame, each a x + b y + c in coordinates.
struct View {
    double u[3], v[3], depth[3];
};

// The ray of frame point (x, y), of a camera that looks at the grid's middle from latitude turns above the plane, meets
// the plane at X = distance * x * sin / depth, Y = distance * y / depth, depth = sin - k * y * cos with k half the
// width of the view at distance 1: seen from above, at distance 1, the plane lies in the frame as it is.
View make_view(const Node* node) {
    const double latitude = 2.0 * pi * number(node, arg_latitude), exact = std::sin(latitude),
                 // Seen from its edge the plane would be nothing.
        sine = std::copysign(std::max(std::fabs(exact), 1e-3), exact),
                 k = std::tan(pi * std::clamp(number(node, arg_tele_lens_width), 0.0, 0.49)),
                 distance = number(node, arg_z_dist);
    const double roll = 2.0 * pi * number(node, arg_roll), swing = 2.0 * pi * number(node, arg_swing);
    const double x[2] = {std::cos(roll), std::sin(roll)}, y[2] = {-std::sin(roll), std::cos(roll)};  // before the roll
    const double c = std::cos(swing), s = std::sin(swing);
    View view;
    for (int e = 0; e < 2; ++e) {
        const double plane_x = distance * sine * x[e], plane_y = distance * y[e];
        view.u[e] = c * plane_x + s * plane_y;
        view.v[e] = c * plane_y - s * plane_x;
        view.depth[e] = -k * std::cos(latitude) * y[e];
    }
    view.u[2] = view.v[2] = 0.0;
    view.depth[2] = sine;
    // In boxes; line 0 of an odd number of them lies half a box before the middle.
    const auto count = [&](int axis, double* of) {
        const double size = box_size(node, axis), shift = (filter_arg(node, arg_boxes, axis) >> fix_bits) > 0 &&
                                                                  ((filter_arg(node, arg_boxes, axis) >> fix_bits) & 1)
                                                              ? 0.5
                                                              : 0.0;
        for (int e = 0; e < 3; ++e) of[e] = of[e] / size + shift * view.depth[e];
    };
    count(0, view.u);
    count(1, view.v);
    // From below all is seen through the plane: what was behind the camera is before it.
    if (sine < 0.0)
        for (double* of : {view.u, view.v, view.depth})
            for (int e = 0; e < 3; ++e) of[e] = -of[e];
    // The grid's middle is seen at center.
    for (double* of : {view.u, view.v, view.depth})
        of[2] -= of[0] * number(node, arg_center, 0) + of[1] * number(node, arg_center, 1);
    return view;
}

}  // namespace

// The lines of a plane of boxes, seen by a camera at distance z_dist from its middle: 1 on a line, 0 between, with the
// share that lines have of each sample, which near the horizon is their mean. boxes: how many across and up, 0 without
// end. size, line_width, major_line_width: in coordinates, at distance 1 seen from above; size is that of a box. Every
// major_line_spacing-th line, counted from the middle, has major_line_width where that is more. latitude: how high the
// camera stands above the plane, 0.25 straight above, less than 0 below it; swing turns the grid in its plane, roll the
// picture, both counter-clockwise around center, where the middle is seen. tele_lens_width: field of view in turns.
void image_draw_grid(Node* node) {
    const rinfo& planes = the_frame->temp_raster_info;
    const int width = planes.width, step = std::max(planes.render_step, 1);
    const FrameCoords coords = frame_coords();
    const double x_sample = 2.0 * step / static_cast<double>(coords.width),
                 y_sample = 2.0 * step * static_cast<double>(coords.half_height / coords.height);
    const View view = make_view(node);
    GridRow by_sample = {};
    by_sample.across_u = read_lines(node, 0);
    by_sample.across_v = read_lines(node, 1);
    by_sample.u_x = static_cast<float>(view.u[0] * x_sample);
    by_sample.v_x = static_cast<float>(view.v[0] * x_sample);
    by_sample.depth_x = static_cast<float>(view.depth[0] * x_sample);
    by_sample.u_y = static_cast<float>(view.u[1] * y_sample);
    by_sample.v_y = static_cast<float>(view.v[1] * y_sample);
    by_sample.depth_y = static_cast<float>(view.depth[1] * y_sample);
    const GridRows& rows = grid_rows();
    fork_rows_if_big_image(width, planes.height, [&](int first, int n) {
        GridRow row = by_sample;
        for (int y = first; y < first + n; ++y) {
            if ((y & 63) == 0 && poll_abort()) return;
            // Rows begin at the left edge of the frame, whatever the planes hold of it.
            const double at_x = 0.5 * x_sample - 1.0,
                         at_y = (planes.y / step + y + 0.5) * y_sample - static_cast<double>(coords.half_height);
            const auto at = [&](const double* of) { return static_cast<float>(of[0] * at_x + of[1] * at_y + of[2]); };
            row.u = at(view.u);
            row.v = at(view.v);
            row.depth = at(view.depth);
            rows.draw(row, planes.x / step, node->images[0] + ptrdiff_t{y} * width, width);
        }
    });
}

}  // namespace velloran
