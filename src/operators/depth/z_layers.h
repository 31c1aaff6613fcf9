// The slices into which a depth is cut, from the far side to the near side, and how much each is out of focus.
//
// Depths count from 0 near to 1 far. What lies in the range of focus, the depth of field around the focal point, is
// sharp; from its ends on the spread grows with the distance. A depth between the centres of two slices belongs to both
// in parts that add up to all of it, so that the spread grows evenly from slice to slice.
//
// Host's thread.
#pragma once

#include <cstdint>

namespace velloran {

struct z_layer {
    float amount;          // of spread: distance from the range in focus times the near or far amount
    int32_t z_min, z_max;  // range of depth, 4096 is 1.0
    float z_centre;        // middle of the range; of the slices at the ends of the focus: that end
    int32_t matte_index;   // -1, or the layer in whose matte it is
    int32_t near_focus;    // 1: holds the range in focus
    int32_t far_focus;     // 1: goes over from it to what lies behind
    int32_t skip;          // 1: not needed
    int32_t extra_first;   // 1: stands for what is nearer than depths go
    int32_t has_matte;
};

constexpr int most_z_layers = 248, least_z_layers = 2;

// The layers for amounts near and far of spread at a distance of 1.0 from the focus; both 0: all is in focus. n slices
// for the whole depth where the amounts are the same, held to 2 .. 248; the side of the smaller amount has coarser
// ones, at most three times so. Kept while the arguments stay; the next call or unloading frees them.
struct z_layers {
    const z_layer* layers;
    int n;
    float lo, hi;  // ends of the range in focus
};
z_layers make_z_layers(int n, bool keep_front, float focal, float depth_of_field, float near, float far);

// The largest amount of any depth.
float max_focus_distance(float focal, float depth_of_field, float near, float far);

// What a depth's sample is worth for a layer: 4096 all, 0 nothing.
//   min(hold(sample * rise_scale + rise_offset), 4096 - hold(sample * fall_scale + fall_offset))
// with hold to 0 .. 4096, truncated. Where one layer falls the next one rises by the same numbers.
struct z_mask {
    float rise_scale, rise_offset, fall_scale, fall_offset;
    // Samples that may be worth anything, 0 to 4096.
    int first, last;
};
// keep_front: all that is nearer than the range in focus belongs to it.
z_mask mask_of_z_layer(const z_layers& layers, int index, bool keep_front);

// Layers made so far, for tests.
extern int z_layers_built;

}  // namespace velloran
