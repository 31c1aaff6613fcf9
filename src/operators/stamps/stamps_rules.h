// What the compiler asks of dirt on film; see compile/pass_rules.h.
#pragma once

namespace velloran {

struct Node;

int pass_dirt(Node* node);  // stains, dust
int pass_hairs(Node* node);

}  // namespace velloran
