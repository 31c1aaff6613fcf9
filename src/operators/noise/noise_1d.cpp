#include "operators/noise/noise_1d.h"

#include "operators/noise/octave_norm.h"
#include "support/hash.h"

#include <algorithm>
#include <cmath>

namespace velloran {
namespace {

double held(float x) { return x == x ? std::clamp(static_cast<double>(x), -1073741824.0, 1073741824.0) : 0.0; }

// A place among the whole numbers: the cell, as the hash counts it, and the way into it.
struct Place {
    uint32_t cell;
    double t;
};
Place place_of(double p) {
    const double cell = std::floor(p);
    return {static_cast<uint32_t>(static_cast<int64_t>(cell)), p - cell};
}

// Octaves that all had a value at the same places would add up to a visible grid.
double octave_shift(uint32_t seed, int octave) {
    return unit_hash(bit_hash(seed + 701 + static_cast<uint32_t>(octave))) * 0.5 - 0.25;
}

double value_at(uint32_t key) { return unit_hash(bit_hash(key)); }

// The uniform quadratic B-spline around the middle one of three values.
double b_spline(double left, double centre, double right, double t) {
    return (0.5 - t + 0.5 * t * t) * left + (0.5 + t - t * t) * centre + 0.5 * t * t * right;
}

}  // namespace

float fnoise1(uint32_t seed, float x, int octaves) {
    const double at = held(x);
    double sum = 0, amplitude = 1, frequency = 1;
    for (int i = 0; i < std::min(octaves, max_norm_octaves); ++i, amplitude /= 2, frequency *= 2) {
        const auto octave = static_cast<uint32_t>(i);
        const Place p = place_of(octave_shift(seed, i) + frequency * at);
        const double lo = unit_hash(bit_hash2(seed + p.cell, octave));
        const double hi = unit_hash(bit_hash2(seed + p.cell + 1, octave));
        sum += 2 * amplitude * (lo + p.t * (hi - lo) - 0.5);
    }
    return static_cast<float>(sum * static_cast<double>(octave_norm(octaves)));
}

float qfnoise1(uint32_t seed, float x, int octaves) {
    const double at = held(x);
    double sum = 0, amplitude = 1, frequency = 1;
    for (int i = 0; i < std::min(octaves, max_norm_octaves); ++i, amplitude /= 2, frequency *= 2) {
        const Place p = place_of(octave_shift(seed, i) + frequency * at + 0.5);
        const uint32_t key = seed + p.cell;
        sum += (2 * b_spline(value_at(key - 1), value_at(key), value_at(key + 1), p.t) - 1) * amplitude;
    }
    return static_cast<float>(sum * static_cast<double>(octave_norm(octaves)));
}

float fnoise1_wrap(uint32_t seed, float x, int period, int octaves) {
    if (octaves < 1 || period < 1) return -1;
    const double at = x == x ? std::clamp(static_cast<double>(x), 0.0, 1.0) : 0.0;
    const int most = std::min(octaves, max_norm_octaves);
    double sum = -1, weight = 2 * static_cast<double>(octave_norm(octaves));
    int64_t n = std::min(period, 1 << 24);
    for (int i = 0; i < most; ++i, seed += 0x100000, weight /= 2) {
        n *= 2;
        const double p = static_cast<double>(n) * at;
        auto cell = static_cast<int64_t>(p);
        const double t = p - static_cast<double>(cell);
        if (cell >= n) cell -= n;
        const int64_t left = cell < 1 ? n - 1 : cell - 1, right = cell >= n - 1 ? 0 : cell + 1;
        const auto value = [seed](int64_t at_cell) { return value_at(seed + static_cast<uint32_t>(at_cell)); };
        sum += b_spline(value(left), value(cell), value(right), t) * weight;
    }
    return static_cast<float>(sum);
}

}  // namespace velloran
