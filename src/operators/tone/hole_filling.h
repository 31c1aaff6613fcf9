// Letting a matte's content spread into its empty neighbours: a wide radial kernel over image and matte, and the one
// divided by the other. Host's thread, outside forks.
#pragma once

#include "records/fix_pixel.h"

namespace velloran {

// Sets the kernel: square, of size samples (held to the frame's width, 1000, and at least 10), weights distance to the
// power, which must be below 0; distances below least_distance (held to 5 .. half the kernel) weigh as that one.
void enlarge_edges_step1(int size, float least_distance, float power, int width, int height);

// dest = source where the matte is full; where it is thin, the mean of source around the pixel, weighted by matte and
// kernel, mixed under it. source and dest may be the same; work: one plane. n_planes sources.
void enlarge_edges_step2(const FixPixel* const* source, FixPixel* const* dest, int n_planes, const FixPixel* matte,
                         FixPixel* work, int width, int height);

}  // namespace velloran
