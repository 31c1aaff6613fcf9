// Image functions that restyle a frame by an algorithm of their own, and the means over a region. Each evaluates its
// own image arguments, works in its node's planes on the tasks of the host, and leaves the result in the first elnum of
// them. Host's thread, no fork under way. A user's abort leaves the planes unfinished.
#pragma once

#include "records/fix_pixel.h"
#include "records/node.h"

namespace velloran {

// image, frequency, pre_blur, follow_grad, grad_blur, rand_seed
void image_paint(Node* node);
// image, rect_center, rect_size
void image_ave_in_rect(Node* node);
// image, matte
void image_ave_in_matte(Node* node);
// image, quality, scale_freqs, scale_xy_freqs, chroma_luma, error_rate, error_density, error_amp, error_coherence,
// seed, res_factor
void image_jpeg_damage(Node* node);
// n_points, p12, p34, p56, color1 .. color6, scale_soft, softness123, softness456, size123, size456
void image_gradient_n(Node* node);
// source, mask, threshold, radius, converge_rate
void image_deband(Node* node);
// source, normal, hilite_brights, hilite_sizes, diffuse_brights, ambient_bright, light_enables, light_color1 .. 4,
// light_dir1 .. 4. A pixel function: any task.
void pixel_light_3d(Node* node);

// Called with the means of each channel whenever ave_in_rect has made them: how a measured level gets to a control that
// holds it. Null: nobody asks. Host's thread.
extern void (*save_flicker_ave_last_result)(const FixPixel* means, int channels);

}  // namespace velloran
