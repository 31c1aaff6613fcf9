// Look-ups in the mipmap by coordinates of the frame: -1.0 to 1.0 across its width, in y the same measure about its
// middle. A LookUp is made once for an operator, outside the fork; tasks work blocks of up to look_up_block pixels.
#pragma once

#include "operators/mipmap/look_up_rows.h"
#include "operators/mipmap/mipmap.h"
#include "operators/mipmap/sample_rows.h"

#include <cstdint>

namespace velloran {

struct LookUp {
    const SampleRows* rows;
    const LookUpRows* taps;
    LookUpSource source;
    int elements;
    uint32_t row_samples;
    int left, bottom;        // sample of the planes at position 0
    float x_scale, y_scale;  // from coordinates to positions
    AxisWrap x_wrap, y_wrap;
    TapPlan top;  // level 0
    LevelTable table;
};

// Kind of wrapping by an argument: up to 0 none, up to 1.0 repeated, above mirrored.
inline WrapKind wrap_kind(int32_t value) {
    return value <= 0 ? wrap_none : value <= fix_scale ? wrap_repeat : wrap_mirror;
}

LookUp make_look_up(const Mipmap& map);

// The plan of one level, (x, y) in whole levels.
TapPlan level_plan(const LookUp& look_up, int x, int y);

struct Positions {
    alignas(64) int32_t x[look_up_block], y[look_up_block];
};

// Brings positions back into a repeated or mirrored picture.
inline void wrap_positions(const LookUp& look_up, Positions& p, int n) {
    if (look_up.x_wrap.on) look_up.rows->wrap(p.x, look_up.x_wrap, n);
    if (look_up.y_wrap.on) look_up.rows->wrap(p.y, look_up.y_wrap, n);
}

// Wrapped positions into planes: of level 0, and of levels that each pixel chooses (12 fraction bits, 0 to the highest
// of the table).
void look_up_bilinear(const LookUp& look_up, const Positions& p, FixPixel* const* planes, int n);
void look_up_filtered(const LookUp& look_up, const Positions& p, const int32_t* x_level, const int32_t* y_level,
                      FixPixel* const* planes, int n);
// The parts of which a look-up in a pair of levels, the same for all pixels, consists: one where it lies on a level,
// four where it lies between levels on both axes. Answers how many.
constexpr int most_look_up_parts = 4;
int look_up_parts(const LookUp& look_up, float t, int32_t x_level, int32_t y_level, const float weights[4],
                  StepPart* parts);

}  // namespace velloran
