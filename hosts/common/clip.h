// A clip gives frames: a still, a list of frames, or a function that makes them.
#pragma once

#include "hosts/common/host.h"

#include <functional>
#include <memory>
#include <vector>

namespace spark_host {

// A frame in memory: rows bottom first, interleaved red, green, blue.
struct Frame {
    FrameFormat format;
    std::vector<unsigned char> bytes;
};

struct Clip {
    int frames = 1;
    // Writes a frame (0 to frames - 1) into dest in the format asked for, all of it; false if there is no such frame.
    // Host's thread. May call plug-ins.
    std::function<bool(int frame, const FrameFormat& format, void* dest)> read;
};
using ClipPtr = std::shared_ptr<const Clip>;

// Frames of another size than asked for are refused; of another depth they are converted, 8 bits filling the upper and
// the lower byte of a word, so that white stays white.
ClipPtr still_clip(Frame frame);
ClipPtr sequence_clip(std::vector<Frame> frames);
ClipPtr generated_clip(int frames, std::function<bool(int frame, const FrameFormat& format, void* dest)> read);

// Reads frame, held to the clip. False if the clip has none.
bool read_clip(const Clip& clip, int frame, const FrameFormat& format, void* dest);

}  // namespace spark_host
