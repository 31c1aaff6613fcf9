// Film laid on fields, as samples: for tests of what finds the cadence and takes it away.
#pragma once

#include "testing/field_model.h"

#include <cstdint>
#include <cstdlib>

namespace velloran_tests {

// Which picture each field of a clip shows: holds, again and again, the first of them from field phase on.
inline std::vector<int> telecine_pictures(const std::vector<int>& holds, int phase, int fields) {
    int total = 0;
    for (const int hold : holds) total += hold;
    std::vector<int> pictures;
    int picture = 0, skipped = (total - phase % total) % total;
    for (size_t i = 0; (int)pictures.size() < fields; i = (i + 1) % holds.size(), ++picture)
        for (int k = 0; k < holds[i]; ++k)
            if (skipped-- <= 0) pictures.push_back(picture);
    const int first = pictures[0];
    for (int& p : pictures) p -= first;
    return pictures;
}

struct TelecineClip {
    int width = 48, height = 32;
    std::vector<int> pictures;  // of each field, in time
    int dominance = 0;
    int noise = 0;      // so many steps of 4095 to both sides, new in each frame
    int still_to = -1;  // pictures up to this one are the same
    int cut_at = -1;    // another scene from this picture on
    int contrast = 1500;

    // A sample of picture n: soft shapes that move.
    int film(int n, int x, int y, int c) const {
        const bool other = cut_at >= 0 && n >= cut_at;
        const float t = (float)std::max(n, still_to) * (other ? 2.3f : 1.7f), u = other ? 0.21f : 0.13f;
        const float v = std::sin(((float)x + t * 1.3f) * u + (float)c) *
                        std::cos(((float)y - t) * u * 0.8f + (other ? 1.0f : 0.0f));
        return std::clamp((int)std::lround(2048 + (float)contrast * v), 0, 4095);
    }
    int sample(int frame, int x, int y, int c) const {
        const int parity = y & 1, logical = parity ^ dominance;
        const size_t at = std::min((size_t)(2 * frame + logical), pictures.size() - 1);
        int v = film(pictures[at], x, y, c);
        if (noise) {
            uint32_t h = (uint32_t)(((frame * 131 + y) * 257 + x) * 3 + c) * 2654435761u;
            h ^= h >> 15;
            v += (int)(h * 2246822519u >> 8) % (2 * noise + 1) - noise;
        }
        return std::clamp(v, 0, 4095);
    }
    FieldModelFrame planes(int frame) const {
        FieldModelFrame planes(3, std::vector<int>((size_t)(width * height)));
        for (int c = 0; c < 3; ++c)
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x) planes[(size_t)c][(size_t)(y * width + x)] = sample(frame, x, y, c);
        return planes;
    }
    void write(int frame, uint16_t* at) const {
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                for (int c = 0; c < 3; ++c) *at++ = (uint16_t)(sample(frame, x, y, c) << 4);
    }
};

}  // namespace velloran_tests
