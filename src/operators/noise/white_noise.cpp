// White noise: static, static2, static3 by the place in the frame, random by a value.
#include "engine/evaluate.h"
#include "operators/noise/noise_functions.h"
#include "operators/noise/noise_line.h"
#include "records/frame.h"

#include <cmath>

namespace velloran {
namespace {

// The number of the block's first sample: samples are counted row by row, frame after frame. While fields are rendered
// each has a number of its own. The whole frame counts, so that a crop shows what stands there without it.
uint32_t first_sample() {
    const DisplayDims& dims = the_frame->display_dims;
    const auto width = static_cast<uint32_t>(dims.render_w), height = static_cast<uint32_t>(dims.render_h);
    const float frame = the_frame->time_globals.frame * (the_frame->render_field ? 2.0f : 1.0f);
    const auto number = static_cast<uint32_t>(static_cast<int64_t>(std::floor(frame)));
    return width * height * number + width * static_cast<uint32_t>(eval_block_row) +
           static_cast<uint32_t>(eval_block_column);
}

// Three functions of one frame have nothing in common.
constexpr uint32_t start2 = 33333, start3 = 77777;

}  // namespace

void pixel_static(Node* node) { white_rows().static1(first_sample(), n_pixels, node->lines); }
void pixel_static2(Node* node) { white_rows().static2(first_sample() + start2, n_pixels, node->lines); }
void pixel_static3(Node* node) { white_rows().static3(first_sample() + start3, n_pixels, node->lines); }

void pixel_random(Node* node) {
    const int n = arg_constant(node, 0) ? 1 : n_pixels;
    if (node->elnum == 1)
        white_rows().random1(arg_line(node, 0, 0).samples, n, node->lines[0]);
    else
        white_rows().random2(arg_line(node, 0, 0).samples, arg_line(node, 0, 1).samples, n, node->lines[0],
                             node->lines[1]);
    for (int e = 0; e < node->elnum; ++e) std::fill(node->lines[e] + n, node->lines[e] + n_pixels, node->lines[e][0]);
}

}  // namespace velloran
