// Rows are sorted so that users come before their arguments: one walk over the table in its order has every region
// complete before it is passed on. A reach that cannot be known before the frame (an argument that varies over it)
// makes the whole plane needed: too much costs time, too little would show.
#include "compile/need_rect.h"

#include "compile/need_reach.h"
#include "frame/filter_radius.h"
#include "records/genotype.h"
#include "records/node.h"
#include "records/rinfo.h"
#include "records/run_state.h"
#include "support/memory.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

constexpr int rect_limit = 32767;
constexpr int64_t unlimited = rect_limit;

int16_t held(int64_t v) { return static_cast<int16_t>(std::clamp<int64_t>(v, -rect_limit, rect_limit)); }

int render_step() { return std::max(the_frame->render_info.render_step, 1); }

}  // namespace

void need_rect_clear(NeedRect* rect) { *rect = {0, 0, 0, 0, 1}; }

void need_rect_set_all(NeedRect* rect) { *rect = {-rect_limit, rect_limit, -rect_limit, rect_limit, 0}; }

void need_rect_set(NeedRect* rect, int64_t x0, int64_t y0, int64_t x1, int64_t y1) {
    if (x0 > x1 || y0 > y1)
        need_rect_clear(rect);
    else
        *rect = {held(x0), held(x1), held(y0), held(y1), 0};
}

void need_rect_crop(NeedRect* rect, int64_t left, int64_t right, int64_t down, int64_t up) {
    if (rect->empty) return;
    need_rect_set(rect, rect->min_x + left, rect->min_y + down, rect->max_x - right, rect->max_y - up);
}

void need_rect_scale(NeedRect* rect, double x, double y) {
    if (rect->empty) return;
    const auto low = [](double v) { return static_cast<int64_t>(std::floor(std::clamp(v, -1e9, 1e9))); };
    const auto high = [](double v) { return static_cast<int64_t>(std::ceil(std::clamp(v, -1e9, 1e9))); };
    need_rect_set(rect, low(rect->min_x * x), low(rect->min_y * y), high(rect->max_x * x), high(rect->max_y * y));
}

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
        if (!is_constant(node->args[i])) need_rect_union(rect, node_need_rect(node->args[i]));
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
            for (int a = 0; a < node->eval_arg_number; ++a) need::all_of(node, a);
        } else if (node->fun_info->need_rect_fun) {
            node->fun_info->need_rect_fun(node);
        } else {
            default_need_rect(node, 0);
        }
    }
}

// Coordinates may lead anywhere, and wrapping round the frame's edges lies within the whole plane too. A constant
// picture has its borders all the same, and only the whole frame shows where they are.
void need_rect_plane(Node* node) {
    default_need_rect(node, 1);
    if (need::varies(node, 0))
        need::all_of(node, 0);
    else
        need_rect_set_all(node_need_rect(node));
}

void need_rect_two_planes(Node* node) {
    need::all_of(node, 0);
    need::all_of(node, 1);
    default_need_rect(node, 2);
}

}  // namespace velloran
