#include "operators/stamps/stamps_rules.h"

#include "compile/pass_tests.h"

namespace velloran {

using namespace pass;

namespace {

// value + vary / 2 <= 0: even the strongest that the variation gives is nothing.
bool never_above_zero(const Node* node, int value_arg, int vary_arg) {
    int64_t value, vary;
    return first_value(node, value_arg, &value) && first_value(node, vary_arg, &vary) && 2 * value + vary <= 0;
}

}  // namespace

int pass_dirt(Node* n) {
    constexpr int opacity = 6, vary_opacity = 7, density = 8, vary_density = 9, scale = 10, vary_scale = 11;
    return never_above_zero(n, density, vary_density) || never_above_zero(n, opacity, vary_opacity) ||
                   never_above_zero(n, scale, vary_scale)
               ? 0
               : none;
}

int pass_hairs(Node* n) {
    constexpr int opacity = 3, max_hairs = 4, scale = 7, vary_scale = 8;
    return first_value_is(n, opacity, 0) || first_value_is(n, max_hairs, 0) || never_above_zero(n, scale, vary_scale)
               ? 0
               : none;
}

}  // namespace velloran
