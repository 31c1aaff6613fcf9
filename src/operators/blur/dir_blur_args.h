// The arguments that say along which line an image is spread.
#pragma once

#include "compile/need_reach.h"
#include "operators/blur/dir_blur_image.h"
#include "records/node.h"

namespace velloran {

// Counted from the first of them on.
enum DirBlurLineArg : int { line_amount, line_angle, line_shift, line_edge_mode, line_scale, line_bias, line_filter };

// first: the argument amount. Channels are those of the node.
DirBlur read_dir_blur(const Node* node, int first);

// What the compiler asks: whether the image stays as it is, and how far lines reach. Each lies through a pixel, of half
// the length amount to either side, moved along itself by shift; lines stand in round space, so that they take more
// rows where pixels are wide.
bool dir_blur_does_nothing(const Node* node, int first);
need::Reach dir_blur_reach(const Node* node, int first);

}  // namespace velloran
