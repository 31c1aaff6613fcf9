// Who reads what. A reader is a pass: within one pixel tree a node is evaluated once a line however many users it has,
// so only readers in different passes make a value worth keeping in images. The two sides of a branch node whose test
// is the same for the whole frame never run in one frame, so a reader on each side counts as one.

#include "compile/compile.h"
#include "compile/compile_parts.h"

#include <algorithm>

namespace velloran {

namespace {

constexpr uint16_t no_context = 65535;
constexpr int other_args_context =
    1000;  // an image function reads its image argument in one pass, the others in another

uint32_t if_then_mask, if_else_mask;  // sides on the way from the root to the node in hand

// Drops the branches of mask from a sub-tree that is read from both of their sides. ref_index holds the number of the
// last call that came by, so that a node with several users in the sub-tree is handled once.
void remove_branch_bits(Node* node, uint32_t mask, int16_t call) {
    if (!varying_function_p(*node) || node->ref_index == call) return;
    node->ref_index = call;
    if (!(mask & node->if_mask)) {
        node->ref_count = static_cast<int8_t>(std::min(node->ref_count + 1, 100));
        return;
    }
    node->if_mask = (node->if_mask & ~mask) | if_then_mask;
    for (int a = 0; a < node->eval_arg_number; ++a) remove_branch_bits(node->args[a], mask, call);
}

struct RefWalk {
    Genotype* genotype;
    int16_t branch_calls;
};

void count_node(RefWalk& walk, Node* node, int context) {
    // A count is asked for only whether it is above 1; it may not wrap.
    const auto add_reader = [node] { node->ref_count = static_cast<int8_t>(std::min(node->ref_count + 1, 100)); };
    if (!varying_function_p(*node)) {
        if (node->image_count) {
            add_reader();
            node->mark = static_cast<uint16_t>(context);
        }
        return;
    }
    if (node->ref_count == 0) {
        if (!node->image_count) {
            const uint32_t bit = node->if_arg >= 0 ? 1u << node->if_bit : 0;
            if_then_mask |= bit;
            for (int a = 0; a < node->eval_arg_number; ++a) {
                if (a == node->if_arg) {
                    if_then_mask &= ~bit;
                    if_else_mask |= bit;
                }
                count_node(walk, node->args[a], context);
            }
            if_then_mask &= ~bit;
            if_else_mask &= ~bit;
        } else {
            const int own = static_cast<int>(node - walk.genotype->nodes);
            for (int a = 0; a < node->eval_arg_number; ++a)
                count_node(walk, node->args[a], own + (a == node->fun_info->image_arg ? 0 : other_args_context));
        }
    }
    if (context == node->mark) {
        node->if_mask = if_then_mask;
        return;
    }
    const uint32_t both_sides = node->if_mask & if_else_mask;
    if (!both_sides)
        add_reader();
    else if (node->ref_count < 2)
        remove_branch_bits(node, both_sides, --walk.branch_calls);
    node->mark = static_cast<uint16_t>(context);
    node->if_mask = if_then_mask;
}

bool made_of_pixels(const Node* node) {
    if (!varying_function_p(*node)) return true;
    if (node->fun_info->image_fun_p) return false;
    return std::all_of(node->args, node->args + node->eval_arg_number, made_of_pixels);
}

// Coordinates that a warp reads line by line: an image would hold nothing beyond 8, where repeated pictures go on, and
// to read one takes as long as to compute most of them.
bool read_as_coordinates(const Node* node, int arg) {
    constexpr uint32_t coordinates = 32 | 64;  // bits of arg_restrictions
    const NodeFun& fun = *node->fun_info;
    return (fun.category == category_warp || fun.category == category_pattern) && arg > 0 &&
           (fun.arg_restrictions[arg] & coordinates) && made_of_pixels(node->args[arg]);
}

// An image for every largest static sub-tree that feeds something changing: it then need not be made again.
void give_images_to_boundaries(Genotype* genotype) {
    Node* root = &genotype->nodes[0];
    if (varying_function_p(*root) && !(root->flags & node_volatile)) root->ref_count = 2;
    for (int i = 0; i < genotype->node_number; ++i) {
        Node* node = &genotype->nodes[i];
        if (!varying_function_p(*node) || !(node->flags & node_volatile)) continue;
        for (int a = 0; a < node->eval_arg_number; ++a) {
            Node* arg = node->args[a];
            if (varying_function_p(*arg) && !(arg->flags & node_volatile) && !read_as_coordinates(node, a))
                arg->ref_count = 2;
        }
    }
}

void walk_direct(Node* node, bool direct) {
    if (node->type != node_function || !(node->flags & node_direct)) return;
    const bool kept = node->in_cache_images && !(node->flags & node_changed) && cache_images_p;
    const bool own = direct && !kept;
    if (node->mark && own) return;  // came by before with the same answer
    node->mark = 1;
    if (!own) node->flags &= static_cast<uint8_t>(~node_direct);
    const bool below = own && !(node->fun_info->fun_flags & fun_has_need_rect);
    for (int a = 0; a < node->eval_arg_number; ++a) walk_direct(node->args[a], below);
}

}  // namespace

void count_refs(Genotype* genotype, bool boundary_images) {
    // Plans are made on the arguments as written; the update before a frame follows pass-through again.
    for (int i = 0; i < genotype->node_number; ++i) {
        Node& node = genotype->nodes[i];
        node.ref_count = 0;
        node.if_mask = 0;
        node.ref_index = 0;
        node.mark = no_context;
        if (node.type != node_function) continue;
        for (int a = 0; a < node.arg_number; ++a) node.args[a] = written_arg(genotype, &node, a);
    }
    if_then_mask = if_else_mask = 0;
    RefWalk walk = {genotype, 0};
    count_node(walk, &genotype->nodes[0], 0);
    if (boundary_images) give_images_to_boundaries(genotype);
}

void find_spatial_functions(Genotype* genotype) {
    clear_marks(genotype);
    for (int i = 0; i < genotype->node_number; ++i) genotype->nodes[i].flags |= node_direct;
    walk_direct(&genotype->nodes[0], true);
    for (int i = 0; i < genotype->node_number; ++i) {
        const Node& node = genotype->nodes[i];
        if (node.type == node_function && (node.fun_info->fun_flags & fun_has_need_rect))
            genotype->effect_flags_1 |= effect_has_spatial;
    }
}

bool spatial_reads_input_p(const Genotype* genotype) {
    // mark: an input is among what the node is made from. Arguments come before their users on the way up.
    for (int i = genotype->node_number - 1; i >= 0; --i) {
        Node& node = genotype->nodes[i];
        node.mark = is_input(&node);
        if (node.type != node_function) continue;
        for (int a = 0; a < node.eval_arg_number; ++a) node.mark |= genotype->nodes[node.arg_indices[a]].mark;
        if (node.mark && (node.fun_info->fun_flags & fun_has_need_rect)) return true;
    }
    return false;
}

}  // namespace velloran
