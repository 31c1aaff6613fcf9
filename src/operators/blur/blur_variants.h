// Repeated boxes along one direction of a plane, on 16-bit plans: the widths' product fills at most 16 bits, so samples
// of any value keep within 32. Results are trunc(sum / product of widths), held to +-32767. Host's thread, outside
// forks; the work is forked; a user's abort leaves the plane unfinished.
#pragma once

#include "operators/blur/blur_image.h"
#include "operators/blur/filter_frame.h"
#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

struct LineBlurSettings {
    int32_t radius = 0;  // in samples times 4096; rounded
    int32_t bias = 0;    // moves the lines by bias >> 12 samples afterwards, black coming in
    int edge_mode = blur_default_edge_mode;
    int passes = 3;
};

// In place. A box is never wider than the whole frame allows. On fields rows are taken as they stand.
void blur_rows_fix(FixPixel* plane, const LineBlurSettings& blur, const FilterFrame& frame);
void blur_columns_fix(FixPixel* plane, const LineBlurSettings& blur, const FilterFrame& frame);

// direction_bits: 0 rows, 1 columns, 2 the diagonals that rise to the right, 3 those that rise to the left. Three
// passes, black outside; radii are held to what the shorter side of the plane allows, in all directions alike, and a
// line shorter than a box takes a smaller one: so what it gives is right for whole planes alone. Diagonals of less than
// three samples are copied. source and dest may be the same.
void blur_diagonal(const FixPixel* source, FixPixel* dest, int direction_bits, int32_t radius, int32_t bias, int width,
                   int height);

}  // namespace velloran
