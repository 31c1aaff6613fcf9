#include "compile/node_states.h"

#include "records/node.h"

namespace velloran {

void make_nodes_array_caches(Node** nodes, int count) {
    for (int i = 0; i < count; ++i)
        if (nodes[i]->type == node_function && nodes[i]->fun_info->make_state_fun)
            nodes[i]->fun_info->make_state_fun(nodes[i]);
}

void free_nodes_array_caches(Node** nodes, int count) {
    for (int i = 0; i < count; ++i)
        if (nodes[i]->type == node_function && nodes[i]->fun_info->free_state_fun)
            nodes[i]->fun_info->free_state_fun(nodes[i]);
}

}  // namespace velloran
