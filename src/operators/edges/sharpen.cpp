#include "compile/need_reach.h"
#include "engine/evaluate.h"
#include "operators/blur/blur_image.h"
#include "operators/blur/filter_args.h"
#include "operators/edges/edge_functions.h"
#include "operators/edges/edge_rows.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

namespace velloran {

namespace {

enum SharpenArg : int { arg_image, arg_scale, arg_granularity };

}  // namespace

// image + scale * (image - image blurred by granularity), an unsharp mask of three passes with a subpixel radius; scale
// is per channel.
void image_sharpen(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    const FilterFrame frame = filter_frame();
    const int width = frame.width;
    const BlurSettings blur = {.x_radius = filter_radius(filter_arg(node, arg_granularity, 0)),
                               .y_radius = filter_radius(filter_arg(node, arg_granularity, 1)),
                               .subpixel = true};
    FixPixel* const soft = node->images[node->elnum];
    const EdgeRows& rows = edge_rows();
    for (int c = 0; c < node->elnum; ++c) {
        FixPixel* const image = node->images[c];
        blur_image(image, soft, blur, frame);
        if (poll_abort()) return;
        const int32_t scale = filter_arg(node, arg_scale, c);
        fork_rows_if_big_image(width, frame.height, [&](int first, int n) {
            const ptrdiff_t at = ptrdiff_t{first} * width;
            rows.add_difference(image + at, soft + at, image + at, scale, n * width);
        });
    }
}

void need_rect_sharpen(Node* node) { need::filter(node, 1, need::blur_arg_reach(node, arg_granularity)); }

}  // namespace velloran
