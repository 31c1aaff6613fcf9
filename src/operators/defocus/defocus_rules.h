// What the compiler asks of defocus; see compile/need_rect.h.
#pragma once

namespace velloran {

struct Node;

void need_rect_defocus(Node* node);

}  // namespace velloran
