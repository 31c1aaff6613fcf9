// Row functions that put a frame of another time into planes. Samples are held to what planes hold; n counts samples.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

// Times are frames with 12 fraction bits, at least 0. The earlier of two frames is taken first, the later one is mixed
// over it by the fraction: out += ((sample - out) * fraction) >> 12.
struct TimeRows {
    // Every sample is mixed by the same fraction.
    void (*mix)(const int32_t* samples, int32_t fraction, FixPixel* out, int n);
    // What frame gives to a row whose samples each have a time of their own.
    void (*take)(const int32_t* samples, const int32_t* times, int32_t frame, FixPixel* out, int n);
    void (*take_or_mix)(const int32_t* samples, const int32_t* times, int32_t frame, FixPixel* out, int n);
    // Holds times to 0 .. most; low and high are widened to them.
    void (*hold)(int32_t* times, int32_t most, int32_t* low, int32_t* high, int n);
};
const TimeRows& time_row_functions();

}  // namespace velloran
