#include "operators/depth/z_node.h"

#include "engine/evaluate.h"

#include <algorithm>

namespace velloran {

ZPlanes eval_z_planes(Node* node, int arg_image, int arg_depth, bool adds) {
    const int n = node->elnum;
    const ZPlanes planes = z_planes(node->images, n, adds);
    eval_node_tree_into_images(node->args[arg_image], node->images + n, node->image_index + n, 1);
    const auto slot =
        static_cast<int>(std::find(node->images, node->images + node->image_count, planes.depth) - node->images);
    eval_node_tree_into_images(node->args[arg_depth], node->images + slot, node->image_index + slot, 1);
    return planes;
}

float largest_z_amount(const z_params& params) {
    if (max_focus_distance(params.focal, std::max(params.depth_of_field, 0.0f), params.blur_near, params.blur_far) <= 0)
        return 0.0f;
    const z_layers layers = make_z_layers(params.n_layers, params.mode == z_sharp_front, params.focal,
                                          params.depth_of_field, params.blur_near, params.blur_far);
    float largest = 0.0f;
    for (int i = 0; i < layers.n; ++i) largest = std::max(largest, layers.layers[i].amount);
    return largest;
}

}  // namespace velloran
