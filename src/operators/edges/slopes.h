// Slopes of a plane, read from the accumulators of a blur, so nothing is rounded between the two: the central
// difference of a sample's neighbours, x to the right and y up in the plane's own axes, for a pixel of the full frame.
// At an edge of the picture the end sample stands for its missing neighbour. On fields the rows of a field are
// neighbours.
//
// Host's thread, outside forks.
#pragma once

#include "operators/blur/blur_image.h"
#include "operators/blur/filter_frame.h"
#include "operators/edges/edge_rows.h"
#include "records/node.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <cstddef>

namespace velloran {

// Slopes of the long image as it stands.
struct Slopes {
    FilterFrame frame;
    float scale;  // of a difference of accumulators two samples apart
};

// How an operator blurs before it looks for slopes; arg_pre_blur, arg_subpixel: places of its arguments.
BlurSettings read_pre_blur(const Node* node, int arg_pre_blur, int arg_subpixel);

// The needed region of such an operator: that of the blur and the next sample.
void need_slopes(Node* node, int arg_pre_blur);

// Blurs the plane into the long image, for slopes times scale. False: the user aborted.
bool prepare_slopes(const FixPixel* plane, const BlurSettings& blur, float scale, Slopes* slopes);

// Row y and its neighbours. Any task.
SlopeRow slope_row(const Slopes& slopes, int y);

// body(row, offset of its first sample in a plane) for all rows, forked. A user's abort ends it early.
template <class Body>
void for_each_slope_row(const Slopes& slopes, const Body& body) {
    const int width = slopes.frame.width;
    fork_rows_if_big_image(width, slopes.frame.height, [&](int first, int n) {
        for (int y = first; y < first + n; ++y) {
            if ((y & 63) == 0 && poll_abort()) return;
            body(slope_row(slopes, y), ptrdiff_t{y} * width);
        }
    });
}

// Both: for operators that look at one plane after the other.
template <class Body>
void for_each_slope_row(const FixPixel* plane, const BlurSettings& blur, float scale, const Body& body) {
    Slopes slopes;
    if (prepare_slopes(plane, blur, scale, &slopes)) for_each_slope_row(slopes, body);
}

}  // namespace velloran
