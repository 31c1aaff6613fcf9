// The aperture of a lens as an outline around its centre: a disc or a polygon of any number of sides, whose corners may
// stand out or be rounded, and how bright it is within.
//
// All functions but prepare_lens_shape: any task.
#pragma once

#include <cstdint>

namespace velloran {

struct LensSettings {
    int sides = 0;             // corners; below 3 a disc
    float pointiness = 0;      // 0 straight sides, up to 1 a star, down to -1 a disc
    float rotate = 0;          // turns, counter-clockwise; at 0 a corner is on top
    float bokeh = 0;           // of the rim against the middle: 0 alike, above brighter, down to -1 dark
    float noise_freq[2] = {};  // cells of the noise from the middle to the rim, across and up
    float noise_amp = 0;       // 0 none, 1 down to nothing in places
    uint32_t noise_seed = 0;
};

// Made for a frame's work. Lengths count in radii of the disc that has the same area.
struct LensShape {
    LensSettings settings;
    float size;       // of the corners
    float middle;     // radius in the middle of a side against the corners'
    float round;      // share of the disc in the outline
    float steepness;  // largest slope of a distance that is measured in outlines, against that of a disc of this size
};

LensShape prepare_lens_shape(const LensSettings& settings);

// Where a place lies: 0 in the centre, 1 on the outline, more outside.
float lens_depth(const LensShape& shape, float x, float y);
// Brightness at a place that lies so deep, 0 or more.
float lens_brightness(const LensShape& shape, float depth, float x, float y);

}  // namespace velloran
