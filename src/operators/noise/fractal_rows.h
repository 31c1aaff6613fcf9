// Rows of noise by subdivision. Samples within +-8191 but for those of double_wide and read.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// The bits of a hash that a channel draws its values from.
enum FractalChannel : int { fractal_first, fractal_second, fractal_third };

struct FractalRows {
    // Adds random values, -4096 .. 4095 before they are shifted right, to the numbers first .. of a row of the lattice.
    void (*add_random)(FixPixel* row, int n, uint32_t row_hash, uint32_t first, FractalChannel channel, int shift);
    // Half the sample plus offset; sample * half_scale.
    void (*halve)(FixPixel* row, int n, int32_t offset);
    void (*scale)(FixPixel* row, int n, int32_t half_scale);

    // Doubles a line: in[0] has the number in_first, out the numbers first .. first + n - 1 of the doubled line.
    void (*double_line)(const FixPixel* in, int64_t in_first, FixPixel* out, int64_t first, int n);
    // A doubled line between two, and one on the middle one of three.
    void (*between)(const FixPixel* a, const FixPixel* b, FixPixel* out, int n);
    void (*on)(const FixPixel* a, const FixPixel* b, const FixPixel* c, FixPixel* out, int n);

    // Reads a line at start + i * pitch, 16 fraction bits: of the way to the next sample the quarters count.
    void (*read)(const FixPixel* in, int64_t start, int64_t pitch, FixPixel* out, int n);
    // The same quarter of the way from line a to line b.
    void (*blend)(const FixPixel* a, const FixPixel* b, int quarters, FixPixel* out, int n);
};
const FractalRows& fractal_rows();

}  // namespace velloran
