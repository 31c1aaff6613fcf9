// The lights of a picture: connected regions of pixels above 0, found in one pass over it. Host's thread.
#pragma once

#include "records/fix_pixel.h"

namespace velloran {

constexpr int most_regions = 1000;

struct LightRegion {
    double x, y;     // centre of its light, in samples of the planes: 0 is the middle of the first
    double weight;   // sum of its samples over the planes, 1.0 a sample of white
    float color[3];  // what it is like where it is bright: the mean, weighted by brightness; 1.0 is white
};

// The heaviest regions first, at most `most` and most_regions, into regions; the answer is how many. Pixels that touch
// at a corner are connected, and one is above 0 if any of its planes is. n_planes is 1 or 3; one plane is grey. A
// user's abort gives 0.
int find_light_regions(const FixPixel* const* planes, int n_planes, int width, int height, int most,
                       LightRegion* regions);

// The centre of all that is above 0, as one region. False if there is none.
bool find_light_centre(const FixPixel* const* planes, int n_planes, int width, int height, LightRegion* region);

// Three planes at a place between samples, which is held to the picture; 1.0 is 4096.
void get_color_from_images(const FixPixel* const* planes, int width, int height, double x, double y, float* color);

}  // namespace velloran
