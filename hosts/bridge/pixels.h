// Pictures of any layout as host frames, and host frames as such pictures.
#pragma once

#include "hosts/bridge/bridge.h"
#include "hosts/pictures/pictures.h"

namespace bridge {

// Fills a frame of the picture's size. Whole samples and floats become what pictures from files become.
spark_host::SamplesFound pixels_to_frame(const Pixels& from, const spark_host::FrameFormat& format, void* frame);

// Fills a picture of the frame's size. alpha: whose last channel goes along, of the same size; null or without one:
// opaque. It may be the picture that is filled.
void frame_to_pixels(const spark_host::FrameFormat& format, const void* frame, const Pixels* alpha, const Pixels& to);

// Why a picture cannot be read or filled, beginning with what it is called; empty if it can.
std::string pixels_problem(const Pixels& pixels, const spark_host::FrameFormat& format, const std::string& name);

}  // namespace bridge
