#include "compile/compile.h"
#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/edges/edge_functions.h"
#include "operators/edges/slopes.h"
#include "rows/line_rows.h"

namespace velloran {

namespace {

enum GradInDirectionArg : int { arg_image, arg_direction, arg_pre_blur, arg_subpixel_blur };

// What a pass over the direction's tree makes slopes of. Its blocks are handed out without more than their place.
struct DirectionPass {
    const Slopes* slopes;
    FixPixel* dest;
} direction_pass;

size_t block_bytes() { return static_cast<size_t>(direction_pass.slopes->frame.width) * sizeof(FixPixel); }

// A block of the direction's samples, as planes would hold them, and the slopes there.
void direction_block(Node* root, int column, int row, int offset) {
    FixPixel* direction[2];
    for (int e = 0; e < 2; ++e) {
        direction[e] = static_cast<FixPixel*>(get_forked_buffer(e, block_bytes()));
        line_rows().line_to_samples(root->lines[e], direction[e], n_pixels, fix_image_limit);
    }
    edge_rows().slope_along(slope_row(*direction_pass.slopes, row), column, n_pixels, direction[0], direction[1],
                            direction_pass.dest + offset);
}

}  // namespace

// The slope of the blurred image along a vector of each pixel: the dot product of the gradient, in 1.0 per pixel, and
// direction. A longer vector gives a larger result.
void image_grad_in_direction(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    const BlurSettings blur = read_pre_blur(node, arg_pre_blur, arg_subpixel_blur);
    Node* direction = maybe_pass_through_args(node->args[arg_direction]);
    const bool in_planes = direction->image_count && (direction->flags & node_images_valid);
    const EdgeRows& rows = edge_rows();
    for (int c = 0; c < node->elnum; ++c) {
        FixPixel* const plane = node->images[c];
        Slopes slopes;
        if (!prepare_slopes(plane, blur, 1.0f, &slopes)) return;
        if (in_planes) {
            const FixPixel *const x = direction->images[0], *const y = direction->images[1];
            for_each_slope_row(slopes, [&](const SlopeRow& in, ptrdiff_t at) {
                rows.slope_along(in, 0, in.n, x + at, y + at, plane + at);
            });
        } else {
            // What is computed for each pixel is never stored.
            direction_pass = {&slopes, plane};
            maybe_malloc_forked_buffers(block_bytes(), 2);
            eval_node_tree_pixel_loop(direction, direction_block, eval_as_target, 1);
        }
    }
}

void need_rect_grad_in_direction(Node* node) { need_slopes(node, arg_pre_blur); }

}  // namespace velloran
