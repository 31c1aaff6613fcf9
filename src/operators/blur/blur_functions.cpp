#include "operators/blur/blur_functions.h"

#include "engine/evaluate.h"
#include "operators/blur/blur.h"
#include "operators/blur/filter_args.h"
#include "operators/blur/line_kernel.h"
#include "operators/edges/edge_rows.h"
#include "records/run_state.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"

#include <algorithm>

namespace velloran {

namespace {

// ---- masks ----

const EdgeRows* fork_rows;
FixPixel *fork_image, *fork_spread;
const FixPixel *fork_mask, *fork_reach;
int fork_width, fork_height;

void forked_apply_mask() {
    int first, n;
    get_proc_stripe(fork_height, &first, &n);
    const ptrdiff_t at = ptrdiff_t{first} * fork_width;
    fork_rows->apply_mask(fork_spread + at, fork_mask + at, n * fork_width);
}

void forked_resolve_mask() {
    int first, n;
    get_proc_stripe(fork_height, &first, &n);
    const ptrdiff_t at = ptrdiff_t{first} * fork_width;
    fork_rows->resolve_mask(fork_image + at, fork_spread + at, fork_reach + at, fork_mask + at, n * fork_width);
}

// Spreads a plane in place by the settings of a channel. The mask is spread like the image, but never made brighter.
enum SpreadOf : int { of_image, of_mask };
using SpreadFun = void (*)(FixPixel* plane, SpreadOf what, int channel, const void* settings, const FilterFrame& frame);

// Inside the mask the image is replaced by its spread, which takes nothing from outside. The node's planes behind the
// result hold the mask, how much of the mask reaches each pixel, and the channel in hand.
void spread_inside_mask(Node* node, SpreadFun spread, const void* settings, bool alike) {
    const FilterFrame frame = filter_frame();
    const int n = node->elnum;
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
    FixPixel *m = node->images[n], *b = node->images[n + 1], *p = node->images[n + 2];
    eval_node_tree_into_images(node->args[1], &node->images[n], node->image_index + n, 1);
    if (poll_abort()) return;
    fork_rows = &edge_rows();
    fork_mask = m;
    fork_spread = p;
    fork_width = frame.width;
    fork_height = frame.height;
    fork_reach = b;
    for (int c = 0; c < n; ++c) {
        if (c == 0 || !alike) {  // how far the mask reaches is the same for channels that are spread alike
            mp_memcpy(b, m, frame.bytes());
            spread(b, of_mask, c, settings, frame);
        }
        mp_memcpy(p, node->images[c], frame.bytes());
        fork_if_big_image(forked_apply_mask, frame.width, frame.height);
        spread(p, of_image, c, settings, frame);
        if (poll_abort()) return;
        fork_image = node->images[c];
        fork_if_big_image(forked_resolve_mask, frame.width, frame.height);
    }
}

struct BlurSettings {
    int32_t x_radius, y_radius;
    int passes;
    bool subpixel;
};

void spread_by_blur(FixPixel* plane, SpreadOf, int, const void* settings, const FilterFrame& frame) {
    const auto& s = *static_cast<const BlurSettings*>(settings);
    blur_image(plane, plane, s.x_radius, s.y_radius, blur_edge_black, s.passes, fix_scale, s.subpixel, frame.fields,
               frame.width, frame.height);
}

// ---- along a line ----

// Arguments from first on: amount, angle, shift, edge_mode, scale, bias, filter.
DirBlur read_dir_blur(const Node* node, int first) {
    DirBlur blur = {};
    const int n = std::min<int>(node->elnum, 4);
    for (int c = 0; c < n; ++c) {
        blur.lengths[c] = static_cast<float>(filter_radius(filter_arg(node, first, c))) * fix_to_float_scale;
        blur.offsets[c] = filter_arg_float(node, first + 2, c);
        blur.gains[c] = filter_arg_float(node, first + 4, c);
    }
    blur.angle = filter_arg_float(node, first + 1);
    blur.aspect = the_frame->pixel_aspect_ratio > 0.0f ? 1.0f / the_frame->pixel_aspect_ratio : 1.0f;
    blur.edge_mode = filter_arg(node, first + 3) >> fix_bits;
    blur.bias = std::clamp(filter_arg_float(node, first + 5), -1.0f, 1.0f);
    const int filter = filter_arg(node, first + 6) >> fix_bits;
    blur.filter = filter >= 0 && filter <= 3 ? filter + 2 : line_constant;
    return blur;
}

struct LineSettings {
    DirBlur blur;
    int vlen;  // kernels: 1 for channels that are spread alike
    bool any_offset;
};

void spread_by_line(FixPixel* plane, SpreadOf what, int channel, const void* settings, const FilterFrame& frame) {
    LineSettings s = *static_cast<const LineSettings*>(settings);
    if (what == of_mask) s.blur.gains[channel] = 1.0f;
    dir_blur_image(plane, plane, s.vlen, channel, s.any_offset, s.blur, frame.width, frame.height);
}

}  // namespace

void image_blur(Node* node) {
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
    const FilterFrame frame = filter_frame();
    const int32_t x_radius = filter_radius(filter_arg(node, 1, 0)), y_radius = filter_radius(filter_arg(node, 1, 1));
    const int passes = filter_passes(filter_arg(node, 2));
    const bool subpixel = filter_arg(node, 4) > 0;
    for (int c = 0; c < node->elnum; ++c)
        blur_image(node->images[c], node->images[c], x_radius, y_radius, blur_default_edge_mode, passes,
                   filter_arg(node, 3, c), subpixel, frame.fields, frame.width, frame.height);
}

void image_blur_channels(Node* node) {
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
    const FilterFrame frame = filter_frame();
    const int passes = filter_passes(filter_arg(node, 3));
    const bool subpixel = filter_arg(node, 5) > 0;
    const int blurred = std::max<int>(node->args[2]->elnum, 1), given = std::max<int>(node->args[0]->elnum, 1);
    // A channel that the image lacks is its last one, with an amount of its own. From the last channel down, so that
    // one that several start from is changed last.
    for (int c = node->elnum - 1; c >= 0; --c) {
        const FixPixel* source = node->images[std::min(c, given - 1)];
        FixPixel* dest = node->images[c];
        if (c >= blurred) {
            if (source != dest) mp_memcpy(dest, source, frame.bytes());
            continue;
        }
        const int64_t own = filter_arg(node, 2, c);
        blur_image(source, dest, filter_radius((filter_arg(node, 1, 0) * own) >> fix_bits),
                   filter_radius((filter_arg(node, 1, 1) * own) >> fix_bits), blur_default_edge_mode, passes,
                   filter_arg(node, 4, c), subpixel, frame.fields, frame.width, frame.height);
    }
}

void image_masked_blur(Node* node) {
    const BlurSettings settings = {filter_radius(filter_arg(node, 2, 0)), filter_radius(filter_arg(node, 2, 1)),
                                   filter_passes(filter_arg(node, 3)), filter_arg(node, 4) > 0};
    spread_inside_mask(node, spread_by_blur, &settings, true);
}

void image_dir_blur(Node* node) {
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
    const FilterFrame frame = filter_frame();
    const DirBlur blur = read_dir_blur(node, 1);
    dir_blur_images(node->images, node->images, node->elnum, blur, frame.width, frame.height);
}

void image_masked_dir_blur(Node* node) {
    LineSettings settings = {read_dir_blur(node, 2), std::min<int>(node->elnum, 4), false};
    const bool alike = dir_blur_alike(settings.blur, settings.vlen);
    for (int c = 0; c < settings.vlen; ++c) settings.any_offset |= settings.blur.offsets[c] != 0.0f;
    if (alike) settings.vlen = 1;
    spread_inside_mask(node, spread_by_line, &settings, alike);
}

}  // namespace velloran
