// Pass-through rules: which argument of a node has the value that the node would compute, to the bit.
//
// A rule looks at the node's effective arguments (Node::args), which are settled: their constants, element counts and
// types. It answers an argument index, counted from 0, or -1 if the node has to be evaluated. Host thread only; cannot
// fail. Rules stand in the rules file of their operators' family; here are those of several families.
#pragma once

namespace velloran {

struct Node;

int pass_always(Node* node);      // 0
int pass_scalar(Node* node);      // 0 if it has one element
int pass_same_elnum(Node* node);  // 0 if it has as many elements as the node
int pass_unmoved(Node* node);     // 0 if 1 is 0

}  // namespace velloran
