// Genotypes back to text, to look at: the structure of each call tree, not a text that reads back.
#pragma once

#include "records/genotype.h"

#include <cstdio>

namespace velloran {

// Writes all definitions into a new file. False after a message if it cannot be written.
bool save_genotypes_to_file(const Genotype* const* genotypes, int count, const char* file);
// The tree below a node, each piece led by a blank. A shared branch is written at each use.
void write_node_tree(FILE* stream, const Node* node);

}  // namespace velloran
