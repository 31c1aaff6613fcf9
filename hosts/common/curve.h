// A value over time: keys at frames of the timeline, which counts from 1.
#pragma once

#include <vector>

namespace spark_host {

// How a curve goes from a key to the next one.
enum class Interpolation { constant, linear, hermite };

struct Key {
    float frame, value;
    Interpolation interpolation = Interpolation::linear;
};

struct Curve {
    std::vector<Key> keys;  // frames ascending, no two alike
};

// Adds a key, or moves the one at that frame; a moved key keeps its interpolation unless one is given.
void set_key(Curve& curve, float frame, float value);
void set_key(Curve& curve, float frame, float value, Interpolation interpolation);

// The value at a frame; outside the keys that of the nearest one, without keys fallback. Hermite pieces take at each
// key the slope between its neighbours, at the ends 0 (Catmull and Rom's choice for uneven knots).
float curve_value(const Curve& curve, float frame, float fallback);

const char* interpolation_word(Interpolation interpolation);
// False, and the argument as it was, for an unknown word.
bool read_interpolation(const char* word, Interpolation& interpolation);

}  // namespace spark_host
