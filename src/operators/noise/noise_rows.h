// Row functions of the noises that are evaluated sample by sample. All read their whole input of a sample before they
// write its output, so that an output may be an input line. Any task.
#pragma once

#include <cstdint>

namespace velloran {

// Where the samples of a line are in the pattern: coordinates with 12 fraction bits, and lattice cells for each of
// their units.
struct NoiseLine {
    const int32_t *x, *y, *z;  // z: null in two dimensions
    int n;
    float scale_x, scale_y, scale_z;
    uint32_t seed;
};

// Noise on a lattice of hashed values (lattice_rows.cpp).
struct LatticeRows {
    // fix_solid_noise with 1, 2 and 3 results, 0 .. 4095 about 2048. octaves: 12 fraction bits, at most 8.0; at or
    // below 0 all is 2048. Index: results - 1.
    void (*solid[3])(const NoiseLine& line, int32_t octaves, int32_t* const* out);
    // fix_spots. radius: in cells, 12 fraction bits, at most 1536.
    void (*spots)(const NoiseLine& line, int32_t radius, int32_t* out);
    // fix_voronoi. rotate: angle of the points in their cells in a circle of 4096.
    void (*voronoi)(const NoiseLine& line, int32_t rotate, int32_t* out);
};
const LatticeRows& lattice_rows();

// Noise of gradients (gradient_rows.cpp). octaves: 1 .. 8. fold: each octave counts without its sign. x_offset is added
// to the coordinate x, with 12 fraction bits.
struct GradientRows {
    void (*perlin2)(const NoiseLine& line, int octaves, bool fold, int32_t x_offset, int32_t* out);
    void (*simplex2)(const NoiseLine& line, int octaves, bool fold, int32_t x_offset, int32_t* out);
    void (*simplex3)(const NoiseLine& line, int octaves, bool fold, int32_t x_offset, int32_t* out);
};
const GradientRows& gradient_rows();

struct HexTileParams {
    float frequency_x, frequency_y;
    float across, up;  // height for each unit of the two sides of a tile
    int32_t base;
};
// White noise and tiles (white_rows.cpp).
struct WhiteRows {
    // Sample number n of the line has hash of first + n.
    void (*static1)(uint32_t first, int n, int32_t* const* out);
    void (*static2)(uint32_t first, int n, int32_t* const* out);
    void (*static3)(uint32_t first, int n, int32_t* const* out);
    void (*random1)(const int32_t* a, int n, int32_t* out);
    void (*random2)(const int32_t* a, const int32_t* b, int n, int32_t* out0, int32_t* out1);
    void (*hex_tiles)(const int32_t* x, const int32_t* y, int n, const HexTileParams& params, int32_t* out);
};
const WhiteRows& white_rows();

}  // namespace velloran
