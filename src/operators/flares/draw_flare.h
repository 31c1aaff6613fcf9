// Drawing a flare into three planes by adding light. Host's thread, outside forks; the work is forked.
#pragma once

#include "operators/flares/lens_flare.h"
#include "records/fix_pixel.h"

namespace velloran {

// Where a flare is drawn: planes that are a part of a larger picture.
struct FlareCanvas {
    FixPixel* planes[3];
    int width, height;  // of the planes, row pitch width
    int left, bottom;   // of their first sample, in samples of the whole picture
    float whole_width;  // of the whole picture, in samples: a size of 1 is half of it
    float aspect;       // height of a sample, its width being 1
};
// The planes of the frame in hand.
FlareCanvas frame_canvas(FixPixel* const* planes);

// A place in pixels of the full frame, from its lower left corner, as samples of the whole picture: 0 is the middle of
// the first one.
double sample_of_pixel(double pixel);

struct FlareSettings {
    double hotspot[2] = {}, pivot[2] = {};  // in samples of the whole picture, 0 the middle of the first
    float gamma = 1;                        // colours of the file are raised to its inverse
    float saturation = 1;
    float size[2] = {1, 1};  // in halves of the whole picture's width
    float rotate = 0;        // degrees
    float hotspot_color[3] = {1, 1, 1}, rays_color[3] = {1, 1, 1}, other_color[3] = {1, 1, 1};
    float scale_rays_number = 1, scale_rays_width = 1, scale_rays_length = 1, scale_other_width = 1;
    bool two_stage_rays = false;  // rays are dark at the centre, where all of them meet
    bool clamp = true;            // what is drawn over is held to 1.0 afterwards
};

// Multiplies the three colours.
void tint_flare(FlareSettings* settings, const float* tint);

// Adds the flare to what the planes hold. A user's abort leaves it unfinished.
void draw_lens_flare_noclear(const FlareCanvas& canvas, const LensFlare& flare, const FlareSettings& settings);

// How far a flare reaches from its hotspot across, in samples, where all its elements lie on it.
double flare_reach(const LensFlare& flare, const FlareSettings& settings, float whole_width);

}  // namespace velloran
