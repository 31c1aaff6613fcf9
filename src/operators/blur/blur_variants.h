// Repeated boxes along one direction of a plane, on 16-bit plans: the widths' product fills at most 16 bits, so samples
// of any value keep within 32. Results are trunc(sum / product of widths), held to +-32767. radius is in samples times
// 4096 and is rounded; bias moves the lines by bias >> 12 samples afterwards, black coming in. Host's thread, outside
// forks; the work is forked; a user's abort leaves the plane unfinished.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// In place.
void blur_rows_fix(FixPixel* plane, int32_t radius, int32_t bias, int edge_mode, int passes, int width, int height);
void blur_columns_fix(FixPixel* plane, int32_t radius, int32_t bias, int edge_mode, int passes, int width, int height);

// direction_bits: 0 rows, 1 columns, 2 the diagonals that rise to the right, 3 those that rise to the left. Three
// passes, black outside; radii are held to what the shorter side of the plane allows, in all directions alike, and a
// line shorter than a box takes a smaller one. Diagonals of less than three samples are
// copied. source and dest may be the same.
void blur_diagonal(const FixPixel* source, FixPixel* dest, int direction_bits, int32_t radius, int32_t bias, int width,
                   int height);

}  // namespace velloran
