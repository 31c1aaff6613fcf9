// Compilation: everything between a parsed node table and the arrays that the frame loop walks. Element counts,
// constants, branches, changes, image counts, reference counts, pass-through.
//
// Some analyses run once when a text was read, some when the inputs' element counts change, the update before every
// frame. Host's thread only, never inside a fork: worker tasks read the results. Rows of the node table are sorted so
// that arguments have higher indices than their users; most analyses are one loop from the last row to the first.
#pragma once

#include "records/genotype.h"
#include "records/node.h"
#include "records/run_state.h"

namespace velloran {

constexpr int MAX_EVAL_NODES = 200;        // nodes of one pixel tree
constexpr int MAX_EVAL_IMAGE_NODES = 100;  // image nodes of a genotype
// Planes that a genotype's images may take in both pools: what the host's buffers are numbered for, behind the
// destination and the inputs.
constexpr int MAX_TEMP_PLANES = MAX_BUFFER_IDS - 1 - MAX_INPUTS;
constexpr int MAX_IF_NODES = 20;  // branch nodes with a bit in the masks

extern int cache_images_p;             // 1: analyse and keep images across frames
extern int cache_boundaries_p;         // 1: give images to nodes at the edge of a static sub-tree
extern int image_for_all_functions_p;  // 1: an image for every function after row 0; a debugging aid

// Image nodes of the selected genotype, arguments before users; null until build_eval_image_nodes has run.
extern Node** eval_image_nodes;
extern int eval_image_node_count;

// The first compilation, the last step of reading a text. Returns null, or the first node whose arguments fit none of
// its function's combinations (after a message); the genotype is then good for free_genotype only.
Node* compile_genotype_at_read(Genotype* genotype);

// Chooses every node's combination from the last row to the first. Null, or the first node that failed.
Node* resolve_arg_types(Genotype* genotype);
// One row. False after a message at level 8.
bool find_node_combo(Genotype* genotype, Node* node);

void mark_constants_and_ifs(Genotype* genotype);
void find_changed_nodes(Genotype* genotype, int first);  // first: 1 at compilation, 0 for an update
// If the plan takes more planes than there are, it is made again without images at the edges of static sub-trees.
void analyze_images(Genotype* genotype, int count_refs);
// Images of a varying node of this function with elnum elements.
int node_image_count(const NodeFun& fun, int elnum);
// False after a message at level 8 if the plan takes more planes than there are.
bool planes_fit_p(const Genotype* genotype);
// The plan of planes: image_index, image_end and in_cache_images of all rows, and the genotype's two image counts.
void assign_image_slots(Genotype* genotype);
void find_spatial_functions(Genotype* genotype);
bool spatial_reads_input_p(const Genotype* genotype);

// Retypes and analyses again if the inputs' element counts are no longer those it was compiled for. A failure is
// reported at level 8 and leaves the old state.
void update_genotype_elnums(Genotype* genotype);

// The whole update, when an effect is selected or its params were changed at large. full: reference counts too.
void recompile_genotype(Genotype* genotype, int full);

// The update before a frame and after a change of a param: params into constant nodes (unless copy_params is 0: the
// caller did it), constants, changes.
void update_parameters(Genotype* genotype, int copy_params);
void copy_params_to_nodes(Genotype* genotype);
void update_genotype_constants(Genotype* genotype);

// The node that supplies the value of node once nodes that pass an argument through are followed.
Node* maybe_pass_through_args(Node* node);
inline const Node* maybe_pass_through_args(const Node* node) {
    return maybe_pass_through_args(const_cast<Node*>(node));
}

// Points args, arg_lines and arg_vals of every function row at the effective arguments.
void set_effective_args(Genotype* genotype);

// When an effect is selected: the list of its image nodes.
void build_eval_image_nodes(Genotype* genotype);
void print_eval_image_nodes();
// Before each frame: node_needed on all nodes that the frame must evaluate.
void mark_needed_nodes(Genotype* genotype);
// Forgets the arrays, when a genotype is freed or the library lets go.
void free_eval_arrays();

}  // namespace velloran
