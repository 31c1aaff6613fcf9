// The arguments that say along which line an image is spread.
#pragma once

#include "compile/need_rect.h"
#include "operators/blur/dir_blur_image.h"
#include "records/node.h"

namespace velloran {

// Counted from the first of them on.
enum DirBlurLineArg : int { line_amount, line_angle, line_shift, line_edge_mode, line_scale, line_bias, line_filter };

// first: the argument amount. Channels are those of the node.
DirBlur read_dir_blur(const Node* node, int first);

// How much of the image around a pixel is needed.
NeedReach dir_blur_reach(const Node* node, int first);

}  // namespace velloran
