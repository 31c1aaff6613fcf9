// Row functions from positions in a mipmap to samples of planes. All of a look-up is done for a register of pixels at a
// time.
#pragma once

#include "operators/mipmap/sample_rows.h"

#include <cstddef>
#include <cstdint>

namespace velloran {

// The block of samples that a mipmap lies in.
struct LookUpSource {
    const int16_t* data;
    ptrdiff_t samples;  // of the block, that may be read
};

// One of several look-ups between two places: where, in which level, and its weight in each channel for sums that are
// 4096 times a sample.
struct StepPart {
    float t;
    TapPlan plan;
    float weights[4];
};
struct StepParts {
    const StepPart* parts;
    int count;
    int results;  // planes; as many as the source has elements, or any number where that has one
    AxisWrap x_wrap, y_wrap;
};

// n up to look_up_block; positions as they are, but for steps wrapped before, in arrays of look_up_block. Entries of
// the tables: elements - 1.
struct LookUpRows {
    // Between the four samples around each position, of one level.
    void (*bilinear[4])(const LookUpSource& source, const TapPlan& plan, const int32_t* x, const int32_t* y,
                        FixPixel* const* planes, int n);
    // Of the levels that each pixel chooses, 12 fraction bits, 0 to the highest of the table.
    void (*filtered[4])(const LookUpSource& source, const LevelTable& table, const int32_t* x, const int32_t* y,
                        const int32_t* x_level, const int32_t* y_level, FixPixel* const* planes, int n);
    // The sum of all parts, times a share of each pixel where there is one, held to +-32767.
    void (*steps[4])(const LookUpSource& source, const StepParts& steps, const int32_t* from_x, const int32_t* from_y,
                     const int32_t* to_x, const int32_t* to_y, const float* shares, FixPixel* const* planes, int n);
};
const LookUpRows& look_up_rows();

}  // namespace velloran
