#include "operators/glow/glow_rules.h"

#include "compile/need_reach.h"
#include "frame/filter_radius.h"

#include <algorithm>

namespace velloran {

using namespace need;

void need_rect_glow(Node* node) {
    constexpr int width_xy = 2, width = 3;
    if (varies(node, width_xy) || varies(node, width)) return filter(node, 1, everywhere);
    const int64_t w = largest(node, width, 0);
    filter(node, 1,
           {filter_reach(scaled_amount(value(node, width_xy, 0), w)),
            filter_reach(scaled_amount(value(node, width_xy, 1), w))});
}

}  // namespace velloran
