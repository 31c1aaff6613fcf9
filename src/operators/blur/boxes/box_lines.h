// Repeated box filters along many lines at once: the row functions under all blurs.
//
// A group of up to 16 rows, or of up to column_lanes columns, is worked side by side, one vector lane for each line.
// All passes run along the lines together: samples are read, and finished positions are written at once.
#pragma once

#include "records/fix_pixel.h"

#include <cstddef>
#include <cstdint>

namespace velloran {

constexpr int row_lanes = 16;
constexpr int column_lanes = 64;  // a multiple of row_lanes

// One pass. Where lo and hi differ, which they do in one pass of a line at most, the result is
// trunc(box(lo) * lo_weight + box(hi) * hi_weight), in float.
struct BoxPass {
    int lo, hi;       // box radii; hi is lo or lo + 1, at least 1, and at most n - 1
    int shift_after;  // right shift of the result
    float lo_weight, hi_weight;
};

struct BoxLines {
    int n;            // samples of a line, at least 1
    int mirror;       // 1: lines continue mirrored, the end sample doubled; 0: with zeros
    int first_shift;  // right shift before the first pass
    int n_passes;     // 0 to 3; passes of radius 0 are left out
    BoxPass passes[3];
};

// Where the lines end: as they are in a 32-bit image, or in a plane as trunc(float(v) * factor) held to +-32767.
//
// Rows may also go to an image in stripes, which columns read in one run: the elements of column_lanes columns, row
// after row, then those of the next ones. The last stripe is as narrow as what is left, so the image is no larger.
struct BoxSink {
    int32_t* long_image;  // null: to the plane
    FixPixel* plane;
    ptrdiff_t pitch;  // elements from row to row
    float factor;
    int stripe_height;  // rows of an image in stripes, to which long_image then points; 0: row after row
    int stripe_row;     // the first of the rows, in stripes
    bool streamed;      // columns may go to the plane past the caches
};

// Where they come from; one of the two is null.
struct BoxSource {
    const FixPixel* plane;
    const int32_t* long_image;
    ptrdiff_t pitch;
};

// count lines of lines.n samples each: 1 to row_lanes rows, or 1 to column_lanes columns. For any task.
using BoxLinesFunction = void (*)(const BoxLines& lines, const BoxSource& source, const BoxSink& sink, int count,
                                  int32_t* scratch);
// The best for such lines, wherever in the source and the sink. Rows come from a plane. Source and sink may be the same
// memory.
BoxLinesFunction box_rows_function(const BoxLines& lines);
BoxLinesFunction box_columns_function(const BoxLines& lines, const BoxSource& source, const BoxSink& sink);

// Bytes of scratch for rows (lanes = row_lanes) or columns (column_lanes), 64-byte aligned.
size_t box_lines_scratch(const BoxLines& lines, int lanes);

}  // namespace velloran
