// What the compiler asks of glow; see compile/need_rect.h.
#pragma once

namespace velloran {

struct Node;

void need_rect_glow(Node* node);

}  // namespace velloran
