// Noise over a whole frame by subdivision: what follows from sizes and numbers alone, before a sample is made.
//
// A lattice of random values is drawn over the frame and doubled again and again, each time into a finer grid of a
// smooth surface (the subdivision of uniform cubic B-splines), until one more doubling would leave the frame's number
// of samples. To the first grids finer random values are added: the octaves. At the end the grid is doubled once more
// and read at the frame's samples. How often is doubled hangs on the whole frame, so a crop shows what stands there
// without it; of each grid only what the planes need is made.
#pragma once

#include <cstdint>

namespace velloran {

struct FractalNoise {
    double frequency[2];  // lattice cells for each unit of coordinates, before it is held to what the frame can show
    int octaves;          // at least 1
    double shift[2];      // in coordinates; positive to the right and up
    uint32_t seed;
    int32_t scale;   // strength, 12 fraction bits; 4096: half the sum of octaves
    int32_t offset;  // is added where the strength is 4096
};

struct FractalFrame {
    int width, height;   // of the frame, pixels
    double half_height;  // of the frame, in coordinates
    double pixel_aspect;
    int step;           // pixels of a sample
    int column, row;    // sample of the frame at which the planes begin
    int columns, rows;  // of the planes
};

// More than any frame and frequency lead to: from a span of one step, 1/4096, to 262,144 samples.
constexpr int most_doublings = 40;

// A grid's numbers along one axis that are needed.
struct GridSpan {
    int64_t first;
    int count;
};

struct FractalAxis {
    bool doubled[most_doublings];        // by doubling
    GridSpan spans[most_doublings + 2];  // of the grid before each doubling; then the last grid; then that doubled
    // Where the planes' samples are in the last grid doubled: sample i at start + i * pitch, 16 fraction bits.
    int64_t start;
    int64_t pitch;
};

struct FractalPlan {
    int doublings;
    FractalAxis x, y;
    int octave[most_doublings];  // that is added after a doubling; 0: none
};

FractalPlan plan_fractal_noise(const FractalNoise& noise, const FractalFrame& frame);

}  // namespace velloran
