// Sharpening, slopes and embossing.
//
// Slopes are read from the accumulators of a blur, so nothing is rounded between the two: the central difference of a
// sample's neighbours, x to the right and y up in the plane's own axes, for a pixel of the full frame. At an edge of
// the picture the end sample stands for its missing neighbour. On fields the rows of a field are neighbours.
#include "operators/edges/edge_functions.h"

#include "compile/compile.h"
#include "engine/evaluate.h"
#include "operators/blur/blur.h"
#include "operators/blur/filter_args.h"
#include "operators/edges/edge_rows.h"
#include "records/frame.h"
#include "rows/line_rows.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

const EdgeRows* fork_rows;
FilterFrame fork_frame;
const FixPixel *fork_a, *fork_b;
FixPixel *fork_x, *fork_y;
float fork_slope_scale;  // of a difference of accumulators two samples apart
float fork_offset;
float fork_own_slope[2];
int32_t fork_scale, fork_base;

// ---- differences of planes ----

void forked_scaled_difference() {
    int first, n;
    get_proc_stripe(fork_frame.height, &first, &n);
    const ptrdiff_t at = ptrdiff_t{first} * fork_frame.width;
    fork_rows->scaled_difference(fork_a + at, fork_b + at, fork_x + at, fork_base, fork_scale, n * fork_frame.width);
}

void forked_add_difference() {
    int first, n;
    get_proc_stripe(fork_frame.height, &first, &n);
    const ptrdiff_t at = ptrdiff_t{first} * fork_frame.width;
    fork_rows->add_difference(fork_a + at, fork_b + at, fork_x + at, fork_scale, n * fork_frame.width);
}

// ---- slopes of the long image ----

SlopeRow slope_row(int y) {
    const int w = fork_frame.width, h = fork_frame.height, apart = fork_frame.fields ? 2 : 1;
    const auto row = [&](int r) { return long_image + ptrdiff_t{r} * w; };
    return {row(y),           row(y - apart < 0 ? y : y - apart),           row(y + apart >= h ? y : y + apart),
            fork_slope_scale, fork_slope_scale / static_cast<float>(apart), w};
}

using SlopeFun = void (*)(const SlopeRow& in, ptrdiff_t at);
SlopeFun fork_slope_fun;

void forked_slopes() {
    int first, n;
    get_proc_stripe(fork_frame.height, &first, &n);
    for (int y = first; y < first + n; ++y) {
        if ((y & 63) == 0 && poll_abort()) return;
        fork_slope_fun(slope_row(y), ptrdiff_t{y} * fork_frame.width);
    }
}

// Blurs plane into the long image by amount (x and y), for slopes times scale. False: the user aborted.
bool prepare_slopes(const FixPixel* plane, const int32_t amount[2], bool subpixel, float scale) {
    fork_frame = filter_frame();
    blur_into_long_image(plane, filter_radius(amount[0]), filter_radius(amount[1]), blur_default_edge_mode,
                         max_blur_passes, subpixel, fork_frame.fields, fork_frame.width, fork_frame.height);
    if (poll_abort()) return false;
    fork_rows = &edge_rows();
    fork_slope_scale = scale / (2.0f * static_cast<float>(fork_frame.step) * static_cast<float>(long_image_scale));
    return true;
}

// Does so and runs fun over all rows.
void run_slopes(const FixPixel* plane, const int32_t amount[2], bool subpixel, float scale, SlopeFun fun) {
    if (!prepare_slopes(plane, amount, subpixel, scale)) return;
    fork_slope_fun = fun;
    fork_if_big_image(forked_slopes, fork_frame.width, fork_frame.height);
}

// ---- light on a height map ----

const Light* fork_light;
FixPixel* fork_surface[4];
int fork_colors;  // channels of the surface that are lit
float fork_light_color[3];

void light_row(const SlopeRow& in, ptrdiff_t at) {
    const size_t bytes = static_cast<size_t>(in.n) * sizeof(float);
    auto* scattered = static_cast<float*>(get_forked_buffer(0, bytes));
    auto* reflected = static_cast<float*>(get_forked_buffer(1, bytes));
    fork_rows->shade(in, *fork_light, scattered, reflected);
    for (int c = 0; c < fork_colors; ++c)
        fork_rows->apply_light(fork_surface[c] + at, scattered, reflected, fork_light_color[c], in.n);
}

// ---- slopes along a direction ----

// A block of the direction's samples, as planes would hold them, and the slopes there.
void direction_block(Node* root, int column, int row, int offset) {
    const size_t bytes = static_cast<size_t>(fork_frame.width) * sizeof(FixPixel);
    FixPixel* direction[2];
    for (int e = 0; e < 2; ++e) {
        direction[e] = static_cast<FixPixel*>(get_forked_buffer(e, bytes));
        line_rows().line_to_samples(root->lines[e], direction[e], n_pixels, fix_image_limit);
    }
    fork_rows->slope_along(slope_row(row), column, n_pixels, direction[0], direction[1], fork_x + offset);
}

}  // namespace

