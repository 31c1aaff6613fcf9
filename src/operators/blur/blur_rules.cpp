#include "operators/blur/blur_rules.h"

#include "compile/pass_tests.h"

namespace velloran {

using namespace pass;

namespace {

int unblurred(const Node* n, int amount, int scale) {
    if (!arg_constant_p(n, amount) || !first_value_is(n, scale, fix_scale)) return none;
    const int32_t* v = n->args[amount]->vals;
    return v[0] == 0 && v[1] == 0 && v[2] == 0 ? 0 : none;
}

}  // namespace

int pass_blur(Node* n) {
    if (is_zero(n, 1) && is_one(n, 3)) return 0;
    return is_zero(n, 3) ? 3 : none;
}

int pass_dir_blur(Node* n) { return unblurred(n, 1, 5); }

int pass_masked_dir_blur(Node* n) { return unblurred(n, 2, 6); }

}  // namespace velloran
