// Spreading a plane as a lens out of focus does: each point becomes a flat disc or polygon with a hard rim.
#pragma once

#include "operators/blur/filter_frame.h"
#include "records/fix_pixel.h"

namespace velloran {

struct DefocusSettings {
    float x_radius = 0, y_radius = 0;  // in samples
    int shape = 0;                     // DefocusShape
    bool subpixel = false;             // the rim is smooth, and radii go in steps finer than a sample
    float gamma = 1.0f;        // samples are raised to 1 / gamma before the spread, and back from it after; 1 none
    float final_value = 1.0f;  // of the result
};

// One plane, in place. The aperture is held to the picture, keeping its aspect. At the picture's edges the sum is
// divided by what of the aperture lies inside. On fields the rows of each are spread apart. A shape that there is not
// is told, and a disc taken for it. Host's thread, outside forks.
void defocus_image(FixPixel* plane, const DefocusSettings& settings, const FilterFrame& frame);

// Apertures of more taps are spread by transforms, whose time hardly grows with the radius; other sizes of picture give
// other last bits there.
extern int most_defocus_taps;
// Only of larger radii: need_rect_defocus asks for the whole picture then.
constexpr int least_transformed_radius = 12;

// Holds the radii of an aperture that reaches factor_x, factor_y times as far to what a picture has room for.
void hold_aperture(float* rx, float* ry, float factor_x, float factor_y, bool subpixel, int width, int height);

}  // namespace velloran