// 0.5 + scale * (image blurred by blur_amount1 - image blurred by blur_amount2), both in three passes with subpixel
// radii: what lies between the two sizes, around mid grey.
void image_band_pass(Node* node) {
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
    const FilterFrame frame = filter_frame();
    FixPixel* coarse = node->images[node->elnum];
    fork_rows = &edge_rows();
    fork_frame = frame;
    for (int c = 0; c < node->elnum; ++c) {
        FixPixel* fine = node->images[c];
        blur_image(fine, coarse, filter_radius(filter_arg(node, 2, 0)), filter_radius(filter_arg(node, 2, 1)),
                   blur_default_edge_mode, max_blur_passes, fix_scale, true, frame.fields, frame.width, frame.height);
        blur_image(fine, fine, filter_radius(filter_arg(node, 1, 0)), filter_radius(filter_arg(node, 1, 1)),
                   blur_default_edge_mode, max_blur_passes, fix_scale, true, frame.fields, frame.width, frame.height);
        if (poll_abort()) return;
        fork_a = fine;
        fork_b = coarse;
        fork_x = fine;
        fork_base = fix_scale / 2;
        fork_scale = filter_arg(node, 3, c);
        fork_if_big_image(forked_scaled_difference, frame.width, frame.height);
    }
}

// image + scale * (image - image blurred by granularity), an unsharp mask of three passes with a subpixel radius; scale
// is per channel.
void image_sharpen(Node* node) {
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
    const FilterFrame frame = filter_frame();
    FixPixel* soft = node->images[node->elnum];
    const int32_t x_radius = filter_radius(filter_arg(node, 2, 0)), y_radius = filter_radius(filter_arg(node, 2, 1));
    fork_rows = &edge_rows();
    fork_frame = frame;
    for (int c = 0; c < node->elnum; ++c) {
        blur_image(node->images[c], soft, x_radius, y_radius, blur_default_edge_mode, max_blur_passes, fix_scale, true,
                   frame.fields, frame.width, frame.height);
        if (poll_abort()) return;
        fork_a = fork_x = node->images[c];
        fork_b = soft;
        fork_scale = filter_arg(node, 1, c);
        fork_if_big_image(forked_add_difference, frame.width, frame.height);
    }
}

// The gradient of the blurred image times scale: element 0 to the right, element 1 upwards, in 1.0 per pixel.
void image_grad(Node* node) {
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
    const int32_t amount[2] = {filter_arg(node, 1, 0), filter_arg(node, 1, 1)};
    fork_x = node->images[0];
    fork_y = node->images[1];
    run_slopes(node->images[0], amount, filter_arg(node, 3) > 0, filter_arg_float(node, 2),
               [](const SlopeRow& in, ptrdiff_t at) { fork_rows->slopes(in, fork_x + at, fork_y + at); });
}

// How many pixels of a picture one pixel of a warp covers, for coordinates (x, y) in which the frame is 2 wide: for
// each of the two coordinates scale times the length of its gradient, in pixels. Unmoved coordinates give 1. rel_p: the
// coordinates are movements, to which the pixel's own position is added.
void image_grad_for_mipmap(Node* node) {
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
    const bool relative = filter_arg(node, 2) > 0;
    const float pixels = static_cast<float>(the_frame->render_info.full_ren.w) * 0.5f;
    const int32_t none[2] = {0, 0};
    for (int c = 0; c < 2; ++c) {
        for (int axis = 0; axis < 2; ++axis)
            fork_own_slope[axis] = relative && c == axis ? filter_arg_float(node, 1) : 0.0f;
        fork_x = node->images[c];
        run_slopes(node->images[c], none, false, filter_arg_float(node, 1) * pixels,
                   [](const SlopeRow& in, ptrdiff_t at) {
                       fork_rows->moved_slope_length(in, fork_own_slope[0], fork_own_slope[1], fork_x + at);
                   });
    }
}

// scale times the length of the gradient of the blurred image, for each channel.
void image_edge_detect(Node* node) {
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
    const int32_t amount[2] = {filter_arg(node, 1, 0), filter_arg(node, 1, 1)};
    for (int c = 0; c < node->elnum; ++c) {
        fork_x = node->images[c];
        run_slopes(node->images[c], amount, filter_arg(node, 3) > 0, filter_arg_float(node, 2, c),
                   [](const SlopeRow& in, ptrdiff_t at) { fork_rows->slope_length(in, fork_x + at); });
    }
}

