// Row functions that follow a line through a picture: the mean of what lies along it.
#pragma once

#include "operators/mipmap/sample_rows.h"

#include <cstdint>

namespace velloran {

// How all lines of a picture are followed. The picture is level 0 of a mipmap whose borders repeat its edges.
struct SmearPlan {
    const int16_t* data;
    uint32_t row_samples;
    int32_t width, height;
    AxisWrap x_wrap, y_wrap;
    bool subpixel;                   // samples between pixels, else the nearest ones
    int32_t skip;                    // every 1 << skip -th step is looked up
    int32_t most_steps;              // longer lines are walked in longer steps
    float start_weight, end_weight;  // of the ends of a line; 4096 both for a plain mean
    float gain;                      // of the result
    bool outside_counts;             // what lies outside the picture counts as the colour outside, else not at all
    float outside[4];
};

struct SmearRows {
    // For n pixels, up to look_up_block, lines from (from_x, from_y) to (to_x, to_y), in positions; the means are held
    // to
    // +-32767. Entry: elements - 1.
    void (*smear[4])(const SmearPlan& plan, const int32_t* from_x, const int32_t* from_y, const int32_t* to_x,
                     const int32_t* to_y, FixPixel* const* planes, int n);
};
const SmearRows& smear_rows();

}  // namespace velloran
