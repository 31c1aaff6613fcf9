// Frames of other times of a clip: the memory that they come into, the one way to the host, and the way into planes.
// Host's thread, outside forks.
#pragma once

#include "records/fix_pixel.h"
#include "records/rinfo.h"

namespace velloran {

// Memory of one host frame.
struct FrameBuffer {
    void* memory;
    bool own;  // frame_malloc gave it
};

// The host's buffer of the frame in hand, which stands idle until the last pass; memory of the call's own where it does
// not: on fields it holds the field that is finished, and a filter may have borrowed it for its sums. False after a
// message.
bool get_frame_buffer(FrameBuffer* buffer);
void release_frame_buffer(const FrameBuffer& buffer);

// Last frame of the clips, which the host holds to: what lies behind it need not be asked for. From 0.
int last_clip_frame();

// Fetches a frame (below 0: the first) of a clip (from 0). False if the frame in hand has failed, which has been told,
// or the user aborted.
bool get_spark_frame(int clip, int frame, const FrameBuffer& buffer);

// Fetches a frame of a clip at full resolution, whole, whatever the working area: three planes of FrameWidth *
// FrameHeight samples. False as get_spark_frame.
bool load_other_frame_into_images(int clip, int frame, const FrameBuffer& buffer, const fix_plane* planes);

}  // namespace velloran
