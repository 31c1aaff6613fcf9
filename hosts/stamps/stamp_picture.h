// A stamp as it is made: how much of the picture it covers, 0 to 1, the top row first.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace stamp_maker {

struct StampPicture {
    int width = 0, height = 0;
    int resolution = 100;  // samples in 100 pixels of a frame 1920 wide
    std::vector<float> samples;

    StampPicture() = default;
    StampPicture(int w, int h) : width(w), height(h), samples(static_cast<size_t>(w) * static_cast<size_t>(h)) {}
    float& at(int x, int y) {
        return samples[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)];
    }
    float at(int x, int y) const {
        return samples[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)];
    }
};

// The part that is not empty, at 8 bits.
inline StampPicture trimmed(const StampPicture& picture) {
    int left = picture.width, right = -1, top = picture.height, bottom = -1;
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x) {
            if (picture.at(x, y) < 0.5f / 255) continue;
            left = std::min(left, x);
            right = std::max(right, x);
            top = std::min(top, y);
            bottom = std::max(bottom, y);
        }
    if (right < left) return {};
    StampPicture part(right - left + 1, bottom - top + 1);
    part.resolution = picture.resolution;
    for (int y = 0; y < part.height; ++y)
        for (int x = 0; x < part.width; ++x) part.at(x, y) = picture.at(left + x, top + y);
    return part;
}

}  // namespace stamp_maker
