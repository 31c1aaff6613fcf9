// What image functions of the filters read of their arguments.
#pragma once

#include "operators/blur/blur_plan.h"
#include "operators/blur/filter_frame.h"
#include "records/node.h"

#include <algorithm>
#include <cstdint>

namespace velloran {

// Element e of argument i, a constant; a shorter one repeats its last element.
inline int32_t filter_arg(const Node* node, int i, int e = 0) {
    return node->arg_vals[i][std::min(e, std::max(node->args[i]->elnum - 1, 0))];
}
inline float filter_arg_float(const Node* node, int i, int e = 0) {
    return static_cast<float>(filter_arg(node, i, e)) * fix_to_float_scale;
}

// Passes of a filter_shape argument: 0 a box, 1 a tent, 2 and more a bell.
inline int filter_passes(int32_t shape) { return std::clamp((shape >> fix_bits) + 1, 1, max_blur_passes); }

// How many elements argument i has, at least 1.
inline int filter_elements(const Node* node, int i) { return std::max<int>(node->args[i]->elnum, 1); }

}  // namespace velloran
