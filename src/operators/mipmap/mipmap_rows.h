// Row functions that make the levels of a mipmap: samples of 16 bits, the channels of a pixel side by side.
#pragma once

#include <cstdint>

namespace velloran {

struct MipmapRows {
    // Lines of n samples, one for each channel, into n pixels of elements channels, held to low .. high. Entry:
    // elements
    // - 1.
    void (*interleave[4])(const int32_t* const* lines, int16_t* out, int n, int low, int high);
    // The mean of two neighbours, rounded down; the last of an odd row stays alone. n pixels in, (n + 1) / 2 out.
    // Entry: elements - 1.
    void (*halve[4])(const int16_t* in, int16_t* out, int n);
    // The mean of two rows of samples that are not negative, rounded up: halving in both axes keeps the mean.
    void (*mean)(const int16_t* a, const int16_t* b, int16_t* out, int n);
    // A copy that goes past the caches, but for parts of cache lines at its ends. Others may read it after
    // hwy::FlushStream.
    void (*stream)(const int16_t* in, int16_t* out, int n);
};
const MipmapRows& mipmap_rows();

}  // namespace velloran
