// Row functions of the sums over apertures.
#pragma once

#include "operators/defocus/aperture.h"

namespace velloran {

constexpr int aperture_block = 128;  // samples that are worked together; what stands behind a row's end is read

// A tap at the first sample of a row of the result.
struct TapPlace {
    const int32_t* from;  // pairs of samples
    uint32_t weights;     // that of the first of a pair in the low half
};

struct ApertureRows {
    // out[i] = in[i] and in[i + 1], the first in the low half; n + 1 samples are read
    void (*pair)(const FixPixel* in, int32_t* out, int n);
    // out[i] = the change of the sum from sample i - 1 to i: what the taps take in. n is rounded up to whole blocks.
    void (*changes)(const TapPlace* taps, int n_taps, int n, int32_t* out);
    // out[i] = sums[i] * inverse[i], rounded
    void (*divide)(const float* sums, const float* inverse, FixPixel* out, int n);
};
const ApertureRows& aperture_rows();

}  // namespace velloran
