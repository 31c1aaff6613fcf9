// Host frames as images of the window system.
#pragma once

#include "hosts/common/host.h"

#include <QImage>
#include <QRect>

namespace desk {

// The part area (pixels from the top left, inside the frame) of a host frame, one image pixel for step x step frame
// pixels: their mean, or with quick one of them. Shared among tasks; host's thread.
QImage image_of_frame(const void* frame, const spark_host::FrameFormat& format, QRect area, int step, bool quick,
                      int tasks);

// A sample as the host's code: 0 to 255, 1023 or 4095.
int code_of_sample(const void* frame, const spark_host::FrameFormat& format, int x, int y, int channel);
int white_code(const spark_host::FrameFormat& format);

// A smaller frame of 8 bits, width pixels wide, for thumbnails.
void shrink_frame(const void* frame, const spark_host::FrameFormat& format, const spark_host::FrameFormat& small,
                  unsigned char* dest);

}  // namespace desk
