// How the viewer shows the frame, for the call in hand. Host's thread only.
#pragma once

#include "spark/spark.h"

namespace velloran::widgets {

// Pixels of the frame that a pixel of the window covers: handles multiply by them to keep their size on the screen.
extern float view_scale_x, view_scale_y;

constexpr float hit_pixels = 6;  // of the window: as near a pen has to come

// Sets these and the transform stack. zoom: window pixels per row of the frame; ratio: width over height of a pixel of
// the frame in the window.
void setup_view(const SparkInfoStruct* info, float zoom, float ratio);

}  // namespace velloran::widgets
