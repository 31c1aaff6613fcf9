// Noise over one dimension, for what changes with time or along a line: flicker, weave, bolts, rings. Pure functions of
// seed and place; any task. Places beyond +-2^30 are held there, NaN counts as 0.
#pragma once

#include <cstdint>

namespace velloran {

// Octaves beyond 16 count as 16. 0 octaves or fewer: 0.

// Value noise, linear between a random value at each whole number; each octave is moved by up to a quarter. Within
// -1 .. 1, mean 0. The first octave has one value for each unit of x.
float fnoise1(uint32_t seed, float x, int octaves);

// The same with a quadratic B-spline through the values: without corners, and with less swing.
float qfnoise1(uint32_t seed, float x, int octaves);

// Noise that closes on itself: x from 0 to 1 goes once around. Within -1 .. 1. The first octave has 2 * period values
// around. -1 for fewer than one octave or a period below 1.
float fnoise1_wrap(uint32_t seed, float x, int period, int octaves);

}  // namespace velloran
