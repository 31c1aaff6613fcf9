// Image functions that find and shape edges, most of them on the integer blur. Each evaluates its own image arguments,
// works in its node's planes on the tasks of the host, and leaves the result in the first elnum of them. Host's thread,
// no fork under way. A user's abort leaves the planes unfinished.
#pragma once

#include "records/node.h"

namespace velloran {

// image, blur_amount1, blur_amount2, scale
void image_band_pass(Node* node);
// image, scale, granularity
void image_sharpen(Node* node);
// image, pre_blur, scale, subpixel_blur
void image_grad(Node* node);
// image, scale, rel_p
void image_grad_for_mipmap(Node* node);
// image, pre_blur, scale, subpixel_blur
void image_edge_detect(Node* node);
// image, pre_blur, offset, subpixel_blur
void image_grad_direction(Node* node);
// image, direction, pre_blur, subpixel_blur
void image_grad_in_direction(Node* node);
// height_map, pre_blur, scale_height, surface_color, light_color, light_direction, specular, shininess, subpixel_blur
void image_emboss(Node* node);
// image, scale
void image_edge_dist(Node* node);
// source, threshold
void image_edgedetect_simple(Node* node);

// What the compiler asks of them: compile/need_rect.h.
void need_rect_band_pass(Node* node);
void need_rect_sharpen(Node* node);
void need_rect_grad(Node* node);
void need_rect_grad_for_mipmap(Node* node);
void need_rect_edge_detect(Node* node);
void need_rect_grad_direction(Node* node);
void need_rect_grad_in_direction(Node* node);
void need_rect_emboss(Node* node);
void fold_band_pass(Node* node);
void fold_slopes(Node* node);  // a picture of one value has none

}  // namespace velloran
