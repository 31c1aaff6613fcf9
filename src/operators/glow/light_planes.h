// The light of an image: what is left of its planes above a threshold.
#pragma once

#include "operators/blur/filter_frame.h"
#include "records/node.h"

namespace velloran {

// Evaluates the image argument into the node's first elnum planes (a grey one fills them all) and puts its light into
// the elnum planes behind them: thresholds come from argument arg_threshold. False: the user aborted.
bool make_light_planes(Node* node, int arg_image, int arg_threshold);

// The same for planes that are at hand. n_planes is 1 or 3.
void make_light(const FixPixel* const* image, FixPixel* const* light, int n_planes, const Node* node,
                int arg_threshold);

// Softens light planes by the amounts of argument arg_pre_blur; below a sample nothing happens.
void pre_blur_light(FixPixel* const* light, int n_planes, const Node* node, int arg_pre_blur);

}  // namespace velloran
