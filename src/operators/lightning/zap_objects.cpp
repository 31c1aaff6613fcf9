// Lightning that goes to an object, or leaves one.
#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/blur/mask_rows.h"
#include "operators/flares/draw_flare.h"
#include "operators/lightning/bolt_tree.h"
#include "operators/lightning/lightning_functions.h"
#include "operators/lightning/object_edge.h"
#include "operators/lightning/zap_args.h"
#include "support/hash.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

constexpr int arg_object = 0;
constexpr float tau = 6.2831853f;
constexpr int most_tips = 1000;  // of all trees of a frame

enum ZapToArg : int { to_arg_center = 1, to_arg_radius, to_arg_bolts_points, to_arg_width_vary };
enum ZapFromArg : int { from_arg_max_len_vary = 1, from_arg_vary_spacing, from_arg_bolts, from_arg_width_vary };
enum ZapFromMaskArg : int { mask_arg_mask = 1, mask_arg_len_vary_spacing, mask_arg_bolts, mask_arg_width_vary };

// A copy of the object, which lies in the plane that bolts are drawn into. Freed with frame_free.
FixPixel* copy_object(const Node* node) {
    const FilterFrame frame = filter_frame();
    auto* const object = static_cast<FixPixel*>(frame_malloc(frame.bytes()));
    mp_memcpy(object, node->images[0], frame.bytes());
    return object;
}

// How a tree is drawn: from where it hangs to its tips. Paths are as wide as what hangs on them.
struct TreeLook {
    const BoltLook* look;
    uint32_t number;  // of its first path
    float longest;    // from the root's hold to the farthest tip
};

float path_length(float ax, float ay, const BoltNodeTree& to) { return std::hypot(to.x - ax, to.y - ay); }

float longest_way(const BoltNodeTree& node, float ax, float ay) {
    const float here = path_length(ax, ay, node);
    if (!node.child0) return here;
    return here + std::max(longest_way(*node.child0, node.x, node.y), longest_way(*node.child1, node.x, node.y));
}

void add_tree(BoltStrokes* all, const TreeLook& tree, const BoltNodeTree& node, const BoltNodeTree* first, float ax,
              float ay, float done) {
    const float length = path_length(ax, ay, node), most = std::max(tree.longest, 1e-6f);
    const float width = std::sqrt(node.start_ratio);
    BoltPiece piece;
    piece.a_width = width;
    piece.b_width = node.child0 ? std::sqrt(std::max(node.child0->start_ratio, node.child1->start_ratio)) : width;
    piece.from = done / most;
    piece.to = node.child0 ? (done + length) / most : 1;
    add_bolt(all, {ax, ay, node.x, node.y}, *tree.look, tree.number + static_cast<uint32_t>(&node - first), piece);
    if (!node.child0) return;
    add_tree(all, tree, *node.child0, first, node.x, node.y, done + length);
    add_tree(all, tree, *node.child1, first, node.x, node.y, done + length);
}

void add_root(BoltStrokes* all, const BoltLook& look, uint32_t number, BoltNodeTree& root, const BoltNodeTree* first,
              const BoltTarget& hold) {
    set_bolt_node_tree_positions(&root, hold);
    set_bolt_node_tree_start_ratios(&root);
    const TreeLook tree = {&look, number, longest_way(root, hold.x, hold.y)};
    add_tree(all, tree, root, first, hold.x, hold.y, 0);
}

// Bolts of so many end points each, from points around a centre to the object's edge.
void add_bolts_to(BoltStrokes* all, const Node* node, const BoltCanvas& canvas, const ObjectEdge& edge,
                  const BoltLook& look) {
    const int n_bolts = read_bolt_count(node, to_arg_bolts_points, 0);
    const int n_points = std::min(std::max(read_bolt_count(node, to_arg_bolts_points, 1), 1),
                                  std::max(most_tips / std::max(n_bolts, 1), 1));
    const float x = bolt_x(canvas, sample_of_pixel(static_cast<double>(filter_arg_float(node, to_arg_center, 0)))),
                y = bolt_y(canvas, sample_of_pixel(static_cast<double>(filter_arg_float(node, to_arg_center, 1)))),
                radius = std::clamp(filter_arg_float(node, to_arg_radius), 0.0f, 8.0f);
    auto* const nodes = frame_array<BoltNodeTree>(2 * static_cast<size_t>(n_points));
    for (int b = 0; b < n_bolts && !poll_abort(); ++b) {
        const auto number = static_cast<uint32_t>(b) * 4096;
        int n = 0;
        for (int i = 0; i < n_points; ++i) {
            const EdgePoint* const point = pick_edge_point(edge, look, static_cast<uint32_t>(b * n_points + i), 1);
            nodes[n] = {};
            nodes[n].x = point->x;
            nodes[n].y = point->y;
            nodes[n++].ratio = 1;
        }
        const float turn = tau * static_cast<float>(unit_hash(bit_hash2(look.seed + 31, number)));
        const BoltTarget target = {x + radius * std::cos(turn), y + radius * std::sin(turn)};
        const int used = build_bolt_tree(nodes, n, target);
        for (int i = 0; i < used; ++i)
            if (!nodes[i].parent && nodes[i].ratio > 0) add_root(all, look, number, nodes[i], nodes, target);
    }
    frame_free(nodes);
}

struct Outside {
    const BoltCanvas* canvas;
    const FixPixel* object;
    int32_t threshold;
};

