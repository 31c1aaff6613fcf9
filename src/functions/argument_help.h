// What the arguments of functions mean: told by the hosts, read by nothing else.
#pragma once

#include "records/argument_help.h"
#include "records/node_fun.h"

namespace velloran {

extern const ArgumentHelp argument_helps[];
extern const int n_argument_helps;

// The first that fits; null for an argument without words.
const ArgumentHelp* find_argument_help(const NodeFun* fun, int argument);

}  // namespace velloran
