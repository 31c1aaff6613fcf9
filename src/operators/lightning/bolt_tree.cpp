#include "operators/lightning/bolt_tree.h"

#include "support/user_abort.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

constexpr float worth_changing = 0.001f;  // by so much a new partner has to be nearer than the present one

float squared_distance(const BoltNodeTree& a, const BoltNodeTree& b) {
    return (a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y);
}

// On the line from the middle of the children to a goal, as far from it as they are from each other, held to most of
// the way.
BoltTarget place_of_joint(const BoltNodeTree& a, const BoltNodeTree& b, const BoltTarget& goal, float most) {
    const float x = 0.5f * (a.x + b.x), y = 0.5f * (a.y + b.y);
    const float dx = goal.x - x, dy = goal.y - y, way = std::sqrt(dx * dx + dy * dy);
    if (!(way > 0)) return {x, y};
    const float part = std::min(std::sqrt(squared_distance(a, b)) / way, most);
    return {x + dx * part, y + dy * part};
}

// The node with the greatest ratio that may still join; null if there is none.
BoltNodeTree* next_to_join(BoltNodeTree* nodes, int used) {
    BoltNodeTree* best = nullptr;
    for (int i = 0; i < used; ++i) {
        BoltNodeTree& node = nodes[i];
        if (!node.parent && !node.done && node.ratio > 0 && (!best || node.ratio > best->ratio)) best = &node;
    }
    return best;
}

bool below(const BoltNodeTree* node, const BoltNodeTree* root) {
    for (; node; node = node->parent)
        if (node == root) return true;
    return false;
}

BoltNodeTree* find_partner(BoltNodeTree* nodes, int used, const BoltNodeTree& node) {
    BoltNodeTree* best = nullptr;
    float nearest = 0;
    for (int i = 0; i < used; ++i) {
        BoltNodeTree& other = nodes[i];
        if (&other == &node || other.done || !(other.ratio > 0) || below(&other, &node)) continue;
        const float distance = squared_distance(node, other);
        if (best && distance >= nearest) continue;
        // One that is taken: only if that is better for it, and nothing hangs on the pair yet.
        if (other.parent && (other.parent->parent || !(distance < other.sibling_distance - worth_changing))) continue;
        best = &other;
        nearest = distance;
    }
    return best;
}

bool lean_alike(const BoltNodeTree& a, const BoltNodeTree& b, const BoltTarget& target) {
    return (target.x - a.x) * (target.x - b.x) + (target.y - a.y) * (target.y - b.y) > 0;
}

void part_from(BoltNodeTree* node) {
    node->parent = node->sibling = nullptr;
    node->sibling_distance = 0;
}

void bolt_join(BoltNodeTree* parent, BoltNodeTree* a, BoltNodeTree* b, const BoltTarget& place) {
    *parent = {};
    parent->x = place.x;
    parent->y = place.y;
    parent->ratio = a->ratio + b->ratio;
    parent->child0 = a;
    parent->child1 = b;
    a->parent = b->parent = parent;
    a->sibling = b;
    b->sibling = a;
    a->sibling_distance = b->sibling_distance = squared_distance(*a, *b);
}

}  // namespace

int build_bolt_tree(BoltNodeTree* nodes, int n, const BoltTarget& target, const BoltGround* ground) {
    int used = n;
    if (n < 2) return used;
    const auto place = [&](const BoltNodeTree& a, const BoltNodeTree& b) { return place_of_joint(a, b, target, 1.0f); };
    if (n == 2 && !ground) {
        bolt_join(&nodes[used++], &nodes[0], &nodes[1], place(nodes[0], nodes[1]));
        return used;
    }
    for (int round = 0; round < 10 * n; ++round) {
        if ((round & 15) == 0 && poll_abort()) break;
        BoltNodeTree* const node = next_to_join(nodes, used);
        if (!node) break;
        BoltNodeTree* const partner = find_partner(nodes, used, *node);
        const BoltTarget at = partner ? place(*node, *partner) : BoltTarget{};
        if (!partner || !lean_alike(*node, *partner, target) ||
            (ground && !ground->open(ground->context, at.x, at.y))) {
            node->done = true;
            continue;
        }
        BoltNodeTree* parent = partner->parent;
        if (parent) {
            part_from(partner->sibling);
            part_from(partner);
        } else if (used < 2 * n) {
            parent = &nodes[used++];
        } else {
            break;
        }
        bolt_join(parent, node, partner, at);
    }
    return used;
}

void set_bolt_node_tree_positions(BoltNodeTree* node, const BoltTarget& target) {
    if (!node->child0) return;
    // At most half of the way, so that a joint does not shoot over what it hangs on.
    const BoltTarget place = place_of_joint(*node->child0, *node->child1, target, 0.5f);
    node->x = place.x;
    node->y = place.y;
    set_bolt_node_tree_positions(node->child0, place);
    set_bolt_node_tree_positions(node->child1, place);
}

namespace {

void set_ratios(BoltNodeTree* node, float of_root) {
    node->start_ratio = node->ratio / of_root;
    if (!node->child0) return;
    set_ratios(node->child0, of_root);
    set_ratios(node->child1, of_root);
}

}  // namespace

void set_bolt_node_tree_start_ratios(BoltNodeTree* node) { set_ratios(node, std::max(node->ratio, 0.01f)); }

}  // namespace velloran
