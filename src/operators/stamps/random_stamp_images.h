// Stamps strewn at random. What a frame gets follows from its number and the seed alone. Host's thread, no fork under
// way; the drawing is forked. A file that could not be read makes the frame fail. A user's abort leaves the planes
// unfinished.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

struct StampSettings {
    float color1[3], color2[3];  // each stamp takes a colour between them
    float vary_color, vary_brightness;
    float opacity, vary_opacity;
    float density, vary_density;  // stamps in a frame
    float scale, vary_scale;      // 1: as they are stored, in a frame 1920 pixels wide
};

// vary_ values are the widths of ranges around the value before them. channels: 3, or 4 with alpha.
void random_stamp_images(FixPixel* const* images, int channels, const char* name, uint32_t seed,
                         const StampSettings& settings);

struct HairSettings {
    float color[3], opacity;
    int max_hairs;
    float frequency;  // changes in a frame
    float threshold;  // 0 to 1: share of the time without a hair
    float scale, vary_scale;
    float noise_amp, noise_freq;  // of a hair's size, and changes in a frame
};
void stamp_hairs(FixPixel* const* images, int channels, const char* name, uint32_t seed, const HairSettings& settings);

}  // namespace velloran
