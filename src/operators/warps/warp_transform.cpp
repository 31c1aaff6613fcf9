#include "operators/warps/warp_transform.h"

#include "records/frame.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace velloran {
namespace {

// A value a * x + b * y + c of each of up to two elements.
struct Linear {
    double a, b, c;
};
struct Affine {
    Linear e[2];
    const Linear& at(int i, int elnum) const { return e[i > 0 && elnum > 1]; }
};

bool affine_value(const Node* node, Affine* out);

double constant(const Node* node, int e) { return node->vals[e] * (1.0 / fix_scale); }

bool named(const Node* node, const char* name) { return std::strcmp(node->fun_info->name, name) == 0; }

Linear sum(const Linear& p, const Linear& q, double factor) {
    return {p.a + factor * q.a, p.b + factor * q.b, p.c + factor * q.c};
}
Linear scaled(const Linear& p, double factor) { return {p.a * factor, p.b * factor, p.c * factor}; }

// For functions of two values whose elements do not mix.
bool by_elements(const Node* node, Affine* out) {
    const bool add = named(node, "+"), subtract = named(node, "-"), multiply = named(node, "*");
    const bool divide = named(node, "/");
    if (!add && !subtract && !multiply && !divide) return false;
    const Node *p = node->args[0], *q = node->args[1];
    if (multiply && is_constant(p)) std::swap(p, q);
    if ((multiply || divide) && !is_constant(q)) return false;
    Affine value, other;
    if (!affine_value(p, &value) || !affine_value(q, &other)) return false;
    for (int e = 0; e < node->elnum; ++e) {
        const Linear& v = value.at(e, p->elnum);
        const double factor = other.at(e, q->elnum).c;
        if (divide && factor == 0) return false;
        out->e[e] = add        ? sum(v, other.at(e, q->elnum), 1)
                    : subtract ? sum(v, other.at(e, q->elnum), -1)
                    : multiply ? scaled(v, factor)
                               : scaled(v, 1 / factor);
    }
    return true;
}

// vector, revolutions, center
bool rotated(const Node* node, Affine* out) {
    if (!named(node, "rotate") || !is_constant(node->args[1]) || !is_constant(node->args[2])) return false;
    Affine v;
    if (!affine_value(node->args[0], &v)) return false;
    const double angle = 6.283185307179586 * (node->args[1]->vals[0] & (fix_scale - 1)) / fix_scale;
    const double c = std::cos(angle), s = std::sin(angle);
    const Linear to_center[2] = {{0, 0, constant(node->args[2], 0)}, {0, 0, constant(node->args[2], 1)}};
    const Linear x = sum(v.e[0], to_center[0], -1), y = sum(v.e[1], to_center[1], -1);
    out->e[0] = sum(sum(scaled(x, c), y, -s), to_center[0], 1);
    out->e[1] = sum(sum(scaled(x, s), y, c), to_center[1], 1);
    return true;
}

// vector, shear
bool sheared(const Node* node, Affine* out) {
    if (!named(node, "shear") || !is_constant(node->args[1])) return false;
    Affine v;
    if (!affine_value(node->args[0], &v)) return false;
    out->e[0] = sum(v.e[0], v.e[1], constant(node->args[1], 0));
    out->e[1] = sum(v.e[1], v.e[0], constant(node->args[1], 1));
    return true;
}

bool negated(const Node* node, Affine* out) {
    if (!named(node, "negate")) return false;
    Affine v;
    if (!affine_value(node->args[0], &v)) return false;
    for (int e = 0; e < node->elnum; ++e) out->e[e] = scaled(v.e[e], -1);
    return true;
}

bool vector_of_two(const Node* node, Affine* out) {
    if (!named(node, "v2")) return false;
    for (int e = 0; e < 2; ++e) {
        Affine v;
        if (!affine_value(node->args[e], &v)) return false;
        out->e[e] = v.e[0];
    }
    return true;
}

bool affine_value(const Node* node, Affine* out) {
    *out = {};
    if (node->elnum > 2) return false;
    if (is_constant(node)) {
        for (int e = 0; e < 2; ++e) out->e[e].c = constant(node, e);
        return true;
    }
    if (node->type == node_var) {
        if (is_input(node)) return false;
        const bool y_alone = node->var_index == 1;
        out->e[0] = {y_alone ? 0.0 : 1.0, y_alone ? 1.0 : 0.0, 0};
        out->e[1] = {0, 1, 0};
        return true;
    }
    if (node->type != node_function || node->fun_info->image_fun_p) return false;
    return by_elements(node, out) || rotated(node, out) || sheared(node, out) || negated(node, out) ||
           vector_of_two(node, out);
}

}  // namespace

bool set_use_warp_transform(const Node* node, int arg, bool relative, const Mipmap& source, AffineMap* map) {
    const Node* const coords = node->args[arg];
    Affine v;
    if (!affine_value(coords, &v)) return false;
    Linear x = v.at(0, coords->elnum), y = v.at(1, coords->elnum);
    if (relative) {
        x.a += 1;
        y.b += 1;
    }
    // In samples about the middle of the frame.
    const rinfo& planes = the_frame->temp_raster_info;
    const RenderInfo& frame = the_frame->render_info;
    const int step = std::max(planes.render_step, 1);
    const double unit_x = frame.full_ren.w * frame.pix_scale / (2.0 * step);
    const double unit_y = unit_x / the_frame->pixel_aspect_ratio;
    const double middle_x = frame.full_ren.w / (2.0 * step) - 0.5 - planes.x / step;
    const double middle_y = frame.full_ren.h / (2.0 * step) - 0.5 - planes.y / step;
    *map = {x.a, x.b * unit_x / unit_y, 0, y.a * unit_y / unit_x, y.b, 0};
    map->x0 = x.c * unit_x + middle_x - map->xx * middle_x - map->xy * middle_y - source.left;
    map->y0 = y.c * unit_y + middle_y - map->yx * middle_x - map->yy * middle_y - source.bottom;
    return true;
}

}  // namespace velloran
