// Element counts, constants, branches and changes: loops from the last row to the first, so that arguments are settled
// before their users.

#include "compile/compile.h"
#include "compile/compile_parts.h"
#include "genotype/node_fun_table.h"
#include "genotype/param_record.h"
#include "support/errors.h"
#include "texts/hints.h"

#include <cstdio>

namespace velloran {

namespace {

const char* shown_name(const Node* node) { return node->name ? node->name : "constant"; }

void report_no_combo(const Node* node) {
    char text[1024];
    const int size = sizeof text;
    int at = std::snprintf(text, size, "%s arg elnums: ", node->fun_info->name);
    for (int a = 0; a < node->arg_number && at < size; ++a) {
        const char* after = a + 1 < node->arg_number ? ", " : "";
        at += std::snprintf(text + at, static_cast<size_t>(size - at), "%s has %d%s", shown_name(node->args[a]),
                            node->args[a]->elnum, after);
    }
    if (at < size) std::snprintf(text + at, static_cast<size_t>(size - at), ".\n");
    V_error(level_error, "%s", text);
}

// Index of the else branch if the node's test, which is all that stands before the two sides, is the same for every
// pixel of a frame; else -1.
int branch_arg(const Node* node) {
    const int else_arg = node->fun_info->else_arg;
    if (else_arg < 0 || is_constant(node)) return -1;
    for (int a = 0; a < else_arg - 1; ++a)
        if (!is_constant(node->args[a])) return -1;
    return else_arg;
}

void invalidate_images(Genotype* genotype, Node* node) {
    if (!(node->flags & node_images_valid) && node->image_count) return;  // the sub-tree went with it
    if (node->ref_count < 2) node->flags &= static_cast<uint8_t>(~node_images_valid);
    if (node->type != node_function || node->mark) return;
    node->mark = 1;  // once is enough, and shared nodes have many ways to them
    for (int a = 0; a < node->eval_arg_number; ++a) {
        Node* arg = written_arg(genotype, node, a);
        if (arg->type == node_function) invalidate_images(genotype, arg);
    }
}

// Whether a function's value may differ from the last frame's. Looks at the arguments as written: a branch that now
// passes another side on has changed though neither side did. A branch stands for the side that it passes on as long as
// the constants that decided it stand. Other functions are not so strict: the blur of a constant is that constant, of
// anything else it may be 0, and an argument may have been a constant the frame before.
bool function_changed(Genotype* genotype, const Node* node) {
    if (node->fun_info->fun_flags & (fun_changes_each_frame | fun_no_cache)) return true;
    const bool takes_side = node->if_arg >= 0 && node->pass_arg >= 0;
    for (int a = 0; a < node->eval_arg_number; ++a) {
        const Node* arg = written_arg(genotype, node, a);
        if (!(arg->flags & node_changed)) continue;
        if (!takes_side || node->pass_arg == a || is_constant(arg)) return true;
    }
    return false;
}

}  // namespace

bool find_node_combo(Genotype*, Node* node) {
    const NodeFun* fun = node->fun_info;
    const int c = find_combo(node);
    if (c < 0) {
        if (!hint_printer) report_no_combo(node);  // an author is told more, see compile/load.cpp
        return false;
    }
    node->elnum = static_cast<int8_t>(combo_return_elnum(fun->arg_type_combos[c]));
    const PixelFun code = fun->pixel_funs[c];
    node->image_fun = fun->image_fun_p ? code : nullptr;
    node->pixel_fun = fun->image_fun_p ? nullptr : code;
    node->eval_fun = node->pixel_fun;  // of what is read from images the pass knows
    return true;
}

Node* resolve_arg_types(Genotype* genotype) {
    // Signatures speak of the arguments as written.
    for (int i = genotype->node_number - 1; i >= 0; --i) {
        Node* node = &genotype->nodes[i];
        if (node->type != node_function) continue;
        for (int a = 0; a < node->arg_number; ++a) node->args[a] = &genotype->nodes[node->arg_indices[a]];
        if (!find_node_combo(genotype, node)) return node;
    }
    return nullptr;
}

void node_constant_test(Node* node) {
    const NodeFun& fun = *node->fun_info;
    bool constant = !(fun.fun_flags & fun_never_constant);
    for (int a = 0; a < node->eval_arg_number && constant; ++a) constant = is_constant(node->args[a]);
    node->flags = static_cast<uint8_t>((node->flags & ~node_constant_p) | (constant ? node_constant_p : 0));
}

void mark_constants_and_ifs(Genotype* genotype) {
    int branches = 0;
    for (int i = genotype->node_number - 1; i >= 0; --i) {
        Node* node = &genotype->nodes[i];
        switch (node->type) {
            case node_constant:
            case node_output:
                node->flags |= node_constant_p;
                break;
            case node_var:
                node->flags &= static_cast<uint8_t>(~node_constant_p);
                break;
            case node_function:
                node_constant_test(node);
                break;
            default:
                break;
        }
        node->flags = static_cast<uint8_t>((node->flags & ~node_constant_at_compile) |
                                           (is_constant(node) ? node_constant_at_compile : 0));
        if (node->type != node_function) continue;
        node->if_arg = static_cast<int8_t>(branch_arg(node));
        if (node->if_arg < 0) continue;
        if (branches < MAX_IF_NODES) {
            node->if_bit = static_cast<int8_t>(branches++);
        } else {
            V_error(level_warning, "%s has %d 'if' funs, expected < %d. \n", genotype->name, branches + 1,
                    MAX_IF_NODES);
            node->if_arg = -1;
        }
    }
}

void find_changed_nodes(Genotype* genotype, int first) {
    clear_marks(genotype);
    for (int i = genotype->node_number - 1; i >= 0; --i) {
        Node* node = &genotype->nodes[i];
        node->flags &= static_cast<uint8_t>(~node_changed);
        bool changed = false;
        switch (node->type) {
            case node_constant:
                if (node->param_index > 0) {
                    const Param* param = genotype->params[node->param_index - 1];
                    if (param && (param->scale_flags & scale_autotrans_mask)) {
                        changed = true;
                        break;
                    }
                    if (first)
                        node->flags &= static_cast<uint8_t>(~node_volatile);
                    else if (param && param_values_changed_p(param))
                        node->flags |= node_changed;
                    continue;
                }
                break;
            case node_var:
                changed = variable_changed_p(node->var_index);
                break;
            case node_function:
                changed = function_changed(genotype, node);
                break;
            default:
                break;
        }
        if (changed) {
            node->flags |= node_changed;
            if (!first && !(node->flags & node_volatile)) invalidate_images(genotype, node);
            node->flags &= static_cast<uint8_t>(~node_images_valid);
        }
        if (first) node->flags = static_cast<uint8_t>((node->flags & ~node_volatile) | (changed ? node_volatile : 0));
    }
}

}  // namespace velloran
