// Where node images live: slots in two pools, planned at compilation, and the planes behind them, looked up each frame.
//
// The temporary pool is a stack over the evaluation order: a result may take the place of its argument, exclusive
// branches share slots. The cache pool holds what several readers want or what stays valid from frame to frame; its
// slots are numbered after those of the temporary pool. A slot is one plane of temp_raster_info's size.
#pragma once

#include "records/genotype.h"
#include "records/node.h"

#include <cstddef>
#include <cstdint>

namespace velloran {

// Planes were freed or replaced; forces set_node_image_ptrs to look all of them up.
extern int images_moved;

// Takes the size of a plane from temp_raster_info, and drops all images if it changed. Before a frame, host's thread.
void set_short_image_size();

// Planes of all nodes with images. force: look up again whatever seems known; clear_valid: no image counts as current.
void set_node_image_ptrs(Genotype* genotype, int force, int clear_valid);
fix_plane get_temp_image_array_i(const Genotype* genotype, int slot, int in_cache);

// Drops the library's own planes, at the end of a render and when the frame size changes.
void free_temp_images();

// The previous output of the running plug-in: planes whose row pitch is temp_raster_info's width.
void get_prev_dest_images(Node* node);
// Keeps count samples of an output row, from sample column first of row; the rest of the row becomes 0. Samples are
// clipped to -8191 .. 8191. Rows of different tasks may be stored at once.
void store_prev_dest_line(int32_t* const* lines, int first, int count, int row);
size_t prev_dest_image_size();
fix_plane malloc_prev_dest_image(int index);
void free_prev_dest_images();
// The image function of get_prev_dest.
void image_get_prev_dest(Node* node);

// What the effects of the plug-in ask of the host's buffers, over all genotypes: a long image, a mipmap, a mipmap with
// filtered look-ups, frames of other times. Each out is set to 0 or 1.
void any_effects_need_long_image_mipmap_etc(int* long_out, int* mipmap_out, int* filter_out, int* timewarp_out);

}  // namespace velloran
