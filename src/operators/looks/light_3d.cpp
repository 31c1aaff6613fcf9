#include "operators/looks/light_rows.h"
#include "operators/looks/looks_functions.h"
#include "operators/pixel/node_rows.h"
#include "records/fix_pixel.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

enum Light3dArg : int {
    arg_source,
    arg_normal,
    arg_hilite_brights,
    arg_hilite_sizes,
    arg_diffuse_brights,
    arg_ambient_bright,
    arg_light_enables,
    arg_light_color1,
    arg_light_dir1 = arg_light_color1 + most_lights
};

constexpr float least_hilite_size = 1.0f / 64;

// Of sample i of the line.
struct Numbers {
    const Node* node;
    int i;
    float operator()(int arg, int e = 0) const {
        const Line line = arg_line(node, arg, e);
        return static_cast<float>(line.samples[line.constant ? 0 : i]) * fix_to_float_scale;
    }
};

// A light of no direction shines nowhere.
void add_light(const Numbers& number, int k, LightParams* params) {
    if (number(arg_light_enables, k) <= 0.0f) return;
    float to_light[3], length = 0.0f;
    for (int e = 0; e < 3; ++e) {
        to_light[e] = number(arg_light_dir1 + k, e);
        length += to_light[e] * to_light[e];
    }
    length = std::sqrt(length);
    if (length == 0.0f) return;
    auto& light = params->lights[static_cast<int>(params->count)];
    float half = 0.0f;
    for (int e = 0; e < 3; ++e) {
        light.to_light[e] = to_light[e] / length;
        light.half[e] = light.to_light[e] + (e == 2 ? 1.0f : 0.0f);
        half += light.half[e] * light.half[e];
    }
    half = std::sqrt(half);
    const float size = std::max(number(arg_hilite_sizes, k), least_hilite_size);
    light.shininess = 2.0f / (size * size);
    for (int e = 0; e < 3; ++e) {
        light.half[e] = half > 0.0f ? light.half[e] / half : 0.0f;
        const float color = number(arg_light_color1 + k, e);
        light.diffuse[e] = color * number(arg_diffuse_brights, k);
        light.highlight[e] = color * number(arg_hilite_brights, k);
    }
    params->count += 1.0f;
}

void read_lights(const Numbers& number, LightParams* params) {
    params->count = 0.0f;
    params->ambient = number(arg_ambient_bright);
    for (int k = 0; k < most_lights; ++k) add_light(number, k, params);
}

}  // namespace

// The colour source on a surface that looks along normal, lit by up to four lights from far away: with n the normal
// brought to length 1, l the vector to a light, and h the one halfway between l and the eye at (0, 0, 1),
//     source * (ambient_bright + sum of light_color * diffuse_bright * max(n.l, 0))
//         + sum of light_color * hilite_bright * max(n.h, 0) ^ (2 / hilite_size^2) where n.l is above 0,
// over the lights whose element of light_enables is above 0. A normal of length 0 has the ambient light alone.
void pixel_light_3d(Node* node) {
    Line in[6];
    for (int e = 0; e < 3; ++e) {
        in[e] = arg_line(node, arg_source, e);
        in[3 + e] = arg_line(node, arg_normal, e);
    }
    bool same = true;
    for (int a = arg_normal + 1; a < node->eval_arg_number; ++a) same = same && arg_constant(node, a);
    const bool same_source = in[0].constant, same_normal = in[3].constant;
    const RowPatterns& rows = light_rows();
    LightParams params;
    const auto* numbers = reinterpret_cast<const float*>(&params);
    const int32_t* lines[6];
    if (same && !(same_source && same_normal)) {
        read_lights({node, 0}, &params);
        for (int k = 0; k < 6; ++k) lines[k] = in[k].samples;
        rows[unsigned{same_source} | unsigned{same_normal} << 1](lines, node->lines, n_pixels, numbers);
        return;
    }
    // Lights of their own for each sample; or none of all this varies, and one sample says everything.
    const int n = same ? 1 : n_pixels;
    for (int i = 0; i < n; ++i) {
        read_lights({node, i}, &params);
        for (int k = 0; k < 6; ++k) lines[k] = in[k].samples + (in[k].constant ? 0 : i);
        int32_t* out[3];
        for (int e = 0; e < 3; ++e) out[e] = node->lines[e] + i;
        rows[0](lines, out, 1, numbers);
    }
    for (int e = 0; same && e < 3; ++e) std::fill_n(node->lines[e], n_pixels, *node->lines[e]);
}

}  // namespace velloran
