// Coordinates that only move, turn, scale and shear the picture as a whole. They need not be computed for each pixel,
// and lose nothing by being rounded.
#pragma once

#include "operators/mipmap/image_transform.h"
#include "records/node.h"

namespace velloran {

// Whether the coordinates in argument arg of node are such. The map then leads from samples of the planes to the
// mipmap's. relative: they are movements. Host's thread, while the node's frame is made.
bool set_use_warp_transform(const Node* node, int arg, bool relative, const Mipmap& source, AffineMap* map);

}  // namespace velloran
