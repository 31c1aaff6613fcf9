#include "compile/fold_rules.h"

#include "records/fix_pixel.h"
#include "records/node.h"

#include <algorithm>

namespace velloran {

void fold_to_zero(Node* node) { std::fill_n(node->vals, 4, 0); }

void fold_to_middle(Node* node) { std::fill_n(node->vals, 4, fix_scale / 2); }

}  // namespace velloran
