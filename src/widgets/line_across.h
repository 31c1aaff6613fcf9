// Lines that run across the whole frame, square to a direction.
#pragma once

#include "widgets/placement.h"

namespace velloran::widgets {

// About the middle of the frame, turned to the direction: a line is where the local x is constant.
inline LocalFrame frame_across(float turns, float flat) { return {frame_middle(), turns, flat}; }

// How far from the middle the frame reaches along the direction, and across it.
inline Point half_reach(const LocalFrame& across) {
    const FrameSize f = frame_size();
    Point most = {0, 0};
    for (const float up : {-1.0f, 1.0f}) {
        const Point corner = across.way_in({f.width / 2, up * f.height / 2});
        most.x = std::fmax(most.x, std::fabs(corner.x));
        most.y = std::fmax(most.y, std::fabs(corner.y));
    }
    return most;
}

// The line at a distance from the middle, from one border of what the frame reaches to the other.
inline Affine line_across(const LocalFrame& across, float distance) {
    const float reach = half_reach(across).y;
    return across.line({distance, -reach}, {distance, reach});
}

}  // namespace velloran::widgets
