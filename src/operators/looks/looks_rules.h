// What the compiler asks of the looks; see compile/pass_rules.h.
#pragma once

namespace velloran {

struct Node;

int pass_deband(Node* node);

}  // namespace velloran
