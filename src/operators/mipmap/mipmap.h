// The mipmap: a picture with smaller versions of itself, for look-ups that shrink it. It is a rip-map: widths and
// heights are halved apart, so that a look-up chooses how coarse it is in x and in y. There is one at a time.
//
// Storage is one block. A y level is a run of rows, and each row holds all x levels of it one behind the other, so
// level (i, j) is what lies at x_level_offset[i] of the rows from y_level_ptr[j] on. Every level has a border of one
// sample on each side, so that the four taps of a look-up on its edge are there, too. Samples are 16 bits, the channels
// of a pixel side by side; a read of 16 bytes from any pixel but the right and upper border stays within the block.
//
// Host's thread, outside forks, but where said otherwise. Tasks read the record and its samples.
#pragma once

#include "frame/mipmap_size.h"
#include "records/node.h"

#include <cstddef>
#include <cstdint>

namespace velloran {

// What stands outside a picture along an axis.
enum WrapKind : int { wrap_none = 0, wrap_repeat = 1, wrap_mirror = 2 };

constexpr int mipmap_highest = 8191;  // samples are held to 0 .. this

struct MipmapSettings {
    bool multi_level = false;                         // smaller versions, too
    WrapKind wrap_x = wrap_none, wrap_y = wrap_none;  // what the borders hold
    bool whole_range = false;                         // samples are held to +-32767 only; level 0 alone
    bool operator==(const MipmapSettings&) const = default;
};

struct Mipmap {
    MipmapSettings settings;
    int32_t top_w, top_h;                                                // level 0 without its border
    int32_t left, bottom;                                                // sample of the planes that is its first
    int32_t x_level_w[max_mipmap_levels], y_level_h[max_mipmap_levels];  // with the border
    int32_t x_total, y_total;                                            // sums of these
    int32_t n_x_levels, n_y_levels;
    int32_t max_x_level_fix, max_y_level_fix;  // highest level to ask for, 12 fraction bits; 0 for a width below 2
    int32_t elements;
    int32_t row_samples;
    int16_t* data;
    int16_t* y_level_ptr[max_mipmap_levels];                                 // lower border of level (0, j)
    int32_t x_level_offset[max_mipmap_levels];                               // of the left border
    int32_t x_scale_fix[max_mipmap_levels], y_scale_fix[max_mipmap_levels];  // level size << 12
};

extern Mipmap mipmap;

// Sizes and memory, level 0 from the value of node, and the levels. What already holds that value stays as it is. False
// if the user aborted.
bool mipmap_setup(Node* value, const MipmapSettings& settings);

// Sizes alone, for a picture of w by h: everything but data and y_level_ptr, which mipmap_set_data gives.
void mipmap_set_sizes(Mipmap* map, int w, int h, int elements, const MipmapSettings& settings);
size_t mipmap_data_bytes(const Mipmap& map);
// data: mipmap_data_bytes of it.
void mipmap_set_data(Mipmap* map, int16_t* data);

// What fills level 0: lines of 1 to 4 channels of a pass. Any task.
void set_mipmap_line_1(Node* root, int column, int row, int offset);
void set_mipmap_line_2(Node* root, int column, int row, int offset);
void set_mipmap_line_3(Node* root, int column, int row, int offset);
void set_mipmap_line_4(Node* root, int column, int row, int offset);

// Level 0 of mipmap, with all its x levels and borders, from the value of node.
void eval_node_tree_into_mipmap_toplevel(Node* node);
// n pixels of a row of level (0, 0) from column on, a line for each channel. With its last pixel the row is complete,
// and its borders and x levels are made. Any task, its own rows, whose pixels come in order.
void mipmap_set_row(const Mipmap& map, int row, int column, const int32_t* const* lines, int n);
// Everything above the rows of level (0, 0). False: the user aborted.
bool mipmap_fill_levels(const Mipmap& map);
// y level `level`, above 0, from the one before.
void forked_fill_mipmap_y_level(const Mipmap& map, int level);

// The colour outside, channel by channel; all 0 where none is set. True: one is set.
bool get_warp_outside(int16_t color[4]);

}  // namespace velloran
