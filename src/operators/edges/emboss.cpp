#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/edges/edge_functions.h"
#include "operators/edges/slopes.h"
#include "support/memory.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

enum EmbossArg : int {
    arg_height_map,
    arg_pre_blur,
    arg_scale_height,
    arg_surface_color,
    arg_light_color,
    arg_light_direction,
    arg_specular,
    arg_shininess,
    arg_subpixel_blur
};

// Channels of the surface that are lit; a fourth one stays.
constexpr int most_colors = 3;

void set_light(const Node* node, Light* light) {
    float x = filter_arg_float(node, arg_light_direction, 0), y = filter_arg_float(node, arg_light_direction, 1);
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
    }
    // Blinn's highlights as a table over the cosine, interpolated: no power for each pixel.
    const float shininess = std::max(filter_arg_float(node, arg_shininess), 0.0f),
                specular = filter_arg_float(node, arg_specular) * 4096.0f;
    for (int i = 0; i < highlight_entries + 2; ++i)
        light->highlights[i] =
            specular * std::pow(std::min(static_cast<float>(i) / highlight_entries, 1.0f), shininess);
}

}  // namespace

// surface_color lit from light_direction as if the blurred height map stood out of the picture: a height of 1.0 at a
// scale_height of 1.0 is 1/64 of the frame's width. light_direction is the x and y of a vector of length 1 that points
// to the light (longer ones are shortened, and lie in the picture). With n the normal, l the light and h halfway
// between l and the eye: light_color * (surface_color * max(n.l, 0) + specular * max(n.h, 0) ^ shininess), the second
// term only where the light reaches.
void image_emboss(Node* node) {
    eval_node_tree_into_images(node->args[arg_height_map], node->images, node->image_index, 1);
    Slopes slopes;
    if (!prepare_slopes(node->images[0], read_pre_blur(node, arg_pre_blur, arg_subpixel_blur), 1.0f, &slopes)) return;
    // Both the differences and the unit of height are in samples, so the step falls out.
    slopes.scale = filter_arg_float(node, arg_scale_height) * static_cast<float>(filter_frame_width()) / 64.0f /
                   (2.0f * static_cast<float>(long_image_scale));
    eval_node_tree_into_images(node->args[arg_surface_color], node->images, node->image_index, 1);
    const int given = filter_elements(node, arg_surface_color);
    for (int c = given; c < node->elnum; ++c) mp_memcpy(node->images[c], node->images[given - 1], slopes.frame.bytes());
    if (poll_abort()) return;

    Light* light = frame_array<Light>(1);
    set_light(node, light);
    const int n_colors = std::min<int>(node->elnum, most_colors);
    float color[most_colors];
    for (int c = 0; c < n_colors; ++c) color[c] = filter_arg_float(node, arg_light_color, c);
    const size_t bytes = static_cast<size_t>(slopes.frame.width) * sizeof(float);
    maybe_malloc_forked_buffers(bytes, 2);
    const EdgeRows& rows = edge_rows();
    for_each_slope_row(slopes, [&](const SlopeRow& in, ptrdiff_t at) {
        auto* scattered = static_cast<float*>(get_forked_buffer(0, bytes));
        auto* reflected = static_cast<float*>(get_forked_buffer(1, bytes));
        rows.shade(in, *light, scattered, reflected);
        for (int c = 0; c < n_colors; ++c) rows.apply_light(node->images[c] + at, scattered, reflected, color[c], in.n);
    });
    frame_free(light);
}

void need_rect_emboss(Node* node) { need_slopes(node, arg_pre_blur); }

}  // namespace velloran
