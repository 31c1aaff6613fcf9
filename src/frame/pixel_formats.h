// Between the host's frames and the working representation: whole images (planes of 16-bit samples) and single rows
// (lines of 32-bit samples, what the pixel loop works on), with or without a LUT, at full or reduced resolution.
//
// Columns and rows are counted in one of two ways, and every argument says in which:
//   pixels    of the frame at full resolution, row 0 at the bottom
//   samples   of the grid of render_step pixels that begins at the frame's origin: sample i stands for the pixels
//             [i * step, (i + 1) * step). A source gives it the pixel at render_phase in that block, or the last pixel
//             of a block that is cut by the frame's edge; a destination gets it in all pixels of the block.
// Source frames hold every pixel whatever the step of their rinfo: rows of w pixels (host_row_pitch).
//
// Failures write nothing and fail the frame in hand (fail_frame); the first one reports at level 8. Row functions may
// run in any task; those of whole images fork and belong to the host's thread outside a fork. The LUT tables
// (frame/lut_tables.h) are used where asked for and present.
#pragma once

#include "records/fix_pixel.h"
#include "records/rinfo.h"

#include <cstddef>
#include <cstdint>

namespace velloran {

// ---- Sources

// One row of a host frame, samples [first, first + count) of the source's own columns, into vlen lines. vlen must be 3.
//   host_row  first byte of the frame's row; source_row_of gives it
//   first     0 .. source.width - 1; first + count at most source.width
//   lines     vlen lines; the sample of column first + i is written at [i]
void native_to_fix_line(const rinfo& source, const void* host_row, int32_t* const* lines, int first, int count,
                        int vlen, bool with_lut);

// The row of samples `row` (frame's grid) of a source frame, samples [first, first + count) of the frame's grid, into
// vlen lines. Whatever lies outside the source is background. This is what a loop over rows calls; a row may be read in
// any number of blocks.
void read_source_line(const rinfo& source, const void* frame, int row, int first, int count, int32_t* const* lines,
                      int vlen, bool with_lut);

// The same for the field being rendered (the_frame->render_field; 0: every row as it is): a row of the other field is
// the mean of the rows around it, at the frame's edge the one there is. spare: as many lines for the second row.
void read_source_line_of_field(const rinfo& source, const void* frame, int row, int first, int count,
                               int32_t* const* lines, int32_t* const* spare, int vlen, bool with_lut);

// A whole frame into planes of working's geometry (width * height samples each). Outside the source: background. vlen
// must be 3. Forks.
void source_converter(const rinfo& source, const void* frame, const rinfo& working, const fix_plane* planes, int vlen,
                      bool with_lut);

// ---- Destinations

// Pixels [first, first + count) of row `row` of the destination frame from vlen lines of samples.
//   lines       the sample that covers pixel `first` stands at [0]; samples are of the frame's grid of `step` pixels
//   vlen        1 and 2: the first line in all three channels; 3 and 4: the first three
//   alpha_mode  must be 1 for vlen 2 and 4
// Noise is added if dest.add_noise asks for it (reserve_noise_lines must have run); the lines stay as they are.
void dest_converter(const rinfo& dest, void* frame, int row, int first, int count, const int32_t* const* lines,
                    int vlen, int step, int alpha_mode, bool with_lut);

// False if dest_converter would refuse such lines; the frame in hand has failed then.
bool dest_line_convertible_p(const rinfo& dest, int vlen, int alpha_mode);

// Copies pixels [first, first + count) of a finished row to the n_rows rows above it: the rest of a block of rows.
void repeat_dest_row(const rinfo& dest, void* frame, int row, int n_rows, int first, int count);

// Writes one colour (samples of R, G, B, unclipped) to pixels [first, first + count) of a row.
void fill_dest_row(const rinfo& dest, void* frame, int row, int first, int count, const int32_t* rgb, bool with_lut);

// The croprect of area from planes of working's geometry into the destination frame. field 1 or 2: rows (of samples)
// whose parity is field - 1 are left alone. Adds noise to the planes themselves if dest.add_noise asks for it. Forks.
void dest_img_converter(const fix_plane* planes, int vlen, const rinfo& working, const RenderInfo& area,
                        const rinfo& dest, void* frame, int field, int alpha_mode, bool with_lut);

// How alpha is to be treated on the way out: 1 dropped, 2 the source's kept, 3 made up. mode_of_effect is the
// genotype's.
int get_dest_alpha_mode(int mode_of_effect, int vlen);
extern int forced_alpha_mode;  // overrides the effect's mode unless 0
extern int source_alpha_p;     // the frame's source has alpha; host forms never do

// ---- Parts of use to others

// Bytes from row to row of a frame that the host holds.
size_t host_row_pitch(const rinfo& raster);
// The row of pixels that the row of samples `row` (source's own, 0 .. source.height - 1) reads.
const void* source_row_of(const rinfo& source, const void* frame, int row);
// n samples of one value; forks from 1,024 samples on, outside a fork.
void fill_samples(FixPixel* dest, FixPixel value, size_t n);

}  // namespace velloran
