#include "operators/defocus/defocus_rules.h"

#include "compile/need_reach.h"

#include <algorithm>

namespace velloran {

using namespace need;

// An aperture's corners lie up to a tenth beyond the radius, its edge half a sample.
void need_rect_defocus(Node* node) {
    constexpr int radius = 1;
    const Reach r = blur_arg_reach(node, radius);
    filter(node, 1, {r.x + r.x / 8 + 2, r.y + r.y / 8 + 2});
}

}  // namespace velloran
