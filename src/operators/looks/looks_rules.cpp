#include "operators/looks/looks_rules.h"

#include "compile/pass_tests.h"

namespace velloran {

using namespace pass;

int pass_deband(Node* n) { return first_value_is(n, 2, 0) || first_value_is(n, 3, 0) ? 0 : none; }

}  // namespace velloran
