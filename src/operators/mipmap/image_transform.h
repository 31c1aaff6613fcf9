// A picture moved, turned, scaled and sheared as a whole: look-ups along straight lines, without coordinates of each
// pixel. Reductions are averaged.
#pragma once

#include "operators/mipmap/look_up.h"

namespace velloran {

// Where a sample (x, y) of the result lies in the source, in samples of its level 0 from the middle of its first:
// (xx * x + xy * y + x0, yx * x + yy * y + y0).
struct AffineMap {
    double xx, xy, x0, yx, yy, y0;
};

struct ImageTransform {
    LookUp look_up;
    AffineMap map;
    int32_t x_level, y_level;  // 12 fraction bits
};

// filter: 0 looks up in level 0 alone; above, the levels are those of a reduction as strong as the map's times filter.
// The source needs smaller levels then. Outside forks.
ImageTransform make_image_transform(const Mipmap& source, const AffineMap& map, float filter);

// n samples of row y from column x on, into planes from there on. Any task.
void transform_line(const ImageTransform& transform, int x, int y, FixPixel* const* planes, int n);

// All of width by height samples; the planes' rows are width apart. Forks; a user's abort ends it early.
void transform_images(const ImageTransform& transform, FixPixel* const* planes, int width, int height);

// Fills a mipmap whose sizes and data are set from planes of the size of its level 0, row pitch its width. Host's
// thread.
void mipmap_fill_from_planes(const Mipmap& map, const FixPixel* const* planes);

}  // namespace velloran
