// Grain by numbers: how strong it is on each tone, and the seeds of each field. Pure functions, any task.
#pragma once

#include "operators/film/film_image_rows.h"

#include <cstdint>

namespace velloran {

// amounts[i] is how strong grain is on tone i / 64: factor where the tone is midtone, and falling to darks and brights
// (times factor) at black and white.
void fill_grain_amounts(float* amounts, float midtone, float darks, float brights, float factor);

// The blur of grain: a box of that radius and one that is half a sample smaller, in samples times 4096, each mixed of
// the two nearest whole ones; some of the strength that they take is given back. gain: a factor times 4096.
struct GrainBlur {
    int32_t radius, second_radius;  // 0: no second one
    int32_t gain;
};
GrainBlur make_grain_blur(int32_t radius);
// The same as weights. False if it reaches farther than these do.
bool make_grain_kernel(const GrainBlur& blur, GrainKernel* kernel);

struct FieldSeeds {
    uint32_t first, second;
};
// Of the two fields of a frame. hold 0: new grain in each field; 1: in each frame; 2 and more: film that was laid on
// video, where frames of film last for two fields and for three in turn; which of these come first differs by hold.
FieldSeeds grain_field_seeds(int32_t hold, int64_t frame);

}  // namespace velloran
