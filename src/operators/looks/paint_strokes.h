// Brush strokes: where they lie, how they run, and their paint on planes.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

constexpr int most_paint_channels = 4, n_bristles = 9;

// Places and sizes are in samples across; heights count row_height of them a row, so that strokes keep their shape.
struct Stroke {
    float x, y;
    float along_x, along_y;  // unit vector in which it runs
    float half_length, half_width;
    float bend;     // how far the ends lie aside, in half widths
    uint32_t seed;  // 0: no stroke
    FixPixel color[most_paint_channels];
};

struct Canvas {
    FixPixel* planes[most_paint_channels];
    int channels, width, height;
    float row_height;
};

// Lays the stroke over the rows [first, end) of the canvas. Any task.
void draw_stroke(const Stroke& stroke, const Canvas& canvas, int first, int end);

// Where strokes come from: the brush of a pass, of a size in samples across.
struct Brush {
    float size;
    uint32_t seed;
    bool everywhere;  // else where the canvas differs from the reference
    float follow;     // 0 the hand's own direction to 1 across the slope, where there is one
};

// The strokes of the cells of a row of cells, one to a cell: reference is the picture as the brush sees it, luma the
// plane whose slopes strokes run across. Rows of cells count from the frame's lower edge. Any task.
int stroke_columns(const Canvas& canvas, const Brush& brush);
int stroke_rows(const Canvas& canvas, const Brush& brush);
void place_strokes(const Canvas& canvas, const FixPixel* const* reference, const FixPixel* luma, const Brush& brush,
                   int row, Stroke* strokes);

}  // namespace velloran
