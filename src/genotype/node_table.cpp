#include "genotype/node_table.h"

#include "genotype/param_record.h"
#include "records/node.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/memory.h"

#include <cstdio>
#include <cstring>

namespace velloran {
namespace {

constexpr int node_headroom = 12;

constexpr int max_free_functions = 8;
void (*free_functions[max_free_functions])(Genotype*);
int n_free_functions = 0;

Param* param_of(const Genotype* genotype, const Node& node) {
    return node.param_index > 0 ? genotype->params[node.param_index - 1] : nullptr;
}

void link_params(Genotype* genotype) {
    for (int i = 0; i < genotype->node_number; ++i) {
        if (Param* param = param_of(genotype, genotype->nodes[i])) param->node = &genotype->nodes[i];
    }
}

}  // namespace

Genotype* new_genotype(const char* name) {
    Genotype* genotype = safe_new_zeroed<Genotype>();
    push_abort_cleanup([](void* g) { free_genotype(static_cast<Genotype*>(g)); }, genotype);
    std::snprintf(genotype->name, sizeof(genotype->name), "%.*s", GENOTYPE_NAME_SIZE - 1, name);
    for (char* c = genotype->name; *c; ++c) {
        if (*c == '_') *c = ' ';
    }
    genotype->rgba_mode = rgba_default;
    genotype->background_input = genotype->mask_input = -1;
    genotype->node_capacity = node_headroom;
    genotype->nodes = safe_new_zeroed<Node>(node_headroom);
    genotype->node_number = 1;
    genotype->nodes[0].name = safe_strdup("dest");
    pop_abort_cleanup();
    return genotype;
}

void on_free_genotype(void (*function)(Genotype*)) {
    for (int i = 0; i < n_free_functions; ++i) {
        if (free_functions[i] == function) return;
    }
    if (n_free_functions == max_free_functions) {
        V_error(level_error, "on_free_genotype: more than %d functions.", max_free_functions);
        fatal_abort(1);
    }
    free_functions[n_free_functions++] = function;
}

void free_genotype(Genotype* genotype) {
    if (!genotype) return;
    for (int i = 0; i < n_free_functions; ++i) free_functions[i](genotype);
    for (int i = 0; i < genotype->param_number; ++i) {
        Param* param = genotype->params[i];
        // Another effect may share it: it must not keep a pointer into this table.
        if (param && param->node >= genotype->nodes && param->node < genotype->nodes + genotype->node_number) {
            param->node = nullptr;
        }
        free_param(param);
    }
    for (int i = 0; i < genotype->node_number; ++i) {
        safe_free(genotype->nodes[i].name);
        safe_free(genotype->nodes[i].need_rect);
    }
    for (int i = 0; i < genotype->group_number; ++i) safe_free(genotype->groups[i].name);
    safe_free(genotype->effect_popup_name);
    safe_free(genotype->nodes);
    safe_free(genotype);
}

int add_nodes(Genotype* genotype, int count) {
    const int first = genotype->node_number;
    if (first + count > MAX_GENOTYPE_NODES) {
        V_error(level_error, "In %s: more than %d nodes.", genotype->name, MAX_GENOTYPE_NODES);
        return -1;
    }
    if (first + count > genotype->node_capacity) {
        const int capacity = first + count + node_headroom;
        Node* grown = safe_new_zeroed<Node>(static_cast<size_t>(capacity));
        std::memcpy(static_cast<void*>(grown), genotype->nodes, static_cast<size_t>(first) * sizeof(Node));
        safe_free(genotype->nodes);
        genotype->nodes = grown;
        genotype->node_capacity = capacity;
        link_params(genotype);
    }
    genotype->node_number = first + count;
    return first;
}

void set_genotype_arg_ptrs(Genotype* genotype) {
    for (int i = 0; i < genotype->node_number; ++i) {
        Node* node = &genotype->nodes[i];
        if (node->arg_number > MAX_ARG_NUMBER) {
            V_error(level_error, "node %d, set_genotype_arg_ptrs: uncleared node", i);
            fatal_abort(1);
            return;
        }
        for (int e = 0; e < 4; ++e) node->lines[e] = &node->vals[e];
        for (int a = 0; a < node->arg_number; ++a) {
            Node* arg = &genotype->nodes[node->arg_indices[a]];
            node->args[a] = arg;
            node->arg_lines[a] = arg->lines;
            node->arg_vals[a] = arg->vals;
        }
    }
}

void permute_nodes(Genotype* genotype, const int16_t* new_index) {
    const int n = genotype->node_number;
    Node* moved = safe_new_zeroed<Node>(static_cast<size_t>(genotype->node_capacity));
    for (int i = 0; i < n; ++i) {
        Node& node = moved[new_index[i]];
        node = genotype->nodes[i];
        for (int a = 0; a < node.arg_number; ++a) node.arg_indices[a] = new_index[node.arg_indices[a]];
        if (node.type == node_ref) node.ref_index = new_index[node.ref_index];
    }
    safe_free(genotype->nodes);
    genotype->nodes = moved;
    link_params(genotype);
}

void swap_nodes(Genotype* genotype, int a, int b) {
    if (a == b) return;
    int16_t* new_index = frame_array<int16_t>(static_cast<size_t>(genotype->node_number));
    for (int i = 0; i < genotype->node_number; ++i) new_index[i] = static_cast<int16_t>(i);
    new_index[a] = static_cast<int16_t>(b);
    new_index[b] = static_cast<int16_t>(a);
    permute_nodes(genotype, new_index);
    frame_free(new_index);
}

void clear_node(Genotype* genotype, int row) {
    Node& node = genotype->nodes[row];
    if (Param* param = param_of(genotype, node)) param->node = nullptr;
    safe_free(node.name);
    safe_free(node.need_rect);
    node = Node();
}

void pad_constant(Node* node) {
    if (node->elnum < 1 || node->elnum > 3) return;
    const int32_t fill = node->elnum == 3 ? fix_scale : node->vals[node->elnum - 1];
    for (int e = node->elnum; e < 4; ++e) node->vals[e] = fill;
}

}  // namespace velloran
