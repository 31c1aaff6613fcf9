// Machine code for a plan.
#pragma once

#include "fused/fused_code.h"

#include <cstdint>
#include <vector>

namespace velloran {

extern const bool code_can_be_emitted;  // false: a build without it

// A FusedFun as bytes that do not depend on their address, and the rows of constants that it reads. vector_bytes: 32,
// with the instructions of AVX2, or 64, with those of AVX-512 (F, BW, DQ, VL). False: the plan is too much for it.
bool emit_code(const FusedPlan& plan, int vector_bytes, FusedCode* code, std::vector<uint8_t>* bytes);

}  // namespace velloran
