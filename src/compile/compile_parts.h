// What the files of the compilation share among themselves.
#pragma once

#include "records/genotype.h"
#include "records/node.h"

namespace velloran {

// Functions whose arguments are constants in the text. The frame's own constancy (node_constant_p) comes and goes with
// the values of params, so plans that outlive a frame are made on this one.
inline bool constant_at_compile_p(const Node& node) { return (node.flags & node_constant_at_compile) != 0; }
inline bool varying_function_p(const Node& node) { return node.type == node_function && !constant_at_compile_p(node); }

// Argument a before pass-through.
inline Node* written_arg(Genotype* genotype, const Node* node, int a) { return &genotype->nodes[node->arg_indices[a]]; }

inline void clear_marks(Genotype* genotype) {
    for (int i = 0; i < genotype->node_number; ++i) genotype->nodes[i].mark = 0;
}

// Sets or clears node_constant_p of a function by its arguments.
void node_constant_test(Node* node);

void count_refs(Genotype* genotype, bool boundary_images);  // these: of static sub-trees that feed changing nodes
void count_node_images(Genotype* genotype);

// The arrays must be built anew before this genotype is evaluated again.
void forget_eval_image_nodes(const Genotype* genotype);
// The genotype that eval_image_nodes was built for.
extern const Genotype* eval_image_nodes_of;

}  // namespace velloran
