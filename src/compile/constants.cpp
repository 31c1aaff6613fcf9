// The update before a frame: values of params into the constant nodes, the value of everything that is constant for the
// frame, and which nodes only pass an argument through. Constants are folded by the pixel functions themselves, on
// lines of one sample, so that a folded value never differs from an evaluated one.

#include "compile/compile.h"
#include "compile/compile_parts.h"
#include "compile/node_states.h"
#include "genotype/node_table.h"
#include "support/abort.h"
#include "support/errors.h"

#include <algorithm>

namespace velloran {

namespace {

void fold_image_arg(Node* node) {
    const int image_arg = node->fun_info->image_arg;
    if (image_arg < 0) {
        V_error(level_error, "set_fun_node_constant_val: image_arg_index < 0");
        fatal_abort(1);
        return;
    }
    std::copy_n(node->args[image_arg]->vals, 4, node->vals);
}

// At rest a node's lines are its vals.
void set_fun_node_constant_val(Node* node) {
    const NodeFun* fun = node->fun_info;
    if (fun->fold_fun) {
        fun->fold_fun(node);
    } else if (fun->image_fun_p) {
        fold_image_arg(node);
    } else {
        make_nodes_array_caches(&node, 1);
        node->pixel_fun(node);
        free_nodes_array_caches(&node, 1);
    }
}

void find_pass_arg(Node* node) {
    node->pass_arg = -1;
    if (is_constant(node) || !node->fun_info->pass_arg_fun) return;
    const int a = node->fun_info->pass_arg_fun(node);
    if (a < 0) return;
    const Node* arg = node->args[a];
    if (!is_constant(arg)) {
        if (arg->elnum != node->elnum) return;
        if (node->image_count && arg->type != node_var) return;
    }
    node->pass_arg = static_cast<int8_t>(a);
    if (!is_constant(arg)) return;
    node->flags |= node_constant_p;
    std::copy_n(arg->vals, 4, node->vals);
}

void point_at_effective_args(Genotype* genotype, Node* node) {
    for (int a = 0; a < node->arg_number; ++a) {
        Node* arg = maybe_pass_through_args(written_arg(genotype, node, a));
        node->args[a] = arg;
        node->arg_lines[a] = arg->lines;
        node->arg_vals[a] = arg->vals;
    }
}

}  // namespace

Node* maybe_pass_through_args(Node* node) {
    while (node->pass_arg >= 0 && !is_constant(node)) {
        if (node->pass_arg >= node->arg_number) {
            V_error(level_warning, "maybe_pass_through_args: node %s, pass_arg %d >= arg_number %d",
                    node->name ? node->name : "", node->pass_arg, node->arg_number);
            break;
        }
        node = node->args[node->pass_arg];
    }
    return node;
}

void set_effective_args(Genotype* genotype) {
    for (int i = genotype->node_number - 1; i >= 0; --i) {
        Node* node = &genotype->nodes[i];
        if (node->type == node_function) point_at_effective_args(genotype, node);
    }
}

void copy_params_to_nodes(Genotype* genotype) {
    for (int p = 0; p < genotype->param_number; ++p) {
        const Param* param = genotype->params[p];
        if (!param || !param->node) continue;
        Node* node = param->node;
        const int given = std::clamp<int>(param->n_channels, 1, 4);
        for (int e = 0; e < 4; ++e) node->vals[e] = float_to_fix(param->value[std::min(e, given - 1)]);
    }
}

void update_genotype_constants(Genotype* genotype) {
    const int n_pixels_before = n_pixels;
    n_pixels = 1;
    for (int i = genotype->node_number - 1; i >= 0; --i) {
        Node* node = &genotype->nodes[i];
        if (node->type == node_function) {
            point_at_effective_args(genotype, node);
            node_constant_test(node);
            if (is_constant(node)) set_fun_node_constant_val(node);
        }
        if (is_constant(node)) pad_constant(node);
        if (node->type == node_function) find_pass_arg(node);
    }
    n_pixels = n_pixels_before;
}

}  // namespace velloran
