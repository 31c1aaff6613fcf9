// What the compiler asks of the noise functions; see compile/pass_rules.h.
#pragma once

namespace velloran {

struct Node;

int pass_noise2(Node* node);

}  // namespace velloran
