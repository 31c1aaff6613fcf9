// What the compiler asks of the warps; see compile/pass_rules.h.
#pragma once

namespace velloran {

struct Node;

int pass_warp(Node* node);  // also of warp_filter

}  // namespace velloran
