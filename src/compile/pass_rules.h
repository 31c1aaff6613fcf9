// Pass-through rules: which argument of a node has the value that the node would compute.
//
// A rule looks at the node's effective arguments (Node::args), which are settled: their constants, element counts and
// types. It answers an argument index, or -1 if the node has to be evaluated. Host thread only; cannot fail.
#pragma once

#include "records/node_fun.h"

namespace velloran {

// The rule of a letter of the function table, A to Z and a to g; null for any other.
PassArgFun pass_rule(char letter);

}  // namespace velloran
