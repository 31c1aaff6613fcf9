// Values of params as handles see them: places, ways and lengths in pixels of the full frame, y up; angles in turns,
// counter-clockwise. What a value stands for follows from the param's screen mode; without one, a place counts as the
// coordinates of effect texts do, -1 at the left edge of the frame and 1 at the right, and a length of 1 is half the
// frame's width. Whole numbers count pixels. Host's thread only.
#pragma once

#include "records/param.h"
#include "widgets/affine.h"

namespace velloran::widgets {

enum class Quantity {
    plain,     // as the param holds it
    position,  // a place; of single values along x
    position_y,
    offset,    // a way, or a width and a height
    length,    // along x, whichever the channel
    length_y,  // of single values that count up
    angle
};

// Pixels of the full frame.
struct FrameSize {
    float width, height;
    float unit_x, unit_y;  // of a length of 1 across and up
};
FrameSize frame_size();

// Factor and shift of a channel: shown = value * factor + shift.
struct ValueScale {
    float factor, shift;
};
ValueScale value_scale(const Param* p, int channel, Quantity quantity);

// Height over width, in pixels, of what is as high as wide to the param's effect.
float flatness(const Param* p);

// The value of a channel, after a look at the control where it shows this param.
float current_value(Param* p, int channel);

}  // namespace velloran::widgets
