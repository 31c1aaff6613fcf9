// Planes on their way through the film look: tones, glow and grain of a colour in as few walks over its plane as can
// be. Host's thread, outside forks; the work is forked. A user's abort leaves the planes unfinished.
#pragma once

#include "operators/blur/filter_frame.h"
#include "operators/film/film_types.h"
#include "operators/film/grain_amounts.h"

#include <cstdint>

namespace velloran {

// Which rows a frame's first field is, where no fields are rendered.
enum GrainFieldOrder : int { grain_order_by_height, grain_order_even_first, grain_order_odd_first };

struct GrainSettings {
    float amp[film_colors];       // 0: no grain
    float midtones[film_colors];  // the tone on which it is strongest
    float darks, brights;         // how strong on black and on white, as a part of that
    bool mono;                    // the same noise for all colours
    int64_t blur[film_colors];    // amounts, as of a filter
    int32_t hold;                 // see grain_field_seeds
    uint32_t seed;
    int field_order;  // GrainFieldOrder
};

// The grain of the frame in hand.
struct Grain {
    struct Color {
        bool on;
        float amounts[grain_levels];
        uint32_t seeds[2];  // of even rows and of odd ones
        int32_t radius;     // of its blur, in samples times 4096
    } colors[film_colors];
    int first_row, first_column, pitch;  // of the planes in the frame, and samples of a row of the frame
};
Grain make_grain(const GrainSettings& settings);

// What is done to a plane, in this order.
struct PlaneWork {
    const FixPixel* table = nullptr;  // null: tones stay
    const FixPixel* glow = nullptr;   // null: none. May be scratch
    int32_t keep = fix_scale;         // how much is left of the plane below the glow
    const Grain* grain = nullptr;     // null: none
};
// scratch, another plane, is written where the grain is blurred.
void work_film_plane(FixPixel* plane, FixPixel* scratch, int color, const PlaneWork& work, const FilterFrame& frame);

}  // namespace velloran
