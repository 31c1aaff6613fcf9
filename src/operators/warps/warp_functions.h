// Image functions that move pixels: each looks its first argument up in the mipmap at coordinates that other arguments
// give for every pixel. Each leaves its result in the first elnum planes of its node. Host's thread, no fork under way.
// A user's abort leaves the planes unfinished.
#pragma once

#include "records/node.h"

namespace velloran {

// image, coords, wrap, filter
void image_warp(Node* node);
void image_warp_rel(Node* node);
// image, coords, mipmap_levels, wrap
void image_warp_filter(Node* node);
// image, from_coords, to_coords, ends_brightness, scale, wrap, subpixel, log_res_factor
void image_blur_warp(Node* node);
// image, from_coords, to_coords, ends_brightness, wrap, steps
void image_repeat_warp(Node* node);
// image, from_coords, to_coords, from_levels, to_levels, ends_brightness, wrap, steps
void image_repeat_warp_filter(Node* node);
// image, from_coords, to_coords, wrap, steps, color1, color2, color3, white_balance, brightness
void image_chroma_warp(Node* node);
// image, from_coords, to_coords, from_levels, to_levels, wrap, steps, color1 .. brightness
void image_chroma_warp_filter(Node* node);
// image, coords, frequency, shift, rotate, inside_zdist, inside_rotate, overall_zdist, edge_softness, wrap
void image_flys_eye(Node* node);
// image, coords, amplitude, frequency, phase, rotate, in_out_rads, in_out_soft, max_centers
void image_drops(Node* node);

// Their values where no argument varies.
void fold_blur_warp(Node* node);
void fold_chroma_warp(Node* node);
void fold_chroma_warp_filter(Node* node);
void fold_drops(Node* node);

}  // namespace velloran
