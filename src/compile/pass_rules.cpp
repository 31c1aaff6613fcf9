#include "compile/pass_rules.h"

#include "compile/pass_tests.h"

namespace velloran {

using namespace pass;

int pass_always(Node*) { return 0; }

int pass_scalar(Node* n) { return elnum_of(n, 0) == 1 ? 0 : none; }

int pass_same_elnum(Node* n) { return n->elnum == elnum_of(n, 0) ? 0 : none; }

int pass_unmoved(Node* n) { return is_zero(n, 1) ? 0 : none; }

}  // namespace velloran
