#include "operators/film/grain_amounts.h"

#include <algorithm>

namespace velloran {

namespace {

float slope(float u) { return u + u * u - u * u * u; }

int64_t floor_of_fifth(int64_t n) { return n >= 0 ? n / 5 : -((4 - n) / 5); }

uint32_t pulldown_seed(int64_t field) {
    const int64_t pair = floor_of_fifth(field);
    return static_cast<uint32_t>(pair * 2 + (field - pair * 5 >= 2));
}

}  // namespace

void fill_grain_amounts(float* amounts, float midtone, float darks, float brights, float factor) {
    constexpr float shortest = 0.0001f, most = 100000.0f;
    for (int i = 0; i < grain_levels; ++i) {
        const float t = static_cast<float>(i) / (grain_levels - 1);
        float v;
        if (t < midtone)
            v = darks + (1 - darks) * slope(t / std::max(midtone, shortest));
        else
            v = brights + (1 - brights) * slope((1 - t) / std::max(1 - midtone, shortest));
        amounts[i] = std::clamp(v * factor, -most, most);
    }
}

FieldSeeds grain_field_seeds(int32_t hold, int64_t frame) {
    if (hold <= 0) return {static_cast<uint32_t>(frame * 2), static_cast<uint32_t>(frame * 2 + 1)};
    if (hold == 1) return {static_cast<uint32_t>(frame * 2), static_cast<uint32_t>(frame * 2)};
    const int64_t field = (frame - hold) * 2 + 20;
    return {pulldown_seed(field), pulldown_seed(field + 1)};
}

}  // namespace velloran
