// The optional list in parentheses behind "NAME = number or vector", which declares how that param behaves: bounds and
// step, kind of control, position on the screen, group on the panel, on-screen handles.
#pragma once

#include "records/genotype.h"

namespace velloran {

// The group now open, null if none. It points into the genotype being read.
extern ParamGroup* current_param_group;

// Reads the list behind the assignment of a row; nothing for a row without a param. 0, or -1 after a message that fails
// the genotype.
int maybe_read_param_info_for_node(Genotype* genotype, int row);

}  // namespace velloran
