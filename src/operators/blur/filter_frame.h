// The planes that a filter works on, and the frame that they are a part of.
#pragma once

#include "frame/filter_radius.h"
#include "records/fix_pixel.h"
#include "records/frame.h"

#include <algorithm>
#include <cstddef>

namespace velloran {

struct FilterFrame {
    int width, height;          // of the planes, in samples
    int whole_width = width;    // of the frame: what a crop leaves away must not change what a filter
    int whole_height = height;  // does to the rest
    int step = 1;               // full-resolution pixels of a sample
    bool fields = false;        // a field is being rendered: rows two apart belong together
    size_t bytes() const { return static_cast<size_t>(width) * static_cast<size_t>(height) * sizeof(FixPixel); }
};

// Of the frame in hand.
inline FilterFrame filter_frame() {
    const rinfo& planes = the_frame->temp_raster_info;
    return {planes.width,
            planes.height,
            filter_frame_width(),
            filter_frame_height(),
            std::max(planes.render_step, 1),
            the_frame->render_field > 0};
}

}  // namespace velloran
