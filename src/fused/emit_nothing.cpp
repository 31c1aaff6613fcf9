// For builds that make no code.
#include "fused/emit_code.h"

namespace velloran {

const bool code_can_be_emitted = false;
bool emit_code(const FusedPlan&, int, FusedCode*, std::vector<uint8_t>*) { return false; }

}  // namespace velloran
