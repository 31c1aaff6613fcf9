#include "operators/looks/looks_rules.h"

#include "compile/pass_tests.h"

namespace velloran {

using namespace pass;

int pass_deband(Node* n) {
    enum { source, mask, threshold, radius };
    return first_value_is(n, threshold, 0) || first_value_is(n, radius, 0) ? source : none;
}

}  // namespace velloran
