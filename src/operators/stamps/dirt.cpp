#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/stamps/random_stamp_images.h"
#include "operators/stamps/stamps_functions.h"
#include "support/user_abort.h"

#include <algorithm>

namespace velloran {

namespace {

constexpr int most_hairs = 1000;

enum DirtArg : int {
    dirt_image,
    dirt_seed,
    dirt_color1,
    dirt_color2,
    dirt_vary_color,
    dirt_vary_brightness,
    dirt_opacity,
    dirt_vary_opacity,
    dirt_density,
    dirt_vary_density,
    dirt_scale,
    dirt_vary_scale
};
enum HairArg : int {
    hair_image,
    hair_seed,
    hair_color,
    hair_opacity,
    hair_max_hairs,
    hair_frequency,
    hair_threshold,
    hair_scale,
    hair_vary_scale,
    hair_noise_amp,
    hair_noise_freq
};

bool begin(Node* node, int image) {
    eval_node_tree_into_images(node->args[image], node->images, node->image_index, 1);
    return !poll_abort();
}

void dirt(Node* node, const char* name) {
    if (!begin(node, dirt_image)) return;
    const auto arg = [&](int i) { return filter_arg_float(node, i); };
    StampSettings s = {};
    for (int c = 0; c < 3; ++c) {
        s.color1[c] = filter_arg_float(node, dirt_color1, c);
        s.color2[c] = filter_arg_float(node, dirt_color2, c);
    }
    s.vary_color = arg(dirt_vary_color);
    s.vary_brightness = arg(dirt_vary_brightness);
    s.opacity = arg(dirt_opacity);
    s.vary_opacity = arg(dirt_vary_opacity);
    s.density = arg(dirt_density);
    s.vary_density = arg(dirt_vary_density);
    s.scale = arg(dirt_scale);
    s.vary_scale = arg(dirt_vary_scale);
    random_stamp_images(node->images, node->elnum, name, static_cast<uint32_t>(filter_arg(node, dirt_seed)), s);
}

}  // namespace

void image_stains(Node* node) { dirt(node, "film-stains"); }
void image_dust(Node* node) { dirt(node, "dust"); }

void image_hairs(Node* node) {
    if (!begin(node, hair_image)) return;
    const auto arg = [&](int i) { return filter_arg_float(node, i); };
    HairSettings s = {};
    for (int c = 0; c < 3; ++c) s.color[c] = filter_arg_float(node, hair_color, c);
    s.opacity = arg(hair_opacity);
    s.max_hairs = std::min(filter_arg(node, hair_max_hairs) >> fix_bits, most_hairs);
    s.frequency = arg(hair_frequency);
    s.threshold = arg(hair_threshold);
    s.scale = arg(hair_scale);
    s.vary_scale = arg(hair_vary_scale);
    s.noise_amp = arg(hair_noise_amp);
    s.noise_freq = arg(hair_noise_freq);
    stamp_hairs(node->images, node->elnum, "hairs", static_cast<uint32_t>(filter_arg(node, hair_seed)), s);
}

}  // namespace velloran
