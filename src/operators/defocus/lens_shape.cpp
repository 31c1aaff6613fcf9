#include "operators/defocus/lens_shape.h"

#include "support/hash.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

constexpr float turn = 6.2831853f, half_turn = 0.5f * turn;
constexpr int most_sides = 256;
constexpr float most_pointiness = 0.9f;  // a star keeps an area
constexpr float largest_size = 5.0f;     // the most pointed star of three corners reaches 4.9 radii

// The outline of a side at an angle from its middle, corners at 1.
float outline(const LensShape& s, float angle) {
    if (s.settings.sides < 3) return 1.0f;
    // Straight from the middle of the side, at distance `middle` and angle 0, to the corner.
    const float half = half_turn / static_cast<float>(s.settings.sides), a = std::fabs(angle);
    const float straight = s.middle * std::sin(half) / (std::sin(half - a) + s.middle * std::sin(a));
    return straight + (1.0f - straight) * s.round;
}

// Within a side, from its middle.
float angle_in_side(const LensShape& s, float angle) {
    if (s.settings.sides < 3) return 0.0f;
    const float side = turn / static_cast<float>(s.settings.sides);
    const float from_corner = angle - 0.25f * turn - s.settings.rotate * turn;
    return from_corner - side * std::floor(from_corner / side) - 0.5f * side;
}

// Values on a lattice, smoothly joined, -1 to 1.
float grain(float x, float y, uint32_t seed) {
    const float fx = std::floor(x), fy = std::floor(y);
    const auto smooth = [](float t) { return t * t * (3.0f - 2.0f * t); };
    const auto value = [&](int i, int j) {
        const uint32_t h = bit_hash2(bit_hash(seed) ^ static_cast<uint32_t>(static_cast<int>(fy) + j),
                                     static_cast<uint32_t>(static_cast<int>(fx) + i));
        return static_cast<float>(2.0 * unit_hash(h) - 1.0);
    };
    const float u = smooth(x - fx), v = smooth(y - fy);
    const float low = value(0, 0) + (value(1, 0) - value(0, 0)) * u;
    const float high = value(0, 1) + (value(1, 1) - value(0, 1)) * u;
    return low + (high - low) * v;
}

}  // namespace

LensShape prepare_lens_shape(const LensSettings& settings) {
    LensShape s = {settings, 1.0f, 1.0f, 0.0f, 1.0f};
    s.settings.sides = std::min(settings.sides, most_sides);
    s.settings.rotate -= std::floor(s.settings.rotate);
    if (s.settings.sides < 3) return s;
    const float half = half_turn / static_cast<float>(s.settings.sides);
    s.middle = std::cos(half) * (1.0f - std::clamp(settings.pointiness, 0.0f, most_pointiness));
    s.round = std::clamp(-settings.pointiness, 0.0f, 1.0f);
    // The area of half a side, and how fast the outline falls, on a fan of triangles.
    constexpr int fans = 256;
    double area = 0.0;
    float slope = 0.0f;
    for (int i = 0; i < fans; ++i) {
        const float a = half * static_cast<float>(i) / fans, b = half * static_cast<float>(i + 1) / fans;
        const float ra = outline(s, a), rb = outline(s, b);
        area += 0.5 * static_cast<double>(ra * rb * std::sin(b - a));
        slope = std::max(slope, std::fabs(rb - ra) / ((b - a) * std::min(ra, rb)));
    }
    area *= 2.0 * s.settings.sides;
    s.size = std::min(static_cast<float>(std::sqrt(static_cast<double>(half_turn) / area)), largest_size);
    s.steepness = std::sqrt(1.0f + slope * slope) / (s.size * std::min(s.middle + (1.0f - s.middle) * s.round, 1.0f));
    return s;
}

float lens_depth(const LensShape& s, float x, float y) {
    const float distance = std::sqrt(x * x + y * y);
    if (s.settings.sides < 3) return distance;
    return distance / (s.size * outline(s, angle_in_side(s, std::atan2(y, x))));
}

float lens_brightness(const LensShape& s, float depth, float x, float y) {
    float v = 1.0f;
    // A rim that is brighter is narrow; one that is darker falls off from the middle on.
    const float squared = std::min(depth * depth, 1.0f);
    if (s.settings.bokeh > 0.0f) v += s.settings.bokeh * squared * squared * squared;
    if (s.settings.bokeh < 0.0f) v += s.settings.bokeh * squared;
    if (s.settings.noise_amp != 0.0f)
        v *= 1.0f + s.settings.noise_amp *
                        grain(x * s.settings.noise_freq[0], y * s.settings.noise_freq[1], s.settings.noise_seed);
    return std::max(v, 0.0f);
}

}  // namespace velloran
