// What a function gives of constant arguments where it is not simply run on one sample. Host thread; cannot fail.
#pragma once

namespace velloran {

struct Node;

void fold_to_zero(Node* node);    // a picture of one value has no slopes
void fold_to_middle(Node* node);  // nor any detail, and the middle grey stands for none

}  // namespace velloran