// The direction in which the blurred image rises, in turns counter-clockwise from the x axis, plus offset, from 0 up
// to 1; flat places have the offset alone.
void image_grad_direction(Node* node) {
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
    const int32_t amount[2] = {filter_arg(node, 1, 0), filter_arg(node, 1, 1)};
    for (int c = 0; c < node->elnum; ++c) {
        fork_x = node->images[c];
        fork_offset = filter_arg_float(node, 2, c);
        run_slopes(node->images[c], amount, filter_arg(node, 3) > 0, 1.0f,
                   [](const SlopeRow& in, ptrdiff_t at) { fork_rows->slope_direction(in, fork_offset, fork_x + at); });
    }
}

// The slope of the blurred image along a vector of each pixel: the dot product of the gradient, in 1.0 per pixel, and
// direction. A longer vector gives a larger result.
void image_grad_in_direction(Node* node) {
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
    const FilterFrame frame = filter_frame();
    const int32_t amount[2] = {filter_arg(node, 2, 0), filter_arg(node, 2, 1)};
    Node* direction = maybe_pass_through_args(node->args[1]);
    const bool in_planes = direction->image_count && (direction->flags & node_images_valid);
    for (int c = 0; c < node->elnum; ++c) {
        fork_x = node->images[c];
        if (in_planes) {
            fork_a = direction->images[0];
            fork_b = direction->images[1];
            run_slopes(node->images[c], amount, filter_arg(node, 3) > 0, 1.0f, [](const SlopeRow& in, ptrdiff_t at) {
                fork_rows->slope_along(in, 0, in.n, fork_a + at, fork_b + at, fork_x + at);
            });
        } else if (prepare_slopes(node->images[c], amount, filter_arg(node, 3) > 0, 1.0f)) {
            // What is computed for each pixel is never stored.
            maybe_malloc_forked_buffers(static_cast<size_t>(frame.width) * sizeof(FixPixel), 2);
            eval_node_tree_pixel_loop(direction, direction_block, eval_as_target, 1);
        }
    }
}

// surface_color lit from light_direction as if the blurred height map stood out of the picture: a height of 1.0 at a
// scale_height of 1.0 is 1/64 of the frame's width. light_direction is the x and y of a vector of length 1 that points
// to the light (longer ones are shortened, and lie in the picture). With n the normal, l the light and h halfway
// between l and the eye: light_color * (surface_color * max(n.l, 0) + specular * max(n.h, 0) ^ shininess), the second
// term only where the light reaches. A fourth channel of the surface stays.
void image_emboss(Node* node) {
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
    fork_frame = filter_frame();
    const FilterFrame frame = fork_frame;
    blur_into_long_image(node->images[0], filter_radius(filter_arg(node, 1, 0)), filter_radius(filter_arg(node, 1, 1)),
                         blur_default_edge_mode, max_blur_passes, filter_arg(node, 8) > 0, frame.fields, frame.width,
                         frame.height);
    if (poll_abort()) return;
    const int32_t height_scale = long_image_scale;
    eval_node_tree_into_images(node->args[3], node->images, node->image_index, 1);
    const int given = std::max<int>(node->args[3]->elnum, 1);
    for (int c = given; c < node->elnum; ++c) mp_memcpy(node->images[c], node->images[given - 1], frame.bytes());
    if (poll_abort()) return;

    Light* light = frame_array<Light>(1);
    float x = filter_arg_float(node, 5, 0), y = filter_arg_float(node, 5, 1);
    const float length = std::sqrt(x * x + y * y);
    if (length > 1.0f) {
        x /= length;
        y /= length;
    }
    const float z = std::sqrt(std::max(1.0f - x * x - y * y, 0.0f));
    const float half = std::sqrt(x * x + y * y + (z + 1.0f) * (z + 1.0f));
    const float to_light[3] = {x, y, z};
    for (int k = 0; k < 3; ++k) {
        light->to_light[k] = to_light[k];
        light->half[k] = (to_light[k] + (k == 2 ? 1.0f : 0.0f)) / half;
        fork_light_color[k] = filter_arg_float(node, 4, k);
    }
    fork_colors = std::min<int>(node->elnum, 3);
    // Blinn's highlights as a table over the cosine, interpolated: no power for each pixel.
    const float shininess = std::max(filter_arg_float(node, 7), 0.0f), specular = filter_arg_float(node, 6) * 4096.0f;
    for (int i = 0; i < highlight_entries + 2; ++i)
        light->highlights[i] =
            specular * std::pow(std::min(static_cast<float>(i) / highlight_entries, 1.0f), shininess);
    maybe_malloc_forked_buffers(static_cast<size_t>(frame.width) * sizeof(float), 2);
    std::copy(node->images, node->images + node->elnum, fork_surface);
    fork_light = light;
    fork_rows = &edge_rows();
    fork_slope_fun = light_row;
    // Both the differences and the unit of height are in samples, so the step falls out.
    fork_slope_scale = filter_arg_float(node, 2) * static_cast<float>(filter_frame_width()) / 64.0f /
                       (2.0f * static_cast<float>(height_scale));
    fork_if_big_image(forked_slopes, frame.width, frame.height);
    frame_free(light);
}

}  // namespace velloran
