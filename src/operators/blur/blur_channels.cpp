#include "compile/need_reach.h"
#include "engine/evaluate.h"
#include "operators/blur/blur_functions.h"
#include "operators/blur/blur_image.h"
#include "operators/blur/filter_args.h"
#include "tasks/tasks.h"

#include <algorithm>
#include <cstdlib>

namespace velloran {

namespace {

enum BlurChannelsArg : int { arg_image, arg_amount, arg_channel_amount, arg_filter_shape, arg_scale, arg_subpixel };

}  // namespace

void image_blur_channels(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    const FilterFrame frame = filter_frame();
    BlurSettings blur = {.passes = filter_passes(filter_arg(node, arg_filter_shape)),
                         .subpixel = filter_arg(node, arg_subpixel) > 0};
    const int blurred = filter_elements(node, arg_channel_amount), given = filter_elements(node, arg_image);
    // A channel that the image lacks is its last one, with an amount of its own. From the last channel down, so that
    // one that several start from is changed last.
    for (int c = node->elnum - 1; c >= 0; --c) {
        const FixPixel* source = node->images[std::min(c, given - 1)];
        FixPixel* dest = node->images[c];
        if (c >= blurred) {
            if (source != dest) mp_memcpy(dest, source, frame.bytes());
            continue;
        }
        const int64_t own = filter_arg(node, arg_channel_amount, c);
        blur.x_radius = filter_radius((filter_arg(node, arg_amount, 0) * own) >> fix_bits);
        blur.y_radius = filter_radius((filter_arg(node, arg_amount, 1) * own) >> fix_bits);
        blur.gain = filter_arg(node, arg_scale, c);
        blur_image(source, dest, blur, frame);
    }
}

void need_rect_blur_channels(Node* node) {
    if (need::varies(node, arg_amount) || need::varies(node, arg_channel_amount))
        return need::filter(node, 1, need::everywhere);
    const int64_t scale = need::largest(node, arg_channel_amount, fix_scale);
    // Two negative amounts make a blur again.
    const auto reach = [&](int axis) {
        return filter_reach(need::scaled_amount(std::abs(int64_t{need::value(node, arg_amount, axis)}), scale));
    };
    need::filter(node, 1, {reach(0), reach(1)});
}

}  // namespace velloran
