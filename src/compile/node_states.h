// Work records of nodes for the length of a pass, of functions that have one (NodeFun::make_state_fun).
#pragma once

namespace velloran {

struct Node;

// Gives every such node among nodes a fresh record at cell_state, and takes them back. Any task, on nodes of its own.
void make_nodes_array_caches(Node** nodes, int count);
void free_nodes_array_caches(Node** nodes, int count);

}  // namespace velloran
