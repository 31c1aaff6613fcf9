// Row functions of patterns over coordinates: facets of an array of lenses, and rings on water. Coordinates are floats,
// 1.0 half the frame's width.
#pragma once

#include "operators/mipmap/sample_rows.h"

#include <cstdint>

namespace velloran {

// From coordinates to those in the lattice of facets, and from a place in a facet to the picture.
struct Facets {
    float to_lattice[4], offset[2];  // lattice = to_lattice * (x, y) + offset; facets are 1 apart in x
    float to_picture[4];             // picture = to_picture * place in the facet
    float softness;                  // of the border, as a share of the way to a facet's middle; 0 sharp
};

// Rings round one centre: radial movements amplitude * sin(frequency * r - phase) between two radii.
struct Drop {
    float x, y;
    float amplitude;
    float frequency, phase;          // turns a unit, turns
    float inner, outer;              // radii of full strength
    float inner_slope, outer_slope;  // 1 / softness
    float reach;                     // from here on there is nothing
};

struct PatternRows {
    // coords = (position + offset) * scale
    void (*coordinates)(const int32_t* positions, float offset, float scale, float* out, int n);
    // position = coords * scale + offset
    void (*positions)(const float* coords, float scale, float offset, int32_t* out, int n);
    // Coordinates in place, and what is left of the picture at the border of its facet, 1 in the middle.
    void (*facets)(const Facets& facets, float* x, float* y, float* fade, int n);
    // Adds the rings of one drop.
    void (*rings)(const Drop& drop, const float* x, const float* y, float* moved_x, float* moved_y, int n);
    // out = a * x + b * y, in samples, held to +-32767
    void (*turned)(const float* x, const float* y, float a, float b, FixPixel* out, int n);
};
const PatternRows& pattern_rows();

}  // namespace velloran
