// Image functions that vary with depth. Each evaluates its own images, works in its node's planes on the tasks of the
// host, and leaves the result in the first elnum of them. Host's thread, no fork under way. A user's abort leaves the
// planes unfinished.
//
// A width of 1.0 is one eighth of the frame's width; depths count from 0 near to 1 far.
#pragma once

#include "records/node.h"

namespace velloran {

// image, zbuffer, n_layers, combine, focal_point, depth_of_field, blur_amount, blur_near, blur_far
void image_z_blur(Node* node);
// image, zbuffer, n_layers, combine, width_near, width_far, width_xy_near, width_xy_far, brightness_near,
// brightness_far
void image_z_glow(Node* node);
// image, zbuffer, n_layers, combine, focal_point, depth_of_field, width, lens_shape, noise_freq, noise_amp, noise_seed,
// use_gamma, brightness, edge_mode, rel_nearfar
void image_z_defocus(Node* node);
// image, kernel, z_buffer, z_args, kernel_scale, scale_rel_nearfar, kernel_minmax, kernel_center, gamma, dest_scale,
// autocenter_p, edge_type, autoscale_type, convolve_alpha_p, threshold
void image_z_convolve(Node* node);

// What the compiler asks of it; see compile/need_rect.h.
void need_rect_z_blur(Node* node);

}  // namespace velloran
