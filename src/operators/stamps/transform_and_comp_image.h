// A stamp laid over a picture: scaled and flipped, its colour through its samples.
#pragma once

#include "operators/image_files/stamp.h"

#include <cstdint>

namespace velloran {

// Planes that are a part of the whole picture.
struct StampCanvas {
    FixPixel* const* planes;
    int channels;       // 3, or 4 with alpha
    int width, height;  // of the planes, row pitch width
    int left, bottom;   // of their first sample, in samples of the whole picture
};

// Where a stamp lies, in samples of the whole picture, 0 the middle of the first one, rows upwards.
struct StampPlace {
    double x, y;              // of the stamp's middle
    double x_scale, y_scale;  // samples of the picture to a sample of the stamp, above 0
    bool flip_x, flip_y;
};

// A stamp that is ready to be drawn in any rows.
struct PlacedStamp {
    const StampLevel* level;
    int64_t u, u_step, v, v_step;      // place in the level of sample 0 of the picture, and a step; 32 fraction bits
    int32_t left, right, bottom, top;  // samples of the picture that are not left as they are; left > right: none
    int32_t color[4];                  // the fourth is alpha
    int32_t opacity;                   // 0 .. 4096
};

// color: 1.0 is white. The level is the one whose size is nearest to that of the place. Of what is smaller than a
// sample as much is drawn as it covers.
PlacedStamp place_stamp(const Stamp& stamp, const StampPlace& place, const float color[3], float opacity);

// The part of the stamp in rows first .. first + n - 1 of the canvas. Any task, rows of its own.
void transform_and_comp_image(const StampCanvas& canvas, const PlacedStamp& stamp, int first, int n);

}  // namespace velloran
