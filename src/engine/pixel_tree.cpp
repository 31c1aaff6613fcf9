// The nodes of a pass in evaluation order, and the lines they work on.

#include "compile/compile.h"
#include "compile/compile_parts.h"
#include "engine/evaluate.h"
#include "engine/passes.h"
#include "records/run_state.h"
#include "support/abort.h"
#include "support/errors.h"

#include <algorithm>

namespace velloran {

Node* eval_nodes[MAX_EVAL_NODES];
int eval_node_count = 0;

namespace {

void walk_tree(Node* node, int mode) {
    if (node->mark || is_constant(node)) return;
    if (node->type != node_function && !node->image_count) return;
    node->mark = 1;
    const bool leaf = node->image_count && mode == eval_as_leaf;
    if (node->type == node_function && !leaf) {
        const bool image_fun = node->fun_info->image_fun_p;
        for (int a = 0; a < node->eval_arg_number; ++a) {
            if (node->pass_arg >= 0 && a != node->pass_arg) continue;
            if (image_fun && a == node->fun_info->image_arg) continue;
            walk_tree(node->args[a], eval_as_leaf);
        }
    }
    if (node->pass_arg >= 0) return;
    if (eval_node_count >= MAX_EVAL_NODES) {
        V_error(level_error, "eval_nodes_array overflow");
        fatal_abort(1);
        return;
    }
    if (node->image_count) node->eval_fun = leaf || !node->pixel_fun ? image_line_reader : node->pixel_fun;
    eval_nodes[eval_node_count++] = node;
}

}  // namespace

void build_eval_nodes(Node* node, int mode) {
    eval_node_count = 0;
    clear_marks(Globals_V4->effect_genotype);
    // An image function's value is read from its images whoever asks; it is made by its image function alone.
    if (node->image_fun) mode = eval_as_leaf;
    walk_tree(node, mode);
    for (int i = 0; i < eval_node_count; ++i) {
        eval_nodes[i]->mark = 0;
        if (eval_nodes[i]->type != node_function) continue;
        for (int a = 0; a < eval_nodes[i]->arg_number; ++a) eval_nodes[i]->args[a]->ref_index = -1;
    }
    for (int i = 0; i < eval_node_count; ++i) eval_nodes[i]->ref_index = static_cast<int16_t>(i);
}

void assign_line_slots(LineSlots* slots) {
    int last_reader[MAX_EVAL_NODES];
    std::fill_n(last_reader, eval_node_count, -1);
    const auto reads_args = [](const Node* node) {
        return node->type == node_function && node->eval_fun != image_line_reader;
    };
    for (int i = 0; i < eval_node_count; ++i) {
        const Node* node = eval_nodes[i];
        for (int a = 0; reads_args(node) && a < node->eval_arg_number; ++a)
            if (node->args[a]->ref_index >= 0) last_reader[node->args[a]->ref_index] = i;
    }
    if (eval_node_count) last_reader[eval_node_count - 1] = MAX_EVAL_NODES;  // the root goes out

    int16_t free_slots[MAX_EVAL_NODES * 4];
    int n_free = 0;
    slots->count = 0;
    const auto release = [&](int i) {
        for (int e = eval_nodes[i]->elnum - 1; e >= 0; --e) free_slots[n_free++] = slots->slot[i][e];
    };
    for (int i = 0; i < eval_node_count; ++i) {
        for (int e = 0; e < eval_nodes[i]->elnum; ++e)
            slots->slot[i][e] = n_free ? free_slots[--n_free] : static_cast<int16_t>(slots->count++);
        if (last_reader[i] < 0) release(i);
        const Node* node = eval_nodes[i];
        for (int a = 0; reads_args(node) && a < node->eval_arg_number; ++a) {
            const int arg = node->args[a]->ref_index;
            if (arg < 0 || last_reader[arg] != i) continue;
            last_reader[arg] = MAX_EVAL_NODES;  // an argument given twice is released once
            release(arg);
        }
    }
}

}  // namespace velloran
