// The plan of which node uses which plane: a stack over the evaluation order. A result takes the place of its last
// argument, so a chain of filters needs the planes of one; all arguments of a branch node start at the same slot, since
// only one side runs. What several readers want or what outlives the frame goes to the cache pool, where every node has
// slots of its own.
//
// The stack knows nothing of a value that is read once more after its place in the tree was left: through a shared
// sub-expression that became an image node, or from a branch that cannot be decided for the frame as a whole. So the
// plan is checked against the order of evaluation, and a value that would be overwritten while it is still wanted moves
// to the cache pool.

#include "compile/compile.h"
#include "compile/compile_parts.h"
#include "support/errors.h"
#include "support/memory.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace velloran {

namespace {

constexpr int slot_owner_number = 100;

struct SlotPlan {
    Genotype* genotype;
    int next_slot, temp_max;
    int cache_next, cache_max;
    int branch_recurse_count;
    uint8_t owners[slot_owner_number];  // var_index of the input that holds a slot
};

bool keeps_own_images(const Node& node) {
    return node.type == node_function && (node.fun_info->fun_flags & fun_keeps_own_images);
}

int free_input_slots(SlotPlan& plan, const Node* node) {
    int slot = plan.next_slot;
    for (int run = 0, s = slot; s < slot_owner_number; ++s) {
        run = plan.owners[s] ? 0 : run + 1;
        if (run < node->image_count) continue;
        slot = s + 1 - run;
        for (int k = slot; k <= s; ++k) plan.owners[k] = static_cast<uint8_t>(node->var_index);
        break;
    }
    return slot;
}

void take_slots(SlotPlan& plan, Node* node, int base) {
    plan.next_slot = base;
    if (node->ref_count < 2) {
        node->image_index = static_cast<int16_t>(is_input(node) ? free_input_slots(plan, node) : plan.next_slot);
        plan.temp_max = std::max<int>(plan.temp_max, node->image_index + node->image_count);
        // Work planes are free for the next node; the result's stay.
        plan.next_slot = node->image_index + node->elnum;
    } else {
        node->image_index = static_cast<int16_t>(plan.cache_next);
        plan.cache_max = std::max<int>(plan.cache_max, node->image_index + node->image_count);
        plan.cache_next += node->elnum;
    }
    node->image_end = static_cast<int16_t>(plan.next_slot);
}

void share_images(SlotPlan& plan, Node* node) {
    if (node->type != node_function && !node->image_count) return;
    if (node->mark) {
        const bool read_in_branch = plan.branch_recurse_count && node->ref_count < 2;
        if (read_in_branch && node->image_index >= plan.next_slot) plan.next_slot = node->image_end;
        return;
    }
    node->mark = 1;

    bool in_place = false;
    int first_arg = -1, last_arg = -1;
    if (node->type == node_function) {
        const NodeFun& fun = *node->fun_info;
        in_place = fun.image_fun_p && !(fun.fun_flags & fun_keeps_own_images);
        // A look-up may not overwrite what it reads; its image argument is made last all the same.
        (fun.def_flags & def_needs_mipmap ? last_arg : first_arg) = fun.image_arg;
        if (node->if_arg >= 0 && node->image_count) {
            const char* first_name = node->args[0]->name ? node->args[0]->name : "";
            V_error(level_warning, "*** WARNING %s %s %s has cache images, use (copy (%s...)) instead. \n",
                    plan.genotype->name, fun.name, first_name, fun.name);
        }
    }
    if (in_place) {
        for (int a = 0; a < node->eval_arg_number; ++a)
            if (a != first_arg && a != last_arg) share_images(plan, node->args[a]);
        if (last_arg >= 0 && last_arg < node->eval_arg_number) share_images(plan, node->args[last_arg]);
    }
    const int base = plan.next_slot;
    int high = base;
    if (in_place) {
        if (first_arg >= 0 && first_arg < node->eval_arg_number) share_images(plan, node->args[first_arg]);
    } else if (node->type == node_function) {
        for (int a = 0; a < node->eval_arg_number; ++a) {
            const bool else_branch = a == node->if_arg;
            plan.branch_recurse_count += else_branch;
            share_images(plan, node->args[a]);
            plan.branch_recurse_count -= else_branch;
            if (node->if_arg >= 0) {
                high = std::max(high, plan.next_slot);
                plan.next_slot = base;
            }
        }
    }
    if (!node->image_count || keeps_own_images(*node)) {
        if (node->if_arg >= 0)
            plan.next_slot = high;
        else
            high = plan.next_slot;
        node->image_index = node->image_end = static_cast<int16_t>(high);
        return;
    }
    take_slots(plan, node, base);
}

// ---- The check

struct Liveness {
    int* position;      // of the node's evaluation among all image nodes, -1 none
    int* last_read;     // twice the position of its last reader; odd: the reader may not work in its place
    uint32_t* on_then;  // branch nodes on whose then side, or on whose else side, the node is wanted only
    uint32_t* on_else;
};

bool pooled(const Node& node) { return node.image_count && node.ref_count < 2 && !keeps_own_images(node); }

// True if every frame goes one way: pass-through must be able to take the node out, whatever the values are.
bool always_decided(const Node& node) {
    if (node.if_arg < 0 || node.image_count) return false;
    for (int a = 0; a < node.if_arg - 1; ++a)
        if (node.args[a]->elnum != 1) return false;  // a vector may be above its limit in one element only
    return node.args[node.if_arg - 1]->elnum == node.elnum && node.args[node.if_arg]->elnum == node.elnum;
}

void find_branch_sides(const Genotype* genotype, Liveness& live) {
    std::fill_n(live.on_then, genotype->node_number, ~0u);
    std::fill_n(live.on_else, genotype->node_number, ~0u);
    live.on_then[0] = live.on_else[0] = 0;
    for (int i = 0; i < genotype->node_number; ++i) {
        const Node& node = genotype->nodes[i];
        if (!varying_function_p(node)) continue;
        const uint32_t bit = always_decided(node) ? 1u << node.if_bit : 0;
        for (int a = 0; a < node.eval_arg_number; ++a) {
            const int arg = node.arg_indices[a];
            live.on_then[arg] &= live.on_then[i] | (a == node.if_arg - 1 ? bit : 0);
            live.on_else[arg] &= live.on_else[i] | (a == node.if_arg ? bit : 0);
        }
    }
}

void number_image_nodes(const Genotype* genotype, Node* node, Liveness& live, int* count) {
    if (node->mark || !varying_function_p(*node)) return;
    node->mark = 1;
    const int image_arg = node->fun_info->image_arg;
    for (int a = 0; a < node->eval_arg_number; ++a)
        if (a != image_arg) number_image_nodes(genotype, node->args[a], live, count);
    if (image_arg >= 0 && image_arg < node->eval_arg_number)
        number_image_nodes(genotype, node->args[image_arg], live, count);
    if (node->image_count) live.position[node - genotype->nodes] = (*count)++;
}

// Notes what a pass reads: the image nodes at the ends of the pixel tree. mark keeps the number of the pass.
void note_reads(const Genotype* genotype, Node* node, int time, uint16_t pass, Liveness& live) {
    if (node->image_count) {
        int& last = live.last_read[node - genotype->nodes];
        last = std::max(last, time);
        return;
    }
    if (!varying_function_p(*node) || node->mark == pass) return;
    node->mark = pass;
    for (int a = 0; a < node->eval_arg_number; ++a) note_reads(genotype, node->args[a], time, pass, live);
}

void find_last_reads(Genotype* genotype, Liveness& live) {
    clear_marks(genotype);
    int count = 0;
    std::fill_n(live.position, genotype->node_number, -1);
    number_image_nodes(genotype, &genotype->nodes[0], live, &count);
    clear_marks(genotype);
    std::fill_n(live.last_read, genotype->node_number, -1);
    uint16_t pass = 0;
    note_reads(genotype, &genotype->nodes[0], INT_MAX, ++pass, live);
    for (int i = 0; i < genotype->node_number; ++i) {
        Node& node = genotype->nodes[i];
        if (live.position[i] < 0) continue;
        const NodeFun& fun = *node.fun_info;
        const bool in_place_arg = !(fun.def_flags & def_needs_mipmap) && !(fun.fun_flags & fun_keeps_own_images);
        for (int in_place = 0; in_place < 2; ++in_place) {
            ++pass;
            for (int a = 0; a < node.eval_arg_number; ++a) {
                // A pixel function's own pass writes each sample after all its reads of that sample.
                const bool here = !fun.image_fun_p || (in_place_arg && a == fun.image_arg);
                if (here == (in_place != 0))
                    note_reads(genotype, node.args[a], 2 * live.position[i] + !in_place, pass, live);
            }
        }
    }
}

bool spoils(const Genotype* genotype, const Liveness& live, int worker, int holder) {
    const Node& w = genotype->nodes[worker];
    const Node& h = genotype->nodes[holder];
    if (live.position[holder] >= live.position[worker] || live.last_read[holder] <= 2 * live.position[worker])
        return false;
    if (h.image_index >= w.image_index + w.image_count || w.image_index >= h.image_index + h.elnum) return false;
    return !(live.on_then[worker] & live.on_else[holder]) && !(live.on_else[worker] & live.on_then[holder]);
}

// Index of a node whose planes another one would overwrite too early, or -1.
int find_spoilt(const Genotype* genotype, const Liveness& live) {
    for (int h = 0; h < genotype->node_number; ++h) {
        if (live.position[h] < 0 || !pooled(genotype->nodes[h])) continue;
        for (int w = 0; w < genotype->node_number; ++w)
            if (w != h && live.position[w] >= 0 && pooled(genotype->nodes[w]) && spoils(genotype, live, w, h)) return h;
    }
    return -1;
}

void plan_slots(Genotype* genotype) {
    clear_marks(genotype);
    SlotPlan plan = {};
    plan.genotype = genotype;
    share_images(plan, &genotype->nodes[0]);
    if (plan.branch_recurse_count)
        V_error(level_warning, "WARNING: %s left share_images_branch_recurse_count %d \n", genotype->name,
                plan.branch_recurse_count);
    for (int i = 0; i < genotype->node_number; ++i) {
        Node& node = genotype->nodes[i];
        // Who is asked for no more than its element count is never made.
        if (!node.mark && !keeps_own_images(node)) node.image_count = 0;
        node.in_cache_images = node.image_count >= 1 && node.ref_count >= 2;
    }
    genotype->temp_image_number = plan.temp_max;
    genotype->cache_image_number = plan.cache_max;
}

}  // namespace

void assign_image_slots(Genotype* genotype) {
    plan_slots(genotype);
    int image_nodes = 0;
    for (int i = 0; i < genotype->node_number; ++i) image_nodes += genotype->nodes[i].image_count > 0;
    // More than can be evaluated are refused when the effect is selected; the check would only take its time over them.
    if (image_nodes > MAX_EVAL_IMAGE_NODES) return;
    const size_t n = static_cast<size_t>(genotype->node_number);
    Liveness live = {frame_array<int>(n), frame_array<int>(n), frame_array<uint32_t>(n), frame_array<uint32_t>(n)};
    find_branch_sides(genotype, live);
    find_last_reads(genotype, live);
    for (int spoilt; (spoilt = find_spoilt(genotype, live)) >= 0;) {
        genotype->nodes[spoilt].ref_count = 2;
        plan_slots(genotype);
    }
    frame_free(live.position);
    frame_free(live.last_read);
    frame_free(live.on_then);
    frame_free(live.on_else);
}

}  // namespace velloran
