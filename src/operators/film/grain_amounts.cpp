#include "operators/film/grain_amounts.h"

#include <algorithm>
#include <cstdlib>

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

GrainBlur make_grain_blur(int32_t radius) {
    const int64_t gain = (int64_t{radius} * 8 + 5) / 10 + fix_scale;
    return {radius, std::max(radius - fix_scale / 2, 0), static_cast<int32_t>(std::min<int64_t>(gain, INT32_MAX))};
}

bool make_grain_kernel(const GrainBlur& blur, GrainKernel* kernel) {
    const auto whole_above = [](int32_t radius) { return (int64_t{radius} + fix_scale - 1) >> fix_bits; };
    const int64_t reach = whole_above(blur.radius) + whole_above(blur.second_radius);
    if (reach > longest_grain_reach) return false;
    // Of a box at a distance from its middle.
    const auto weight = [](int32_t radius, int distance) {
        const int low = radius >> fix_bits, high = (radius + fix_scale - 1) >> fix_bits;
        const double part = (radius - low * fix_scale) / static_cast<double>(fix_scale);
        return (distance <= low ? (1 - part) / (2 * low + 1) : 0) + (distance <= high ? part / (2 * high + 1) : 0);
    };
    kernel->reach = static_cast<int>(reach);
    for (int at = 0; at <= kernel->reach; ++at) {
        double sum = 0;
        for (int first = -kernel->reach; first <= kernel->reach; ++first)
            sum += weight(blur.radius, std::abs(first)) * weight(blur.second_radius, std::abs(at - first));
        kernel->weights[at] = static_cast<float>(sum);
        kernel->brighter[at] = static_cast<float>(sum * blur.gain / fix_scale);
    }
    return true;
}

FieldSeeds grain_field_seeds(int32_t hold, int64_t frame) {
    if (hold <= 0) return {static_cast<uint32_t>(frame * 2), static_cast<uint32_t>(frame * 2 + 1)};
    if (hold == 1) return {static_cast<uint32_t>(frame * 2), static_cast<uint32_t>(frame * 2)};
    const int64_t field = (frame - hold) * 2 + 20;
    return {pulldown_seed(field), pulldown_seed(field + 1)};
}

}  // namespace velloran
