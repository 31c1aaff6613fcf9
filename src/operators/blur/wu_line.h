// An antialiased line in a float buffer, in the manner of Wu ("An Efficient Antialiasing Technique", SIGGRAPH 1991).
//
// One step for each pixel along the axis on which the line is longer; each step's weight is shared between the two
// pixels across by the fraction of the position there, and is added to what they hold. A first or last step that the
// line covers in part counts in part. Positions are pixel centres; pixels outside the buffer are skipped.
#pragma once

namespace velloran {

// Weight along the line: at is -1 at the first end and 1 at the second, or as many pixels from the middle on a line
// shorter than two.
using LineShape = float (*)(const void* context, float at);

// kernel: width x height. shape may be null. A line without extent is one point, shared between two rows.
void draw_wu_line(float* kernel, int width, int height, float x0, float y0, float x1, float y1, float weight,
                  LineShape shape, const void* context);

}  // namespace velloran
