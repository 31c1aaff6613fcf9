// Image functions of the lens out of focus. Each evaluates its own image argument, works in its node's planes on the
// tasks of the host, and leaves the result in the first elnum of them. Host's thread, no fork under way. A user's abort
// leaves the planes unfinished.
//
// A radius of 1.0 is one eighth of the frame's width; angles are in turns, counter-clockwise.
#pragma once

#include "records/node.h"

namespace velloran {

// image, radius, gamma, scale, subpixel, shape
void image_defocus(Node* node);
// image, radii, nsides, pointiness, rotate, gamma, scale, bokeh, noise_freq, noise_amp, noise_seed, edge_mode,
// show_shape, boost_highlights, highlight_threshold
void image_defocus_adv(Node* node);
// image, radii_x, radii_y, ring_radii_x, ring_radii_y, nsides, pointiness, rotate, gamma, scale, bokeh,
// noise_freq_amp_seed, edge_mode, show_shape, highlight_boost_thresh
void image_defocus_prism_adv(Node* node);

// Element e of an argument that is a radius, in samples.
float lens_radius(const Node* node, int i, int e);

// What the compiler asks of it; see compile/need_rect.h.
void need_rect_defocus(Node* node);

}  // namespace velloran
