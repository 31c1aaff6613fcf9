// The planes that a filter works on, and the frame that they are a part of.
#pragma once

#include "frame/filter_radius.h"
#include "records/fix_pixel.h"
#include "records/frame.h"

#include <algorithm>
#include <cstddef>

namespace velloran {

struct FilterFrame {
    int width = 0, height = 0;  // of the planes, in samples
    // Of the frame: what a crop leaves away must not change what a filter does to the rest. 0: the planes are all of
    // it.
    int whole_width = 0, whole_height = 0;
    int step = 1;         // full-resolution pixels of a sample
    bool fields = false;  // a field is being rendered: rows two apart belong together
    size_t bytes() const { return static_cast<size_t>(width) * static_cast<size_t>(height) * sizeof(FixPixel); }
    int widest() const { return whole_width ? whole_width : width; }
    int highest() const { return whole_height ? whole_height : height; }
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
