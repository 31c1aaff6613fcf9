#include "compile/need_reach.h"
#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/edges/edge_functions.h"
#include "operators/edges/slopes.h"
#include "records/frame.h"

namespace velloran {

namespace {

enum GradForMipmapArg : int { arg_image, arg_scale, arg_rel_p };

}  // namespace

// How many pixels of a picture one pixel of a warp covers, for coordinates (x, y) in which the frame is 2 wide: for
// each of the two coordinates scale times the length of its gradient, in pixels. Unmoved coordinates give 1. rel_p: the
// coordinates are movements, to which the pixel's own position is added.
void image_grad_for_mipmap(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    const bool relative = filter_arg(node, arg_rel_p) > 0;
    const float scale = filter_arg_float(node, arg_scale);
    const float pixels = static_cast<float>(the_frame->render_info.full_ren.w) * 0.5f;
    const EdgeRows& rows = edge_rows();
    for (int c = 0; c < 2; ++c) {
        FixPixel* const plane = node->images[c];
        const float own_x = relative && c == 0 ? scale : 0.0f, own_y = relative && c == 1 ? scale : 0.0f;
        for_each_slope_row(plane, {}, scale * pixels, [&](const SlopeRow& in, ptrdiff_t at) {
            rows.moved_slope_length(in, own_x, own_y, plane + at);
        });
    }
}

void need_rect_grad_for_mipmap(Node* node) { need::filter(node, 1, {1, 1}); }

}  // namespace velloran
