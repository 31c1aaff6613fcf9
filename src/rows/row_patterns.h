// Row kernels with a variant for each pattern of constant arguments; lanes-inl.h makes them.
#pragma once

#include <cstdint>

namespace velloran {

// One kernel works n samples.
//   in      the input lines: the elements of the first argument, then those of the second, ... A constant argument's
//           lines are one sample long.
//   out     the result lines. May be input lines of any kind: all inputs of a sample are read before it is written.
//   params  numbers that hold for the whole line, for kernels that take some; else null.
// Nothing outside [0, n) is read or written.
using RowFun = void (*)(const int32_t* const* in, int32_t* const* out, int n, const float* params);

// By argument pattern: bit a of the index says that argument a is constant. The pattern of all ones has no kernel: such
// a call has one sample and takes pattern 0.
constexpr int row_pattern_count = 16;
using RowPatterns = RowFun[row_pattern_count];

}  // namespace velloran
