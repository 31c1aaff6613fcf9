// One look-up a pixel, bilinear, or filtered by how fast the coordinates change from pixel to pixel.
#include "engine/evaluate.h"
#include "operators/warps/warp_functions.h"
#include "operators/warps/warp_lines.h"
#include "operators/warps/warp_transform.h"
#include "records/frame.h"
#include "rows/line_rows.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <cmath>

namespace velloran {
namespace {

enum WarpArg : int { arg_image, arg_coords, arg_wrap, arg_filter };
enum WarpValue : int { value_coords, value_own };

// What the tasks read; written before the pass.
struct WarpJob {
    LookUp look_up;
    fix_plane planes[4];
    int elements;
    int own;              // value of the pixels' own coordinates, -1: coordinates are movements
    FixPixel* coarse[2];  // of the movements in x and y where they repeat, else null
};
WarpJob job;

void warp_line(Node* root, int column, int row, int offset) {
    const LookUp& look_up = job.look_up;
    const PlaceLines lines = place_lines(root, value_coords, job.own, look_up, column, row);
    for_each_block(n_pixels, [&](int first, int n) {
        Positions p;
        lines.positions(*look_up.rows, first, &p, n);
        wrap_positions(look_up, p, n);
        look_up_bilinear(look_up, p, PlanesAt(job.planes, job.elements, ptrdiff_t{offset} + first).planes, n);
    });
}

// ---- Filtered: movements into two planes, levels into two more, and the result in their place.

enum Plane : int { plane_x, plane_y, plane_x_level, plane_y_level };

// Neighbours that are compared lie so far apart that coordinates, which are rounded to 1/4096, differ by 16 of these
// and more where nothing moves: a picture that is not shrunk stays sharp.
constexpr int least_difference = 16;
int pixels_apart() {
    const rinfo& planes = the_frame->temp_raster_info;
    const int frame_samples = std::max(the_frame->render_info.full_ren.w / std::max(planes.render_step, 1), 1);
    return std::max((frame_samples * least_difference + 2 * fix_scale - 1) / (2 * fix_scale), 1);
}

void movement_line(Node* root, int column, int row, int offset) {
    const LookUp& look_up = job.look_up;
    const PlaceLines lines = place_lines(root, value_coords, job.own, look_up, column, row);
    for_each_block(n_pixels, [&](int first, int n) {
        look_up.rows->movements(lines.x, first, look_up.x_wrap, job.planes[plane_x] + offset + first, n);
        look_up.rows->movements(lines.y, first, look_up.y_wrap, job.planes[plane_y] + offset + first, n);
        if (job.coarse[plane_x])
            look_up.rows->coarse_movements(lines.x, first, job.coarse[plane_x] + offset + first, n);
        if (job.coarse[plane_y])
            look_up.rows->coarse_movements(lines.y, first, job.coarse[plane_y] + offset + first, n);
    });
}

struct PlaneSize {
    int width, height;
};
PlaneSize plane_size() { return {the_frame->temp_raster_info.width, the_frame->temp_raster_info.height}; }

// Calls body(row, first, n, offset) for the blocks of all rows, forked. False: the user aborted.
template <class Body>
bool for_each_plane_block(const Body& body) {
    const PlaneSize size = plane_size();
    fork_rows_if_big_image(size.width, size.height, [&](int first_row, int rows) {
        for (int y = first_row; y < first_row + rows; ++y) {
            if ((y & 63) == 0 && poll_abort()) return;
            for_each_block(size.width, [&](int first, int n) { body(y, first, n, ptrdiff_t{y} * size.width + first); });
        }
    });
    return !poll_abort();
}

ChangeLine change_line(Plane axis, int row, int first, float scale) {
    const PlaneSize size = plane_size();
    const int apart = pixels_apart();
    const auto line = [&](int y) -> StoredMovements {
        if (y < 0 || y >= size.height) return {};
        const ptrdiff_t at = ptrdiff_t{y} * size.width;
        return {job.planes[axis] + at, job.coarse[axis] ? job.coarse[axis] + at : nullptr};
    };
    return {line(row),
            line(row - apart),
            line(row + apart),
            size.width,
            first,
            apart,
            scale / static_cast<float>(apart * fix_scale),
            axis == plane_x ? 1.0f : 0.0f,
            axis == plane_x ? 0.0f : 1.0f};
}

// Levels fit planes of 16 bits as halves.
void choose_levels(float filter) {
    const LookUp& look_up = job.look_up;
    for_each_plane_block([&](int row, int first, int n, ptrdiff_t at) {
        alignas(64) float x_change[look_up_block], y_change[look_up_block];
        alignas(64) int32_t x_level[look_up_block], y_level[look_up_block];
        look_up.rows->change_squared(change_line(plane_x, row, first, look_up.x_scale), x_change, n);
        look_up.rows->change_squared(change_line(plane_y, row, first, look_up.y_scale), y_change, n);
        look_up.rows->levels(x_change, y_change, filter, look_up.table, x_level, y_level, n);
        for (int i = 0; i < n; ++i) {
            job.planes[plane_x_level][at + i] = static_cast<FixPixel>(x_level[i] >> 1);
            job.planes[plane_y_level][at + i] = static_cast<FixPixel>(y_level[i] >> 1);
        }
    });
}

// The result takes the place of what it is made from, pixel by pixel.
void forked_set_images_from_uv_levels() {
    const LookUp& look_up = job.look_up;
    for_each_plane_block([&](int row, int first, int n, ptrdiff_t at) {
        alignas(64) int32_t lines[4][look_up_block];
        for (int k = 0; k < 4; ++k) line_rows().samples_to_line(job.planes[k] + at, lines[k], n);
        for (int i = 0; i < n; ++i) {
            lines[plane_x_level][i] *= 2;
            lines[plane_y_level][i] *= 2;
        }
        Positions p;
        const AxisLine x = {lines[plane_x], nullptr,        true, true, (first - look_up.left) * fix_scale,
                            fix_scale,      look_up.x_scale};
        const AxisLine y = {lines[plane_y], nullptr, true, true, (row - look_up.bottom) * fix_scale, 0,
                            look_up.y_scale};
        look_up.rows->positions(x, 0, p.x, n);
        look_up.rows->positions(y, 0, p.y, n);
        wrap_positions(look_up, p, n);
        look_up_filtered(look_up, p, lines[plane_x_level], lines[plane_y_level],
                         PlanesAt(job.planes, job.elements, at).planes, n);
    });
}

void warp(Node* node, bool relative) {
    const float filter = warp_arg_float(node, arg_filter);
    if (!warp_mipmap(node, arg_wrap, filter > 0)) return;
    AffineMap map;
    if (set_use_warp_transform(node, arg_coords, relative, mipmap, &map)) {
        const rinfo& planes = the_frame->temp_raster_info;
        transform_images(make_image_transform(mipmap, map, filter), node->images, planes.width, planes.height);
        return;
    }
    job.look_up = make_look_up(mipmap);
    std::copy_n(node->images, 4, job.planes);
    job.elements = node->elnum;
    job.own = relative ? -1 : value_own;
    Node own = own_coordinates();
    Node* const values[] = {node->args[arg_coords], &own};
    const int n_values = relative ? 1 : 2;
    if (!(filter > 0)) {
        eval_node_trees_pixel_loop(values, n_values, warp_line);
        return;
    }
    const PlaneSize size = plane_size();
    const size_t samples = static_cast<size_t>(size.width) * static_cast<size_t>(size.height);
    job.coarse[plane_x] = job.look_up.x_wrap.on ? frame_array<FixPixel>(samples) : nullptr;
    job.coarse[plane_y] = job.look_up.y_wrap.on ? frame_array<FixPixel>(samples) : nullptr;
    eval_node_trees_pixel_loop(values, n_values, movement_line);
    if (!poll_abort()) choose_levels(filter);
    for (FixPixel* const plane : job.coarse) frame_free(plane);
    if (!poll_abort()) forked_set_images_from_uv_levels();
}

}  // namespace

// The picture at coords. filter: 0 looks up between the four samples around each place. Above 0 a reduction is
// averaged: the levels are the logarithm of filter times the change of the coordinates from pixel to pixel, in x and y.
void image_warp(Node* node) { warp(node, false); }

// The same at the pixel's own coordinates plus coords.
void image_warp_rel(Node* node) { warp(node, true); }

}  // namespace velloran
