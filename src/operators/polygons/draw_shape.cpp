#include "operators/blur/filter_args.h"
#include "operators/pixel/frame_coords.h"
#include "operators/polygons/coverage_rows.h"
#include "operators/polygons/polygon_buffer.h"
#include "operators/polygons/polygon_functions.h"
#include "operators/polygons/shape_outline.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

namespace velloran {

namespace {

enum DrawShapeArg : int {
    arg_type,
    arg_center,
    arg_size,
    arg_points,
    arg_pointiness,
    arg_roundness,
    arg_swirl,
    arg_rotate,
    arg_color
};

// Rows that are drawn at a time: few enough to stay in the second cache.
constexpr int band_rows = 32;

ShapeSpec read_shape(const Node* node) {
    ShapeSpec spec;
    spec.type = filter_arg(node, arg_type) >= fix_scale / 2 ? shape_star : shape_polygon;
    spec.points = std::clamp(filter_arg(node, arg_points) >> fix_bits, spec.type == shape_star ? 2 : 3,
                             spec.type == shape_star ? most_shape_points / 2 : most_shape_points);
    spec.pointiness = static_cast<double>(filter_arg_float(node, arg_pointiness));
    spec.roundness = static_cast<double>(filter_arg_float(node, arg_roundness));
    spec.swirl = static_cast<double>(filter_arg_float(node, arg_swirl));
    spec.rotate = static_cast<double>(filter_arg_float(node, arg_rotate));
    return spec;
}

// The outline in samples of the whole frame.
struct Outline {
    ShapePoint* points;
    int n;
};

Outline place_shape(const Node* node) {
    const FrameCoords coords = frame_coords();
    const double step = std::max(the_frame->render_info.render_step, 1);
    // Samples of a unit of the coordinates.
    const double x_unit = static_cast<double>(coords.width) / 2.0 / step;
    const double y_unit = static_cast<double>(coords.height / coords.half_height) / 2.0 / step;
    const auto number = [&](int arg, int e) { return static_cast<double>(filter_arg_float(node, arg, e)); };
    const double across = number(arg_size, 0), up = number(arg_size, 1), turns = number(arg_rotate, 1);
    const ShapeSpec spec = read_shape(node);
    Outline outline;
    outline.n = shape_outline_points(spec, std::max(std::fabs(across), std::fabs(up)) * std::max(x_unit, y_unit));
    outline.points = frame_array<ShapePoint>(static_cast<size_t>(outline.n));
    make_shape_outline(spec, outline.n, outline.points);
    for (int i = 0; i < outline.n; ++i) {
        const ShapePoint p = turned({outline.points[i].x * across, outline.points[i].y * up}, turns);
        outline.points[i] = {(number(arg_center, 0) + 1.0 + p.x) * x_unit,
                             (number(arg_center, 1) + static_cast<double>(coords.half_height) + p.y) * y_unit};
    }
    return outline;
}

// The samples of the planes that the outline may touch; none: right and top are not above left and bottom.
struct Box {
    int left, bottom, right, top;
};

Box box_of(const Outline& outline, int first_column, int first_row, int width, int height) {
    double low[2] = {1e9, 1e9}, high[2] = {-1e9, -1e9};
    for (int i = 0; i < outline.n; ++i) {
        const double at[2] = {outline.points[i].x - first_column, outline.points[i].y - first_row};
        for (int axis = 0; axis < 2; ++axis) {
            low[axis] = std::min(low[axis], at[axis]);
            high[axis] = std::max(high[axis], at[axis]);
        }
    }
    const auto within = [](double v, int limit) {
        return static_cast<int>(std::clamp(v, 0.0, static_cast<double>(limit)));
    };
    return {within(std::floor(low[0]), width), within(std::floor(low[1]), height),
            within(std::floor(high[0]) + 1, width), within(std::floor(high[1]) + 1, height)};
}

// The rows first .. first + n - 1 of the planes, n at most band_rows.
void draw_band(const Node* node, const Outline& outline, const Box& box, const PolygonBuffer& whole, int width,
               int first, int n) {
    for (int c = 0; c < node->elnum; ++c)
        std::fill_n(node->images[c] + ptrdiff_t{first} * width, ptrdiff_t{n} * width, FixPixel{0});
    const int low = std::max(first, box.bottom), high = std::min(first + n, box.top), columns = box.right - box.left;
    if (low >= high || columns < 1) return;
    PolygonBuffer pb = clone_polygon_buffer(whole);
    pb.buffer = static_cast<float*>(get_forked_buffer(0, static_cast<size_t>(columns) * band_rows * sizeof(float)));
    pb.height = high - low;
    pb.bottom = whole.bottom + low;
    std::fill_n(pb.buffer, ptrdiff_t{columns} * pb.height, 0.0f);
    start_polygon(&pb);
    for (int i = 0; i < outline.n; ++i) add_polygon_point(&pb, outline.points[i].x, outline.points[i].y, 0, pb.height);
    close_polygon(&pb, 0, pb.height);
    constexpr size_t most_channels = std::extent_v<decltype(Node::images)>;
    int32_t colors[most_channels];
    for (int c = 0; c < node->elnum; ++c) colors[c] = clip_to_image(filter_arg(node, arg_color, c));
    const CoverageRows& rows = coverage_rows();
    for (int y = 0; y < pb.height; ++y) {
        FixPixel* out[most_channels];
        for (int c = 0; c < node->elnum; ++c) out[c] = node->images[c] + ptrdiff_t{low + y} * width + box.left;
        rows.finish_painted(pb.buffer + ptrdiff_t{y} * columns, columns, out, colors, node->elnum);
    }
}

}  // namespace

// A filled polygon (type 0) or star (type 1) in color on 0, with the exact share that it has of each pixel. center and
// size, the two radii, are coordinates: of size 1 the shape is as wide as the frame. A star of so many points has its
// inner corners at 1 / (1 + pointiness) of the radius. roundness bends the edges until at 1 they are a circle; swirl
// turns the centre, and what lies between it and the rim by less. The first of rotate turns the shape within its size,
// the second as it lies in the frame; all turns are counter-clockwise.
void image_draw_shape(Node* node) {
    const rinfo& planes = the_frame->temp_raster_info;
    const int width = planes.width, height = planes.height, step = std::max(planes.render_step, 1);
    const Outline outline = place_shape(node);
    const Box box = box_of(outline, planes.x / step, planes.y / step, width, height);
    const int columns = std::max(box.right - box.left, 0);
    float none;
    PolygonBuffer whole;
    init_polygon_buffer(&whole, columns, 0, &none, false);
    whole.left = planes.x / step + box.left;
    whole.bottom = planes.y / step;
    maybe_malloc_forked_buffers(static_cast<size_t>(std::max(columns, 1)) * band_rows * sizeof(float), 1);
    const int bands = (height + band_rows - 1) / band_rows;
    const auto draw_bands = [&](int first, int n) {
        for (int band = first; band < first + n && !poll_abort(); ++band) {
            const int row = band * band_rows;
            draw_band(node, outline, box, whole, width, row, std::min(band_rows, height - row));
        }
    };
    if (big_image_p(width, height))
        fork_rows(bands, draw_bands);
    else
        draw_bands(0, bands);
    frame_free(outline.points);
}

}  // namespace velloran
