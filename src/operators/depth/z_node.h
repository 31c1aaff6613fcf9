// What the image functions of depth layers share.
#pragma once

#include "operators/depth/z_images.h"
#include "records/node.h"

namespace velloran {

// The node's planes, with argument arg_image in the sources and arg_depth in the depth.
ZPlanes eval_z_planes(Node* node, int arg_image, int arg_depth, bool adds);

// The largest amount that a layer has. The centres of the outermost ones may lie beyond the depths.
float largest_z_amount(const z_params& params);

}  // namespace velloran
