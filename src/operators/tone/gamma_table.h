// Powers of whole planes by a table. Host's thread, outside forks; the work is forked.
#pragma once

#include "records/fix_pixel.h"

namespace velloran {

// Sets the table of v ^ (1 / gamma) times top, for v from 0 to 1. Near black the curve is straight: for a gamma of
// 1 or more it is held under 16 v, for one below 1 above v / 16, so that a gamma and its inverse undo each other. The
// last two tables are kept: the way there and the way back.
void set_gamma_table(float gamma, float top);

// plane[i] = table(plane[i] * in_scale) * gain, between entries by interpolation, held to +-32767; what is below 0 or
// above 1 after in_scale takes the table's end. in_scale is above 0. n samples, in place.
void apply_gamma_table(FixPixel* plane, float in_scale, float gain, int n);

// What apply_gamma_table makes of every sample by the table that is set, for whoever has the samples in hand anyway:
// 65536 values and one more, by the bits of a sample. They stay until two more tables are set.
const FixPixel* gamma_values(float in_scale, float gain);
// plane[i] = values[plane[i]], forked; tone_rows().map does it on one task.
void apply_gamma_values(const FixPixel* values, FixPixel* plane, int n);
}  // namespace velloran
