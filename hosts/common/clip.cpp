#include "hosts/common/clip.h"

#include <algorithm>
#include <cstring>

namespace spark_host {
namespace {

bool copy_frame(const Frame& frame, const FrameFormat& format, void* dest) {
    if (frame.format.width != format.width || frame.format.height != format.height) return false;
    if (static_cast<long>(frame.bytes.size()) < frame.format.bytes()) return false;
    const size_t n = static_cast<size_t>(format.pixels()) * 3;
    const unsigned char* const from = frame.bytes.data();
    if (frame.format.sample_bytes() == format.sample_bytes()) {
        std::memcpy(dest, from, static_cast<size_t>(format.bytes()));
    } else if (format.sample_bytes() == 2) {
        auto* const to = static_cast<unsigned short*>(dest);
        for (size_t i = 0; i < n; i++) to[i] = static_cast<unsigned short>(from[i] * 257);
    } else {
        const auto* const words = reinterpret_cast<const unsigned short*>(from);
        auto* const to = static_cast<unsigned char*>(dest);
        for (size_t i = 0; i < n; i++) to[i] = static_cast<unsigned char>(words[i] >> 8);
    }
    return true;
}

}  // namespace

ClipPtr sequence_clip(std::vector<Frame> frames) {
    auto clip = std::make_shared<Clip>();
    clip->frames = static_cast<int>(frames.size());
    clip->read = [frames = std::move(frames)](int frame, const FrameFormat& format, void* dest) {
        return copy_frame(frames[static_cast<size_t>(frame)], format, dest);
    };
    return clip;
}

ClipPtr still_clip(Frame frame) {
    std::vector<Frame> frames;
    frames.push_back(std::move(frame));
    return sequence_clip(std::move(frames));
}

ClipPtr generated_clip(int frames, std::function<bool(int, const FrameFormat&, void*)> read) {
    auto clip = std::make_shared<Clip>();
    clip->frames = frames;
    clip->read = std::move(read);
    return clip;
}

bool read_clip(const Clip& clip, int frame, const FrameFormat& format, void* dest) {
    if (clip.frames < 1 || !clip.read) return false;
    return clip.read(std::clamp(frame, 0, clip.frames - 1), format, dest);
}

}  // namespace spark_host
