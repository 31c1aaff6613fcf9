#include "operators/lightning/object_edge.h"

#include "support/hash.h"
#include "support/memory.h"
#include "support/user_abort.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace velloran {

namespace {

constexpr int most_points = 8192;

// Sample (x, y) of a matte; what lies outside counts as its edge sample, so that the frame is no edge.
struct Matte {
    const FixPixel* plane;
    int width, height;
    int32_t threshold;
    bool inside(int x, int y) const {
        x = std::clamp(x, 0, width - 1);
        y = std::clamp(y, 0, height - 1);
        return plane[ptrdiff_t{y} * width + x] >= threshold;
    }
    bool edge(int x, int y) const {
        return inside(x, y) && !(inside(x - 1, y) && inside(x + 1, y) && inside(x, y - 1) && inside(x, y + 1));
    }
};

// Away from what lies inside in the neighbourhood.
void set_outwards(const Matte& matte, int x, int y, float aspect, EdgePoint* point) {
    float dx = 0, dy = 0;
    for (int j = -2; j <= 2; ++j)
        for (int i = -2; i <= 2; ++i) {
            if (matte.inside(x + i, y + j)) continue;
            dx += static_cast<float>(i);
            dy += static_cast<float>(j) * aspect;
        }
    const float length = std::sqrt(dx * dx + dy * dy);
    point->out_x = length > 0 ? dx / length : 0;
    point->out_y = length > 0 ? dy / length : 1;
}

// The part of a base's inverse: well spread for successive numbers (van der Corput).
float spread(uint32_t n, uint32_t base) {
    float part = 1, sum = 0;
    for (; n; n /= base) {
        part /= static_cast<float>(base);
        sum += part * static_cast<float>(n % base);
    }
    return sum;
}

}  // namespace

ObjectEdge find_object_edge(const BoltCanvas& canvas, const FixPixel* plane, const FixPixel* mask, int32_t threshold) {
    const Matte matte = {plane, canvas.width, canvas.height, std::max(threshold, 1)};
    ObjectEdge edge = {frame_array<EdgePoint>(most_points), 0, 1e9f, -1e9f, 1e9f, -1e9f};
    // Every point of an edge that has room for all, else every second, fourth and so on: the list is thinned as it
    // fills.
    int every = 1, seen = 0;
    for (int y = 0; y < canvas.height; ++y) {
        if ((y & 63) == 0 && poll_abort()) break;
        for (int x = 0; x < canvas.width; ++x) {
            if (plane[ptrdiff_t{y} * canvas.width + x] < matte.threshold || !matte.edge(x, y)) continue;
            if (mask && mask[ptrdiff_t{y} * canvas.width + x] <= 0) continue;
            if (seen++ % every) continue;
            if (edge.count == most_points) {
                for (int i = 0; i < most_points / 2; ++i) edge.points[i] = edge.points[2 * i];
                edge.count = most_points / 2;
                every *= 2;
                if ((seen - 1) % every) continue;
            }
            EdgePoint& point = edge.points[edge.count++];
            point.x = bolt_x(canvas, x + canvas.left);
            point.y = bolt_y(canvas, y + canvas.bottom);
            set_outwards(matte, x, y, canvas.aspect, &point);
        }
    }
    for (int i = 0; i < edge.count; ++i) {
        edge.left = std::min(edge.left, edge.points[i].x);
        edge.right = std::max(edge.right, edge.points[i].x);
        edge.bottom = std::min(edge.bottom, edge.points[i].y);
        edge.top = std::max(edge.top, edge.points[i].y);
    }
    return edge;
}

const EdgePoint* pick_edge_point(const ObjectEdge& edge, const BoltLook& look, uint32_t number, float evenness) {
    const uint32_t own = bit_hash2(look.seed, number);
    const auto chance = [&](uint32_t what) { return static_cast<float>(unit_hash(bit_hash2(own, what))); };
    const auto start = [&](uint32_t what) { return static_cast<float>(unit_hash(bit_hash2(look.seed, what))); };
    const auto mixed = [&](uint32_t base, uint32_t what) {
        float even = spread(number + 1, base) + start(what);
        even -= std::floor(even);
        return chance(what) + (even - chance(what)) * std::clamp(evenness, 0.0f, 1.0f);
    };
    // Around the object, so that its ends are met as often as its middle.
    const float margin = 0.3f, w = edge.right - edge.left, h = edge.top - edge.bottom;
    float x = edge.left + w * (mixed(2, 11) * (1 + 2 * margin) - margin);
    float y = edge.bottom + h * (mixed(3, 12) * (1 + 2 * margin) - margin);
    stray(&x, &y, 0.05f, look, number);
    const EdgePoint* best = nullptr;
    float nearest = 0;
    for (int i = 0; i < edge.count; ++i) {
        const EdgePoint& p = edge.points[i];
        const float distance = (p.x - x) * (p.x - x) + (p.y - y) * (p.y - y);
        if (best && distance >= nearest) continue;
        best = &p;
        nearest = distance;
    }
    return best;
}

}  // namespace velloran
