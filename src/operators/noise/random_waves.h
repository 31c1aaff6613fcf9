// Waves over time that change their value at random instants: lengths between changes are skewed, many short and few
// long ones, on average one unit of time. Pure functions of seed and time; any task. Times beyond +-2^30 are held
// there, NaN counts as 0.
#pragma once

#include <cstdint>

namespace velloran {

// The interval that t falls into, as a hash of seed and interval: what is random about the interval is drawn from it.
uint32_t random_square_wave_seed(uint32_t seed, float t);
// When that interval begins, on the wave's own clock, which is ahead of t by a phase of 0 to 100 that hangs on the
// seed.
float random_square_wave_start_time(uint32_t seed, float t);

// One value between lo and hi for each interval.
float random_square_wave(uint32_t seed, float t, float lo, float hi);

// Two such values that change at the same instants.
struct WavePair {
    float a, b;
};
WavePair random_square_wave2(uint32_t seed, float t, float lo, float hi);

// 0 .. 1, changing at whole numbers of a clock that goes at two speeds, every 4 or every 2 units of time.
float random_square_wave_b(uint32_t seed, float t);

// Takes threshold off the size of x; 0 where it is less.
float soft_threshold(float x, float threshold);

// Each interval begins at a level between level_lo and level_hi and goes on at a slope between slope_lo and slope_hi, a
// change in value for each unit of time. shape is the share of intervals that keep to slope_lo.
float random_sawtooth_wave(uint32_t seed, float t, float level_lo, float level_hi, float slope_lo, float slope_hi,
                           float shape);

// A sawtooth with 1-D noise over it, less a threshold.
struct SawtoothNoise {
    float level_lo, level_hi, slope_lo, slope_hi;
    float octaves;  // of the noise, truncated
    float weight_noise, weight_saw;
    float threshold;
    float frequency, noise_freq;  // changes for each unit of time
};
struct SawtoothValue {
    float value, delta;  // delta: against one unit of time before
};
SawtoothValue random_sawtooth_noise(uint32_t seed, float t, const SawtoothNoise& noise);

}  // namespace velloran
