// The table of node functions: the vocabulary of effect texts.
//
// The rows are written in functions/, which fills the table from above. They are parsed into NodeFun records once,
// before any text is read, and never change afterwards. Host thread fills; any task may read.
#pragma once

#include "records/node_fun.h"

namespace velloran {

struct FunRow;

extern NodeFun node_funs[MAX_FUN_NUMBER];
extern int node_fun_number;

// Empties the table and fills it with these rows, in the order of their numbers: at most MAX_FUN_NUMBER, numbered from
// 0 without a gap. A faulty row is reported at level 8 and takes the fatal abort.
void fill_node_fun_tables_with(const FunRow* const* rows, int count);
bool node_fun_tables_filled();
void clear_node_fun_tables();

// Adds one row behind the last, for tests with faulty rows.
void def_fun_row(const FunRow& row);

// The row of this name, null if there is none.
const NodeFun* find_node_fun(const char* name);

// Element count of argument i, and of the result, in a packed combination.
inline int combo_arg_elnum(uint32_t combo, int i) { return static_cast<int>((combo >> (2 + 2 * i)) & 3) + 1; }
inline int combo_return_elnum(uint32_t combo) { return static_cast<int>(combo & 3) + 1; }

// Index of the first combination that fits the element counts of the node's written arguments, or -1.
int find_combo(const Node* node);

// Which element counts argument i may have, given those of the arguments before it: bit elnum - 1, with the argument's
// class (16 parameter, 32 per-pixel value, 64 filtered image) ORed in. return_restrictions is the mask of results that
// are wanted. Misuse reports at level 8 and takes the fatal abort.
uint32_t get_node_arg_i_restrictions(const Node* node, const NodeFun* fun, int i, int return_restrictions);

}  // namespace velloran
