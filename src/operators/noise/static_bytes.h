// White noise, 64 samples at once, where the processor permutes bytes out of two registers (AVX-512 VBMI). It stands
// apart from the row files, since no target of theirs stands for such processors alone. The hash is that of
// support/hash.h, to the bit.
#pragma once

#include <cstdint>

namespace velloran {

// For tests: false leaves all to the row functions.
extern bool static_bytes_wanted;

// Whether this processor can, and it is wanted. Any task.
bool static_bytes_p();
// out[i] = the lower twelve bits of the hash of first + i. Only if static_bytes_p(); any task.
void static_bytes(uint32_t first, int n, int32_t* out);

}  // namespace velloran
