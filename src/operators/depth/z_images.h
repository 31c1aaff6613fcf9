// Operators that vary with depth: a picture is cut into slices by its depth, each is spread by an amount of its own
// together with its matte, and they are laid over each other from the far side to the near one.
//
// Where a slice and what lies behind it cover a pixel in part, as on a slope, they share it; where together they are
// more than all of it, the nearer one hides the other. Where too little is there, next to a near thing that is out of
// focus and hides what is behind it, the surroundings behind it go on below it.
//
// Host's thread, outside forks.
#pragma once

#include "operators/blur/filter_frame.h"
#include "operators/depth/z_layers.h"
#include "records/fix_pixel.h"

namespace velloran {

enum ZCombine : int {
    z_by_mattes = 0,
    z_sharp_front = 1  // all that is nearer than the range in focus stays sharp, in front
};

struct z_params {
    float focal, depth_of_field, blur_near, blur_far;
    int n_layers;  // wanted
    int mode;      // ZCombine
};

// Some rows of the frame, in which a slice and all that it spreads to lie.
struct ZBand {
    int first, count;
    FilterFrame frame;  // of these rows, a part of the whole frame
};

// What is done with slices. settings is the operator's own.
struct z_operator {
    // Spreads a plane of the band's rows in place. channel -1: a matte.
    void (*layer_fun)(FixPixel* band, const z_layer& layer, int index, int channel, const ZBand& rows,
                      const void* settings);
    // The layer's spread is nothing.
    bool (*skip_layer_fun)(const z_layer& layer, const void* settings);
    // Rows to each side that the spread reaches.
    int (*reach_fun)(float amount, const void* settings);
    const void* settings;
    bool adds;      // slices are added to the picture, times what layer_fun makes of them, instead of laid over
    bool any_rows;  // slices may be worked in bands; false: whole frames
};
bool default_skip_layer(const z_layer& layer, const void* settings);

// The planes that an operator of n channels works in, all of the frame's size.
struct ZPlanes {
    FixPixel* results[4];
    FixPixel* sources[4];  // the picture; overwritten
    FixPixel* grounds[4];  // scratch, as the others; not used by operators that add
    FixPixel *depth, *matte, *spread, *covered, *ground_weight, *slice;
};
// Takes z_plane_count of a node's planes, the results first.
constexpr int z_plane_count(int n, bool adds) { return adds ? 2 * n + 4 : 3 * n + 6; }
ZPlanes z_planes(FixPixel* const* images, int n, bool adds);

// results = the sources by depth. A mode that there is not is told, and the mattes are taken.
void z_process_images(const ZPlanes& planes, int n, const z_params& params, const z_operator& op,
                      const FilterFrame& frame);

}  // namespace velloran
