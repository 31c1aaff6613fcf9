#include "compile/need_reach.h"
#include "engine/evaluate.h"
#include "operators/blur/blur_image.h"
#include "operators/blur/filter_args.h"
#include "operators/edges/edge_functions.h"
#include "operators/edges/edge_rows.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>

namespace velloran {

namespace {

enum BandPassArg : int { arg_image, arg_blur_amount1, arg_blur_amount2, arg_scale };

// Three passes with a subpixel radius.
BlurSettings blur_by(const Node* node, int amount) {
    return {.x_radius = filter_radius(filter_arg(node, amount, 0)),
            .y_radius = filter_radius(filter_arg(node, amount, 1)),
            .subpixel = true};
}

}  // namespace

// 0.5 + scale * (image blurred by blur_amount1 - image blurred by blur_amount2): what lies between the two sizes,
// around mid grey.
void image_band_pass(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    const FilterFrame frame = filter_frame();
    const int width = frame.width;
    const BlurSettings fine_blur = blur_by(node, arg_blur_amount1), coarse_blur = blur_by(node, arg_blur_amount2);
    FixPixel* const coarse = node->images[node->elnum];
    const EdgeRows& rows = edge_rows();
    for (int c = 0; c < node->elnum; ++c) {
        FixPixel* const fine = node->images[c];
        blur_image(fine, coarse, coarse_blur, frame);
        blur_image(fine, fine, fine_blur, frame);
        if (poll_abort()) return;
        const int32_t scale = filter_arg(node, arg_scale, c);
        fork_rows_if_big_image(width, frame.height, [&](int first, int n) {
            const ptrdiff_t at = ptrdiff_t{first} * width;
            rows.scaled_difference(fine + at, coarse + at, fine + at, fix_scale / 2, scale, n * width);
        });
    }
}

void need_rect_band_pass(Node* node) {
    const need::Reach a = need::blur_arg_reach(node, arg_blur_amount1),
                      b = need::blur_arg_reach(node, arg_blur_amount2);
    need::filter(node, 1, {std::max(a.x, b.x), std::max(a.y, b.y)});
}

// A picture of one value has no detail, and the middle grey stands for none.
void fold_band_pass(Node* node) { std::fill_n(node->vals, 4, fix_scale / 2); }

}  // namespace velloran
