// Row functions of flares: each adds light to a stretch of a row of three planes and stops at 32767. Places count from
// the element's centre, whose whole part is taken off: sample i of the stretch lies first + i - fraction to its right,
// so that a stretch gives the same wherever it begins.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// A stretch of a row: first sample, relative to the centre's whole part, and how many.
struct FlareSpan {
    FixPixel* planes[3];  // at the first sample
    int32_t first, n;
    float fraction;  // of the centre
};

// Light between two radii. Colours are in units of a sample: at the first radius, and what is added up to the second.
struct FlareBand {
    float radius, inverse_width;
    float color[3], rise[3];
};

// A ray or a line: at u samples from the centre the middle of the line lies |offset + slope * u| of its half width
// away, and the colour is color + rise * (along + along_step * u).
struct FlareLine {
    float offset, slope;
    float along, along_step;
    float color[3], rise[3];
};

// Everything of a polar flare that is the same along a row.
struct PolarRow {
    const float *angular, *radial;  // entries of two floats (brightness, factor of a radius) and of four
    float angular_scale, radial_scale, radial_start;
    int32_t angular_size, angular_levels, angular_wrap, radial_size, radial_levels;
    int32_t is_round;            // all factors are 1
    float x_step, v;             // across of a sample, and up of the row, in sizes
    float arc_start, arc_turns;  // turns; the arc is drawn where the angle less its start is within it
    float first_radius, last_radius;
    float color[3];  // in units of a sample
};

struct FlareRows {
    void (*flat)(const FlareSpan& span, const float* color);
    // height: of the row above the centre, stretched to round pixels
    void (*ring)(const FlareSpan& span, const FlareBand& band, float height);
    void (*hexagon)(const FlareSpan& span, const FlareBand& band, float height);
    // A disc that is brightest in the middle, of the given radius.
    void (*disc)(const FlareSpan& span, const float* color, float radius, float height);
    void (*line)(const FlareSpan& span, const FlareLine& line);
    void (*polar)(const FlareSpan& span, const PolarRow& row);
    // p = least of p and top
    void (*hold)(FixPixel* p, int32_t top, int n);
};
const FlareRows& flare_rows();

}  // namespace velloran
