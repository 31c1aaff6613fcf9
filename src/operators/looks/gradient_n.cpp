#include "operators/blur/filter_args.h"
#include "operators/looks/gradient_n_rows.h"
#include "operators/looks/looks_functions.h"
#include "operators/pixel/frame_coords.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>

namespace velloran {

namespace {

enum GradientArg : int {
    arg_n_points,
    arg_p12,
    arg_p34,
    arg_p56,
    arg_color1,
    arg_scale_soft = arg_color1 + gradient_points,
    arg_softness123,
    arg_softness456,
    arg_size123,
    arg_size456
};

// Keeps the weight of a point finite at the point itself.
constexpr float least_softness = 1.0f / 1024;

Gradient read_gradient(const Node* node) {
    Gradient gradient;
    gradient.n = std::clamp(filter_arg(node, arg_n_points) >> fix_bits, 1, gradient_points);
    const float scale = filter_arg_float(node, arg_scale_soft);
    for (int k = 0; k < gradient_points; ++k) {
        GradientPoint& p = gradient.points[k];
        p.x = filter_arg_float(node, arg_p12 + k / 2, k % 2 * 2);
        p.y = filter_arg_float(node, arg_p12 + k / 2, k % 2 * 2 + 1);
        p.size = std::max(filter_arg_float(node, arg_size123 + k / 3, k % 3), 0.0f);
        const float soft = std::max(filter_arg_float(node, arg_softness123 + k / 3, k % 3) * scale, least_softness);
        p.softness = soft * soft;
        for (int c = 0; c < gradient_channels; ++c) p.color[c] = filter_arg_float(node, arg_color1 + k, c);
    }
    return gradient;
}

}  // namespace

// The mix of the colours of the first n_points points, 1 to 6, of which each weighs 1 / (d^2 + s^2): d is the distance
// from the disc of radius size around the point, 0 within, and s its softness times scale_soft, at least 1/1024. The
// sum counts for 1,000,000 at the most. All are coordinates. Without softness a disc has its own colour alone; the
// softer it is, the more of the others.
void image_gradient_n(Node* node) {
    const rinfo& planes = the_frame->temp_raster_info;
    const int width = planes.width, step = std::max(planes.render_step, 1);
    const FrameCoords coords = frame_coords();
    const float x_step = 2.0f * static_cast<float>(step) / coords.width,
                y_step = 2.0f * static_cast<float>(step) * (coords.half_height / coords.height);
    const Gradient gradient = read_gradient(node);
    const GradientNRows& rows = gradient_n_rows();
    fork_rows_if_big_image(width, planes.height, [&](int first, int n) {
        for (int y = first; y < first + n; ++y) {
            if ((y & 63) == 0 && poll_abort()) return;
            const ptrdiff_t at = ptrdiff_t{y} * width;
            FixPixel* const out[gradient_channels] = {node->images[0] + at, node->images[1] + at, node->images[2] + at};
            const float height = (static_cast<float>(planes.y / step + y) + 0.5f) * y_step - coords.half_height;
            rows.mix(gradient, 0.5f * x_step - 1.0f, x_step, height, planes.x / step, out, width);
        }
    });
}

}  // namespace velloran
