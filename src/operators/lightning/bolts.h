// Bolts: paths that wrinkle by midpoint displacement, and the branches that leave them, as a list of strokes to draw.
//
// Places and lengths are in halves of the frame's width, y up, in round space, so that nothing depends on resolution or
// crop. All wrinkles come from a hash of their bolt and place and from a phase that may move: they change smoothly with
// it. Host's thread, but for drawing.
#pragma once

#include "records/fix_pixel.h"

#include <cstdint>

namespace velloran {

struct BoltLook {
    float width, width_vary;  // of a bolt at its start, and the part that it may lack
    float end_pointiness;     // what is missing of it at its end, 0 to 1
    float start, length;      // the part of the way that shows
    float wrinkle, curve;     // sideways, as parts of the way
    float branchiness;        // branches of a bolt, in tens
    float branch_angle;       // turns
    float branch_length;      // of what is left of the bolt
    uint32_t seed;
    float phase;
};

struct BoltStroke {
    float ax, ay, bx, by;    // ends
    float a_width, b_width;  // half widths there
};

// Grows as needed, up to max_total_points; memory is of the frame.
struct BoltStrokes {
    BoltStroke* strokes;
    int total_points, room;
};
constexpr int max_total_points = 200000;
void free_bolts(BoltStrokes* all);

struct BoltEnds {
    float ax, ay, bx, by;
};
// The widths at both ends, as parts of the look's, and the part of the whole way that this piece of it is.
struct BoltPiece {
    float a_width = 1, b_width = 1;
    float from = 0, to = 1;
    bool branches = true;
};
// Adds the path from a to b and its branches. number tells bolts apart.
void add_bolt(BoltStrokes* all, const BoltEnds& ends, const BoltLook& look, uint32_t number,
              const BoltPiece& piece = {});

// A point near one, strayed by at most so far; it drifts with the phase.
void stray(float* x, float* y, float far, const BoltLook& look, uint32_t number);

// The plane that bolts are drawn into, a part of a larger picture.
struct BoltCanvas {
    FixPixel* plane;
    int width, height, left, bottom;
    float unit;    // samples of half the frame's width
    float aspect;  // height of a sample
};
BoltCanvas bolt_canvas(FixPixel* plane);  // of the frame in hand
// Between samples of the whole picture, 0 the middle of the first, and places of bolts.
float bolt_x(const BoltCanvas& canvas, double sample);
float bolt_y(const BoltCanvas& canvas, double sample);

// Where strokes overlap the brighter one counts. White is 4096. The work is forked.
void draw_bolts(const BoltCanvas& canvas, const BoltStrokes& all);

}  // namespace velloran
