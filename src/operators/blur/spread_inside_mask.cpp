#include "operators/blur/spread_inside_mask.h"

#include "engine/evaluate.h"
#include "operators/blur/mask_rows.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

namespace velloran {

namespace {

enum MaskedArg : int { arg_image, arg_mask };

}  // namespace

void spread_inside_mask(Node* node, const MaskedSpread& by) {
    const FilterFrame frame = filter_frame();
    const int width = frame.width, n_channels = node->elnum;
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    FixPixel* const mask = node->images[n_channels];
    FixPixel* const reach = node->images[n_channels + 1];
    FixPixel* const spread = node->images[n_channels + 2];
    eval_node_tree_into_images(node->args[arg_mask], &node->images[n_channels], node->image_index + n_channels, 1);
    if (poll_abort()) return;
    const MaskRows& rows = mask_rows();
    for (int c = 0; c < n_channels; ++c) {
        if (c == 0 || !by.alike) {  // how far the mask reaches is the same for channels that are spread alike
            mp_memcpy(reach, mask, frame.bytes());
            by.spread(reach, of_mask, c, by.settings, frame);
        }
        FixPixel* const image = node->images[c];
        mp_memcpy(spread, image, frame.bytes());
        fork_rows_if_big_image(width, frame.height, [&](int first, int n) {
            const ptrdiff_t at = ptrdiff_t{first} * width;
            rows.apply_mask(spread + at, mask + at, n * width);
        });
        by.spread(spread, of_image, c, by.settings, frame);
        if (poll_abort()) return;
        fork_rows_if_big_image(width, frame.height, [&](int first, int n) {
            const ptrdiff_t at = ptrdiff_t{first} * width;
            rows.resolve_mask(image + at, spread + at, reach + at, mask + at, n * width);
        });
    }
}

}  // namespace velloran
