// The "add noise" control on its way to the output. Each channel of each row of each frame of each plug-in has its own
// sequence, so the noise depends neither on stripes nor on the blocks in which a row is written, and lines and images
// get the same.
#pragma once

#include "records/fix_pixel.h"
#include "records/rinfo.h"

#include <cstdint>

namespace velloran {

// What sets the noise of a plug-in apart from that of others, which would add up with it in a chain: from its name, and
// for several of one name from how many plug-ins are loaded with it.
uint32_t plugin_noise_seed(const char* name, int n_loaded);

// Makes sure of the per-task buffers for the noisy lines of a destination. Once per frame with noise, outside a fork.
void reserve_noise_lines(const rinfo& dest);

// Writes noisy copies of samples of a row into this task's buffers and puts them in the place of lines.
//   lines   vlen (at most 4) lines of count samples; the pointers are replaced, what they point at stays
//   row     of samples, frame's grid
//   first   column of the sample at [0], frame's grid
void fix_add_noise_to_line(const int32_t** lines, int vlen, int row, int first, int count, const rinfo& dest);

// Adds noise to planes of working's geometry. Samples are held to the range of a plane. Forks.
void fix_add_noise_to_images(const fix_plane* planes, int vlen, const rinfo& working, float amount);

}  // namespace velloran
