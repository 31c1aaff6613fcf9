#include "operators/blur/wu_line.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace velloran {

void draw_wu_line(float* kernel, int width, int height, float x0, float y0, float x1, float y1, float weight,
                  LineShape shape, const void* context) {
    const auto add = [&](int x, int y, float v) {
        if (x >= 0 && x < width && y >= 0 && y < height) kernel[static_cast<ptrdiff_t>(y) * width + x] += v;
    };
    const float dx = x1 - x0, dy = y1 - y0;
    if (dx == 0.0f && dy == 0.0f) {
        const int x = static_cast<int>(std::floor(x0 + 0.5f)), y = static_cast<int>(std::floor(y0));
        const float frac = y0 - static_cast<float>(y);
        add(x, y, weight * (1.0f - frac));
        add(x, y + 1, weight * frac);
        return;
    }
    const bool steep = std::fabs(dy) > std::fabs(dx);
    float from = steep ? y0 : x0, to = steep ? y1 : x1, across = steep ? x0 : y0;
    float direction = 1.0f;  // of the shape: the ends may have changed places
    const float gradient = steep ? dx / dy : dy / dx;
    if (from > to) {
        std::swap(from, to);
        across = steep ? x1 : y1;
        direction = -1.0f;
    }
    const float middle = (from + to) * 0.5f, half = (to - from) * 0.5f;
    const int first = static_cast<int>(std::floor(from + 0.5f)), last = static_cast<int>(std::floor(to + 0.5f));
    for (int i = first; i <= last; ++i) {
        const float at = static_cast<float>(i);
        const float cover = std::min(to, at + 0.5f) - std::max(from, at - 0.5f);
        if (cover <= 0.0f) continue;
        const float position = across + (at - from) * gradient;
        const float floor_position = std::floor(position);
        const int k = static_cast<int>(floor_position);
        const float frac = position - floor_position;
        float w = weight * std::min(cover, 1.0f);
        if (shape) w *= shape(context, std::clamp((at - middle) / std::max(half, 1.0f), -1.0f, 1.0f) * direction);
        if (steep) {
            add(k, i, w * (1.0f - frac));
            add(k + 1, i, w * frac);
        } else {
            add(i, k, w * (1.0f - frac));
            add(i, k + 1, w * frac);
        }
    }
}

}  // namespace velloran
