// Rows are sorted so that users come before their arguments: one walk over the table in its order has every region
// complete before it is passed on. A reach that cannot be known before the frame (an argument that varies over it)
// makes the whole plane needed: too much costs time, too little would show.
#include "compile/need_rect.h"

#include "frame/filter_radius.h"
#include "records/genotype.h"
#include "records/node.h"
#include "records/rinfo.h"
#include "records/run_state.h"
#include "support/memory.h"

#include <algorithm>

namespace velloran {

namespace {

constexpr int rect_limit = 32767;
constexpr int64_t unlimited = reach_everywhere.x;

int16_t held(int64_t v) { return static_cast<int16_t>(std::clamp<int64_t>(v, -rect_limit, rect_limit)); }

int render_step() { return std::max(the_frame->render_info.render_step, 1); }

// Fields lie two rows apart.
NeedReach on_fields(NeedReach reach) {
    if (the_frame->render_field) reach.y *= 2;
    return reach;
}

void need_with_reach(Node* node, int i, NeedReach reach) {
    if (!need_varies(node, i)) return;
    reach = on_fields(reach);
    need_rect_grow(*node_need_rect(node), reach.x, reach.y, node_need_rect(node->args[i]));
}

void need_all_of(Node* node, int i) {
    if (need_varies(node, i)) need_rect_set_all(node_need_rect(node->args[i]));
}

}  // namespace

void need_rect_clear(NeedRect* rect) { *rect = {0, 0, 0, 0, 1}; }

void need_rect_set_all(NeedRect* rect) { *rect = {-rect_limit, rect_limit, -rect_limit, rect_limit, 0}; }

void need_rect_union(const NeedRect& a, NeedRect* b) {
    if (a.empty) return;
    if (b->empty) {
        *b = a;
        return;
    }
    b->min_x = std::min(a.min_x, b->min_x);
    b->max_x = std::max(a.max_x, b->max_x);
    b->min_y = std::min(a.min_y, b->min_y);
    b->max_y = std::max(a.max_y, b->max_y);
}

void need_rect_intersect(const NeedRect& a, NeedRect* b) {
    if (b->empty) return;
    if (a.empty) {
        need_rect_clear(b);
        return;
    }
    b->min_x = std::max(a.min_x, b->min_x);
    b->max_x = std::min(a.max_x, b->max_x);
    b->min_y = std::max(a.min_y, b->min_y);
    b->max_y = std::min(a.max_y, b->max_y);
    if (b->min_x > b->max_x || b->min_y > b->max_y) need_rect_clear(b);
}

void need_rect_grow(const NeedRect& rect, int64_t dx, int64_t dy, NeedRect* target) {
    if (rect.empty) return;
    dx = std::min(dx, unlimited) * render_step();
    dy = std::min(dy, unlimited) * render_step();
    NeedRect grown;
    if (dx >= rect_limit || dy >= rect_limit) {
        need_rect_set_all(&grown);
    } else {
        grown = {held(rect.min_x - dx), held(rect.max_x + dx), held(rect.min_y - dy), held(rect.max_y + dy), 0};
    }
    need_rect_union(grown, target);
}

bool need_varies(const Node* node, int i) { return !is_constant(node->args[i]); }

int32_t need_value(const Node* node, int i, int e) { return node->args[i]->vals[e]; }

int64_t need_largest(const Node* node, int i, int64_t least) {
    int64_t most = least;
    for (int e = 0; e < node->args[i]->elnum; ++e) {
        const int64_t v = need_value(node, i, e);
        most = std::max(most, v < 0 ? -v : v);
    }
    return most;
}

int32_t need_scaled_amount(int64_t amount, int64_t scale) {
    return static_cast<int32_t>(std::clamp<int64_t>((amount * scale) >> fix_bits, 0, INT32_MAX));
}

NeedReach need_arg_reach(const Node* node, int i) {
    if (need_varies(node, i)) return reach_everywhere;
    return {filter_reach(need_value(node, i, 0)), filter_reach(need_value(node, i, 1))};
}

void need_around(Node* node, int n_images, NeedReach reach) {
    for (int i = 0; i < n_images; ++i) need_with_reach(node, i, reach);
    default_need_rect(node, n_images);
}

NeedRect* node_need_rect(Node* node) {
    if (!node->need_rect) {
        node->need_rect = static_cast<NeedRect*>(safe_malloc(sizeof(NeedRect)));
        need_rect_clear(node->need_rect);
    }
    return node->need_rect;
}

void default_need_rect(Node* node, int first_arg) {
    const NeedRect rect = *node_need_rect(node);
    for (int i = first_arg; i < node->eval_arg_number; ++i) {
        if (need_varies(node, i)) need_rect_union(rect, node_need_rect(node->args[i]));
    }
}

void need_rect_walk(Genotype* genotype, const NeedRect& root_rect) {
    for (int i = 0; i < genotype->node_number; ++i) {
        if (genotype->nodes[i].need_rect) need_rect_clear(genotype->nodes[i].need_rect);
    }
    Node* root = genotype->nodes;
    while (root->pass_arg >= 0 && root->pass_arg < root->arg_number && !is_constant(root))
        root = root->args[root->pass_arg];
    *node_need_rect(root) = root_rect;
    for (int i = 0; i < genotype->node_number; ++i) {
        Node* node = &genotype->nodes[i];
        if (node->type != node_function || is_constant(node) || !node->need_rect || node->need_rect->empty) continue;
        if (node->fun_info->def_flags & def_needs_whole_plane) {
            for (int a = 0; a < node->eval_arg_number; ++a) need_all_of(node, a);
        } else if (node->fun_info->need_rect_fun) {
            node->fun_info->need_rect_fun(node);
        } else {
            default_need_rect(node, 0);
        }
    }
}

// Coordinates may lead anywhere, and wrapping round the frame's edges lies within the whole plane too.
void need_rect_plane(Node* node) {
    need_all_of(node, 0);
    default_need_rect(node, 1);
}

void need_rect_two_planes(Node* node) {
    need_all_of(node, 0);
    need_all_of(node, 1);
    default_need_rect(node, 2);
}

// An aperture's corners lie up to a tenth beyond the radius, its edge half a sample.
void need_rect_defocus(Node* node) {
    const NeedReach r = need_arg_reach(node, 1);
    need_around(node, 1, {r.x + r.x / 8 + 2, r.y + r.y / 8 + 2});
}

void need_rect_glow(Node* node) {
    constexpr int width_xy = 2, width = 3;
    if (need_varies(node, width_xy) || need_varies(node, width)) return need_around(node, 1, reach_everywhere);
    const int64_t w = need_largest(node, width, 0);
    need_around(node, 1,
                {filter_reach(need_scaled_amount(need_value(node, width_xy, 0), w)),
                 filter_reach(need_scaled_amount(need_value(node, width_xy, 1), w))});
}

}  // namespace velloran