bool is_outside(const void* context, float x, float y) {
    const Outside& o = *static_cast<const Outside*>(context);
    const BoltCanvas& c = *o.canvas;
    const int i = static_cast<int>(std::lround(x * c.unit)) - c.left,
              j = static_cast<int>(std::lround(y * c.unit / c.aspect)) - c.bottom;
    if (i < 0 || j < 0 || i >= c.width || j >= c.height) return true;
    return o.object[ptrdiff_t{j} * c.width + i] < o.threshold;
}

// How bolts leave an object.
struct FromSettings {
    float most_length, vary, spacing;
    int bolts;
};

// Bolts grow out of the edge to tips, which join on their way back where that lies outside the object.
void add_bolts_from(BoltStrokes* all, const BoltCanvas& canvas, const FixPixel* object, int32_t threshold,
                    const ObjectEdge& edge, const FromSettings& from, const BoltLook& look) {
    if (from.bolts == 0) return;
    auto* const nodes = frame_array<BoltNodeTree>(2 * static_cast<size_t>(from.bolts));
    auto* const feet = frame_array<BoltTarget>(static_cast<size_t>(from.bolts));
    BoltTarget middle = {0, 0};
    for (int i = 0; i < from.bolts; ++i) {
        const auto number = static_cast<uint32_t>(i);
        const EdgePoint* const point = pick_edge_point(edge, look, number, 1 - from.spacing);
        const float chance = static_cast<float>(unit_hash(bit_hash2(look.seed + 17, number)));
        const float length = from.most_length * (1 - from.vary * chance);
        nodes[i] = {};
        nodes[i].x = point->x + point->out_x * length;
        nodes[i].y = point->y + point->out_y * length;
        nodes[i].ratio = 1;
        stray(&nodes[i].x, &nodes[i].y, 0.25f * length, look, number);
        feet[i] = {point->x, point->y};
        middle.x += point->x / static_cast<float>(from.bolts);
        middle.y += point->y / static_cast<float>(from.bolts);
    }
    const Outside outside = {&canvas, object, threshold};
    const BoltGround ground = {is_outside, &outside};
    const int used = build_bolt_tree(nodes, from.bolts, middle, &ground);
    for (int i = 0; i < used && !poll_abort(); ++i) {
        if (nodes[i].parent || !(nodes[i].ratio > 0)) continue;
        // A bolt alone stands where it left; a tree on the foot of one of its own.
        const BoltNodeTree* tip = &nodes[i];
        while (tip->child0) tip = tip->child0;
        add_root(all, look, 0, nodes[i], nodes, feet[tip - nodes]);
    }
    frame_free(nodes);
    frame_free(feet);
}

void zap_from(Node* node, int arg_first_look, const FixPixel* mask, const FromSettings& from) {
    FixPixel* const object = copy_object(node);
    const BoltLook look = read_bolt_look(node, arg_first_look);
    const int32_t threshold = std::max(filter_arg(node, arg_first_look + look_threshold_show, 0), 1);
    const BoltCanvas canvas = bolt_canvas(node->images[0]);
    const ObjectEdge edge = find_object_edge(canvas, object, mask, threshold);
    BoltStrokes all = {};
    if (edge.count > 0) add_bolts_from(&all, canvas, object, threshold, edge, from, look);
    frame_free(edge.points);
    finish_bolts(node, &all, object, filter_arg_float(node, arg_first_look + look_threshold_show, 1));
    frame_free(object);
}

float share(const Node* node, int arg, int e) { return std::clamp(filter_arg_float(node, arg, e), 0.0f, 1.0f); }
float length_of(const Node* node, int arg) { return std::clamp(filter_arg_float(node, arg, 0), 0.0f, 8.0f); }

}  // namespace

void image_zap_to(Node* node) {
    eval_node_tree_into_images(node->args[arg_object], node->images, node->image_index, 1);
    FixPixel* const object = copy_object(node);
    constexpr int threshold_show = int{to_arg_width_vary} + look_threshold_show;
    const BoltLook look = read_bolt_look(node, to_arg_width_vary);
    const BoltCanvas canvas = bolt_canvas(node->images[0]);
    const ObjectEdge edge = find_object_edge(canvas, object, nullptr, filter_arg(node, threshold_show, 0));
    BoltStrokes all = {};
    if (edge.count > 0) add_bolts_to(&all, node, canvas, edge, look);
    frame_free(edge.points);
    finish_bolts(node, &all, object, filter_arg_float(node, threshold_show, 1));
    frame_free(object);
}

void image_zap_from(Node* node) {
    eval_node_tree_into_images(node->args[arg_object], node->images, node->image_index, 1);
    zap_from(node, from_arg_width_vary, nullptr,
             {length_of(node, from_arg_max_len_vary), share(node, from_arg_max_len_vary, 1),
              share(node, from_arg_vary_spacing, 0), read_bolt_count(node, from_arg_bolts)});
}

// The mask also holds what is drawn: bolts end where it does.
void image_zap_from_mask(Node* node) {
    eval_node_tree_into_images(node->args[arg_object], node->images, node->image_index, 1);
    const FilterFrame frame = filter_frame();
    FixPixel* const mask = node->images[1];
    eval_node_tree_into_images(node->args[mask_arg_mask], node->images + 1, node->image_index + 1, 1);
    zap_from(node, mask_arg_width_vary, mask,
             {length_of(node, mask_arg_len_vary_spacing), share(node, mask_arg_len_vary_spacing, 1),
              share(node, mask_arg_len_vary_spacing, 2), read_bolt_count(node, mask_arg_bolts)});
    const MaskRows& rows = mask_rows();
    fork_rows_if_big_image(frame.width, frame.height, [&](int first, int n) {
        const ptrdiff_t at = ptrdiff_t{first} * frame.width;
        rows.apply_mask(node->images[0] + at, mask + at, n * frame.width);
    });
}

}  // namespace velloran
