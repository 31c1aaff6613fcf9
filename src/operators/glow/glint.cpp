// Glints: stars on the light of an image.
#include "operators/blur/filter_args.h"
#include "operators/glow/glow_functions.h"
#include "operators/glow/glow_rows.h"
#include "operators/glow/light_planes.h"
#include "operators/glow/star_arms.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

// Both functions begin alike.
enum GlintArg : int {
    arg_image,
    arg_threshold,
    arg_pre_blur,
    arg_size,
    arg_brightness,
    arg_ray_sizes,
    arg_ray_brightnesses,
    glint_arg_scale_source,
    rainbow_arg_color_spread = glint_arg_scale_source,
    rainbow_arg_scale_source
};

// How the arms of a channel differ from those of white light.
struct ColorArm {
    float length, swell;
};

void add_stars(Node* node, int arg_scale_source, const ColorArm* colors) {
    if (!make_light_planes(node, arg_image, arg_threshold)) return;
    const FilterFrame frame = filter_frame();
    FixPixel* const* const light = node->images + node->elnum;
    pre_blur_light(light, node->elnum, node, arg_pre_blur);
    const auto samples = static_cast<size_t>(frame.width) * static_cast<size_t>(frame.height);
    auto* const sum = static_cast<float*>(frame_malloc(samples * sizeof(float)));
    const float unit = static_cast<float>(frame.widest()) / 8.0f;
    const GlowRows& rows = glow_rows();
    for (int c = 0; c < node->elnum; ++c) {
        mp_memset(sum, 0, samples * sizeof(float));
        for (int arm = 0; arm < n_star_arms; ++arm) {
            const float ray = filter_arg_float(node, arg_ray_sizes, arm), size = filter_arg_float(node, arg_size);
            const float length = std::clamp(ray * size, 0.0f, 64.0f) * unit * colors[c].length,
                        bright = filter_arg_float(node, arg_ray_brightnesses, arm);
            if (!(length > 0) || bright == 0) continue;
            const auto which = static_cast<StarArm>(arm);
            add_star_arm(light[c], sum, which,
                         make_arm_kernel(which, length, bright, colors[c].swell, 0.5f * length, frame), frame);
            if (poll_abort()) return frame_free(sum);
        }
        FixPixel* const image = node->images[c];
        const int32_t scale = filter_arg(node, arg_scale_source, c);
        const float brightness = filter_arg_float(node, arg_brightness, c);
        fork_rows_if_big_image(frame.width, frame.height, [&](int first, int n) {
            const ptrdiff_t at = ptrdiff_t{first} * frame.width;
            rows.add_sum(image + at, sum + at, scale, brightness, n * frame.width);
        });
    }
    frame_free(sum);
}

}  // namespace

// scale_source * image + brightness * four arms of its light: level, upright, rising and falling to the right. Lengths
// are size * ray_sizes eighths of the frame's width.
void image_glint(Node* node) {
    constexpr ColorArm white[] = {{1, 0}, {1, 0}, {1, 0}};
    add_stars(node, glint_arg_scale_source, white);
}

// The same; color_spread's first element makes red arms longer and blue ones shorter by so many halves, its second is
// the part of each colour that lies away from the light.
void image_rainbow_glint(Node* node) {
    const float apart = std::clamp(filter_arg_float(node, rainbow_arg_color_spread, 0), -1.9f, 1.9f) / 2,
                away = std::clamp(filter_arg_float(node, rainbow_arg_color_spread, 1), 0.0f, 1.0f);
    const ColorArm colors[] = {{1 + apart, away}, {1, away}, {1 - apart, away}};
    add_stars(node, rainbow_arg_scale_source, colors);
}

}  // namespace velloran
