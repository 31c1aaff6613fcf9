// Image functions of the blurs. Each evaluates its own image arguments, works in its node's planes on the tasks of the
// host, and leaves the result in the first elnum of them. Host's thread, no fork under way. A user's abort leaves the
// planes unfinished.
//
// An amount of 1.0 is a radius of one eighth of the frame's width; amounts are held to 64. Angles are in turns,
// counter-clockwise from the x axis, y up.
#pragma once

#include "records/node.h"

namespace velloran {

// image, amount, filter_shape, scale, subpixel
void image_blur(Node* node);
// image, amount, channel_amount, filter_shape, scale, subpixel
void image_blur_channels(Node* node);
// image, mask, amount, filter_shape, subpixel
void image_masked_blur(Node* node);
// image, amount, angle, shift, edge_mode, scale, bias, filter
void image_dir_blur(Node* node);
// image, mask, amount, angle, shift, edge_mode, scale, bias, filter
void image_masked_dir_blur(Node* node);

// What the compiler asks of them: compile/pass_rules.h, compile/need_rect.h.
int pass_blur(Node* node);
int pass_dir_blur(Node* node);
int pass_masked_dir_blur(Node* node);
void need_rect_blur(Node* node);
void need_rect_blur_channels(Node* node);
void need_rect_masked_blur(Node* node);
void need_rect_dir_blur(Node* node);
void need_rect_masked_dir_blur(Node* node);

}  // namespace velloran
