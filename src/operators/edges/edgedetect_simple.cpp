#include "compile/compile.h"
#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/edges/edge_functions.h"
#include "operators/edges/edge_rows.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>

namespace velloran {

namespace {

enum EdgedetectSimpleArg : int { arg_source, arg_threshold };

constexpr int channels = 3;

// The planes of the source: its own where it has them and the result lies in none of them, else a copy.
const FixPixel* const* source_planes(Node* node) {
    Node* const source = maybe_pass_through_args(node->args[arg_source]);
    FixPixel* const* const own = source->images;
    if (source->image_count >= channels && (source->flags & node_images_valid) &&
        std::find(own, own + channels, node->images[0]) == own + channels)
        return own;
    eval_node_tree_into_images(node->args[arg_source], node->images + 1, node->image_index + 1, 1);
    return node->images + 1;
}

}  // namespace

// A matte that is 1 where any channel of source differs by more than threshold from one of the eight neighbours, 0
// elsewhere. Pixels on the border have the neighbours that there are.
void image_edgedetect_simple(Node* node) {
    const FixPixel* const* const planes = source_planes(node);
    if (poll_abort()) return;
    const int width = the_frame->temp_raster_info.width, height = the_frame->temp_raster_info.height;
    const int32_t given = filter_arg(node, arg_threshold);
    const auto threshold = static_cast<uint16_t>(std::clamp(given, 0, int32_t{UINT16_MAX}));
    const FixPixel least = given < 0 ? fix_scale : 0;  // every sample differs by more than less than nothing
    // Highest and lowest sample of three rows, of which the neighbours in the row come next.
    const size_t bytes = static_cast<size_t>(width) * sizeof(FixPixel);
    maybe_malloc_forked_buffers(bytes, 2);
    const EdgeRows& rows = edge_rows();
    fork_rows_if_big_image(width, height, [&](int first, int n) {
        auto* high = static_cast<FixPixel*>(get_forked_buffer(0, bytes));
        auto* low = static_cast<FixPixel*>(get_forked_buffer(1, bytes));
        for (int y = first; y < first + n; ++y) {
            if ((y & 63) == 0 && poll_abort()) return;
            FixPixel* const out = node->images[0] + ptrdiff_t{y} * width;
            std::fill_n(out, width, least);
            for (int c = 0; c < channels; ++c) {
                const FixPixel* const plane = planes[c];
                const auto row = [&](int r) { return plane + ptrdiff_t{std::clamp(r, 0, height - 1)} * width; };
                rows.extremes(row(y - 1), row(y), row(y + 1), high, low, width);
                rows.mark_steps(row(y), high, low, threshold, out, width);
            }
        }
    });
}

}  // namespace velloran
