// Rows of fields in planes of the working geometry.
#pragma once

#include "records/fix_pixel.h"
#include "records/frame.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace velloran {

// The row of the frame, in samples, at which planes begin: the parity of a row is that of its place in the frame.
inline int first_working_row() {
    const rinfo& working = the_frame->temp_raster_info;
    return working.y / std::max(working.render_step, 1);
}

// Row y becomes the mean of the rows around it, rounded down; at an edge what there is of them. Any task.
inline void make_row_from_neighbours(FixPixel* plane, int width, int height, int y) {
    FixPixel* const row = plane + ptrdiff_t{y} * width;
    if (height < 2) return;
    const FixPixel* const below = y > 0 ? row - width : row + width;
    const FixPixel* const above = y + 1 < height ? row + width : below;
    for (int x = 0; x < width; ++x) row[x] = static_cast<FixPixel>((below[x] + above[x]) >> 1);
}

}  // namespace velloran
