// One box filter along one line: the plain form, for short jobs and odd strides.
//   in, out  n samples each, not the same
//   r        radius, at most n - 1 (0 copies)
// The sum of the window in[i - r .. i + r] goes to out[i], not normalised; it wraps in 32 bits. A line beyond its ends
// is zero (black) or mirrored with the end sample doubled. Any task.
#pragma once

#include <cstdint>

namespace velloran {

void box_sum_black(const int32_t* in, int32_t* out, int r, int n);
void box_sum_mirror(const int32_t* in, int32_t* out, int r, int n);

// out[i] = in[i - offset], zero outside: the line moved by whole samples.
void box_offset(const int32_t* in, int32_t* out, int offset, int n);

}  // namespace velloran
