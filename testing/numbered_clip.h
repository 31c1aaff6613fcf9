// Clips whose frames say in every pixel which frame they are, and that note what was asked for.
#pragma once

#include "hosts/common/clip.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace velloran_tests {

// The sample, 0 to 4095, of a frame at pixel (x, y) of channel c.
inline int numbered_sample(int frame, int x, int y, int c, int clip = 0) {
    return (frame * 601 + clip * 1733 + x * 37 + y * 91 + c * 1201 + x * y * 5) & 4095;
}

struct NumberedClip {
    std::vector<int> asked;  // frames, in order
    int missing = -1;        // the host has no such frame

    spark_host::ClipPtr clip(int frames, int number = 0) {
        return spark_host::generated_clip(
            frames, [this, number](int frame, const spark_host::FrameFormat& format, void* dest) {
                asked.push_back(frame);
                if (frame == missing) return false;
                auto* at = static_cast<uint16_t*>(dest);
                for (int y = 0; y < format.height; ++y)
                    for (int x = 0; x < format.width; ++x)
                        for (int c = 0; c < 3; ++c)
                            *at++ = static_cast<uint16_t>(numbered_sample(frame, x, y, c, number) << 4);
                return true;
            });
    }
};

}  // namespace velloran_tests
