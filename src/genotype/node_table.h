// The node table of a genotype: making, growing, linking and freeing it. Host's thread only.
#pragma once

#include "records/genotype.h"

namespace velloran {

// Rows that a text may make. Row indices are 16 bits wide, and walks over the graph recurse to its depth.
constexpr int MAX_GENOTYPE_NODES = 4096;

// An empty genotype: row 0 named "dest", still unset. name is cut to 31 characters, underscores become blanks.
Genotype* new_genotype(const char* name);

// Frees names, params' references, nodes and what hangs on them. Null is ignored.
void free_genotype(Genotype* genotype);
// What other rooms hang on a genotype is freed by them: each function runs at the start of free_genotype. Registering
// twice counts once.
void on_free_genotype(void (*function)(Genotype* genotype));

// Appends count zeroed rows and returns the index of the first; -1, after a message, beyond MAX_GENOTYPE_NODES. Rows
// may move: pointers to them are good until the next call.
int add_nodes(Genotype* genotype, int count);

// Sets args, arg_lines and arg_vals from arg_indices, and lines to vals, as written: pass-through is not followed.
void set_genotype_arg_ptrs(Genotype* genotype);

// Rows change places; everything that names one by index or address follows.
void swap_nodes(Genotype* genotype, int a, int b);
// Row i moves to row new_index[i], for all rows.
void permute_nodes(Genotype* genotype, const int16_t* new_index);
// Frees what a row owns and zeroes it. Its param stays, without a node.
void clear_node(Genotype* genotype, int row);

// Fills the elements beyond elnum: the fourth of a 3-vector is 1.0, others repeat the last.
void pad_constant(Node* node);

}  // namespace velloran
