// What a processor can compute at best, for operations that wait for arithmetic and not for memory.
#pragma once

#include <cstddef>

namespace velloran_bench {

// Does so many single-precision multiply-adds, none of which waits for another, in the widest registers there are.
// The answer is of no use but to keep them from being left out.
float multiply_adds(size_t count);

}  // namespace velloran_bench
