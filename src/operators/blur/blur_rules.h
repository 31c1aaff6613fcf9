// What the compiler asks of the blurs: compile/pass_rules.h, compile/need_rect.h.
#pragma once

namespace velloran {

struct Node;

int pass_blur(Node* node);
int pass_dir_blur(Node* node);
int pass_masked_dir_blur(Node* node);

}  // namespace velloran
