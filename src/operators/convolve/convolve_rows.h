// Row functions of the convolution. Complex samples are pairs of floats, real part first; n counts samples.
#pragma once

#include "records/fix_pixel.h"

#include <cstddef>
#include <cstdint>

namespace velloran {

struct ConvolveRows {
    // out = a + i b
    void (*join)(const FixPixel* a, const FixPixel* b, float* out, int n);
    // a = real parts, b = imaginary parts of in, times scale; b may be null
    void (*split)(const float* in, FixPixel* a, FixPixel* b, float scale, int n);
    // the same as floats
    void (*split_floats)(const float* in, float* a, float* b, float scale, int n);
    // The half spectra a and b, n / 2 + 1 samples each, of two real lines that were transformed as one line in of n
    // samples, their real and its imaginary part; n is even. And the way back to such a line.
    void (*part_spectra)(const float* in, float* a, float* b, int n);
    void (*join_spectra)(const float* a, const float* b, float* out, int n);
    void (*to_fix)(const float* in, FixPixel* out, float scale, int n);
    // out[i] = in[i] * scale, from samples
    void (*scale_fix)(const FixPixel* in, FixPixel* out, float scale, int n);
    // a *= b, complex
    void (*multiply)(float* a, const float* b, int n);
    // 8 rows of n complex samples, in_pitch apart, into n rows of 8, out_pitch apart (pitches in complex samples). n is
    // a multiple of 8.
    void (*transpose)(const float* in, ptrdiff_t in_pitch, float* out, ptrdiff_t out_pitch, int n);
    // The same past the caches, for what outgrows them. out's rows begin cache lines.
    void (*transpose_past)(const float* in, ptrdiff_t in_pitch, float* out, ptrdiff_t out_pitch, int n);
    // sums[i] += value * (prefix[i + length] - prefix[i])
    void (*add_run)(const int32_t* prefix, int length, float value, float* sums, int n);
};
const ConvolveRows& convolve_rows();

}  // namespace velloran
