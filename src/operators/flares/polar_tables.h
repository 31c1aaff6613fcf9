// What a polar flare looks like, as two tables that are read with the footprint of a pixel: its light over the angle
// and over the radius. They hang on their element and are made again when what they are made of has changed.
#pragma once

#include "operators/flares/lens_flare.h"

#include <cstddef>
#include <cstdint>

namespace velloran {

// A pyramid over one dimension: each level has half as many entries as the one below, each the mean of two. Read
// trilinearly.
struct PolarTable {
    int32_t size;         // entries of level 0, a power of two
    int32_t n_levels;     // log2(size) + 1
    int32_t wrap;         // 1: periodic; else black beyond its ends
    float start, scale;   // entry (coordinate - start) * scale
    float* entries;       // owned; levels[0] to the last, entries of four floats
    int32_t offsets[32];  // of each level's entry 0, in entries; a guard stands before it and another behind the last
};
constexpr int polar_entry_floats = 4;

// What the tables were made of.
struct PolarInputs {
    float gamma, frequency, rotation, width, saturation, frame_width;
    bool operator==(const PolarInputs& other) const = default;
};

struct PolarTables {
    PolarInputs inputs;
    PolarTable angular;            // three times the brightness, and what a radius is to be multiplied by
    float* pairs;                  // owned; of each angular entry one brightness and the factor, as rows read them
    PolarTable radial;             // three colours, and 1
    float arc_start, arc_width;    // radians; the arc that is drawn, before it is turned
    float min_factor, max_factor;  // of the radii over the angle
};

// The tables of an element for the given inputs: gamma is the exponent of colours, rotation in radians, frame_width in
// samples. Host's thread.
const PolarTables& prepare_polar_tables(LensFlarePolar* polar, const PolarInputs& inputs);
void free_polar_tables(PolarTables* tables);  // null is ignored

// A colour of a file as light: raised to gamma, tinted, at another saturation; nothing below 0. color and out: three.
void flare_light(const float* color, float gamma, const float* tint, float saturation, float* out);

}  // namespace velloran
