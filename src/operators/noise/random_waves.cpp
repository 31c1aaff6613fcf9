#include "operators/noise/random_waves.h"

#include "operators/noise/noise_1d.h"
#include "support/hash.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace velloran {
namespace {

constexpr int interval_count = 1024;
constexpr float sawtooth_shape = 0.15f;

struct WaveInterval {
    float length, start;
    uint32_t hash;
};

// The intervals of a block of about 1024 units of time: their mean length is 1, the lengths are squares of even random
// numbers.
constexpr std::array<WaveInterval, interval_count> make_wave_intervals() {
    std::array<WaveInterval, interval_count> rows = {};
    double lengths[interval_count] = {}, sum = 0;
    uint32_t h = bit_hash(7070);
    for (int i = 0; i < interval_count; ++i) {
        h = bit_hash(h + 7070);
        lengths[i] = unit_hash(h) * unit_hash(h);
        sum += lengths[i];
        rows[static_cast<size_t>(i)].hash = h;
    }
    const double mean = sum / interval_count;
    double start = 0;
    for (int i = 0; i < interval_count; ++i) {
        WaveInterval& row = rows[static_cast<size_t>(i)];
        row.start = static_cast<float>(start);
        row.length = static_cast<float>(lengths[i] / mean);
        start += lengths[i] / mean;
    }
    return rows;
}
constexpr std::array<WaveInterval, interval_count> wave_intervals = make_wave_intervals();

// Waves of different seeds do not begin together.
double phase(uint32_t seed) { return 100 * unit_hash(bit_hash(seed + 1021)); }

// The last interval also takes the little that the sum of lengths falls short of the block.
const WaveInterval& interval_at(double rem) {
    int lo = 0, hi = interval_count;
    while (lo < hi) {
        const int mid = (lo + hi) >> 1;
        const WaveInterval& row = wave_intervals[static_cast<size_t>(mid)];
        const double start = static_cast<double>(row.start);
        if (start <= rem && rem < start + static_cast<double>(row.length)) return row;
        if (start >= rem)
            hi = mid;
        else
            lo = mid + 1;
    }
    return wave_intervals[static_cast<size_t>(std::min(lo, interval_count - 1))];
}

struct WavePlace {
    int64_t block;
    double rem;  // time within the block
    const WaveInterval& row;
    uint32_t key() const { return static_cast<uint32_t>(block) + row.hash; }
};
WavePlace locate(uint32_t seed, float t) {
    const double time = t == t ? std::clamp(static_cast<double>(t), -1073741824.0, 1073741824.0) : 0.0;
    const double at = time + phase(seed);
    const auto block = static_cast<int64_t>(std::floor(at / interval_count));
    const double rem = at - static_cast<double>(block) * interval_count;
    return {block, rem, interval_at(rem)};
}

float between(float lo, float hi, uint32_t h) { return lo + (hi - lo) * static_cast<float>(unit_hash(h)); }

float sawtooth_noise_at(uint32_t seed, double time, const SawtoothNoise& n) {
    const auto at = [time](float frequency) { return static_cast<float>(time * static_cast<double>(frequency)); };
    const float saw =
        random_sawtooth_wave(seed, at(n.frequency), n.level_lo, n.level_hi, n.slope_lo, n.slope_hi, sawtooth_shape);
    const auto octaves = static_cast<int>(std::clamp(n.octaves, 0.0f, 16.0f));
    return soft_threshold(n.weight_saw * saw + n.weight_noise * fnoise1(seed, at(n.noise_freq), octaves), n.threshold);
}

}  // namespace

uint32_t random_square_wave_seed(uint32_t seed, float t) { return bit_hash2(seed, locate(seed, t).key()); }

float random_square_wave_start_time(uint32_t seed, float t) {
    const WavePlace p = locate(seed, t);
    return static_cast<float>(static_cast<double>(p.block) * interval_count + static_cast<double>(p.row.start));
}

float random_square_wave(uint32_t seed, float t, float lo, float hi) {
    return between(lo, hi, random_square_wave_seed(seed, t));
}

WavePair random_square_wave2(uint32_t seed, float t, float lo, float hi) {
    const uint32_t key = locate(seed, t).key(), h = bit_hash2(seed, key);
    return {between(lo, hi, h), between(lo, hi, bit_hash2(h, key))};
}

float random_square_wave_b(uint32_t seed, float t) {
    const double time = t == t ? std::clamp(static_cast<double>(t), -1073741824.0, 1073741824.0) : 0.0;
    const double u = fnoise1(seed, t, 4) > 0 ? 0.25 * time + 0.03 : 0.5 * time + 0.1;
    return static_cast<float>(unit_hash(bit_hash2(seed, static_cast<uint32_t>(static_cast<int64_t>(std::floor(u))))));
}

float soft_threshold(float x, float threshold) {
    if (x == 0 || std::fabs(x) < threshold) return 0;
    return x < 0 ? x + threshold : x - threshold;
}

float random_sawtooth_wave(uint32_t seed, float t, float level_lo, float level_hi, float slope_lo, float slope_hi,
                           float shape) {
    const WavePlace p = locate(seed, t);
    const uint32_t h = bit_hash2(seed, p.key());
    const float level = between(level_lo, level_hi, h);
    const float steepness = soft_threshold(static_cast<float>(unit_hash(bit_hash(h))), shape);
    const float slope = slope_lo + steepness * (slope_hi - slope_lo);
    return level + slope * static_cast<float>(p.rem - static_cast<double>(p.row.start));
}

SawtoothValue random_sawtooth_noise(uint32_t seed, float t, const SawtoothNoise& noise) {
    const double time = static_cast<double>(t) + phase(seed);
    const float value = sawtooth_noise_at(seed, time, noise);
    return {value, value - sawtooth_noise_at(seed, time - 1, noise)};
}

}  // namespace velloran
