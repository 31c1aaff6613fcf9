// Row functions of tables, thresholds and highlights. In place where nothing else is said; n counts samples.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// What lies above threshold (0 to 1), as a part of what there is room for, times amount, is added. to_unit makes 1.0 of
// a sample; results are held to -32767 .. limit.
struct HighlightBoost {
    float to_unit, threshold, room;  // room: 1 less threshold, above 0
    float amount, scale;             // in samples, and of them
    float limit;
};

struct ToneRows {
    // out[i] = values[in[i]] by the bits of a sample: 65536 values, and one more that may be read. out may be in.
    void (*map)(const FixPixel* values, const FixPixel* in, FixPixel* out, int n);
    void (*boost)(FixPixel* p, const HighlightBoost& boost, int n);
    // (p - threshold) * gain where p is above threshold and above 0, else 0
    void (*threshold)(FixPixel* p, int32_t threshold, int32_t gain, int n);
    // p[c] * k of three rows, k = e * gain / s with e what stands above the thresholds in all and s what stands above
    // 0. The sum of 32767 less each threshold, where above 0, times gain may not exceed 2^34.
    void (*threshold_3)(FixPixel* const* p, const int32_t* thresholds, int32_t gain, int n);
};
const ToneRows& tone_rows();

}  // namespace velloran
