// The cache of transform plans: those of one size, since a frame uses one and the next frame mostly the same.
#pragma once

#include "operators/fft/fft.h"

namespace velloran {

// Plans of lines along both axes, by FftDirection.
struct FftPlans {
    const FftLine* row[2];
    const FftLine* column[2];
};

// Host's thread, outside forks.
void fft_config_make(int width, int height);
void fft_config_free();
// What fft_config_make made; a plan that is missing is reported. Any task.
FftPlans fft_config_get(int width, int height);

// Reports a status that is not 0 and says whether it was 0.
bool fft_check(const char* name, int status);

}  // namespace velloran
