#include "operators/flares/flare_args.h"

#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/blur/mask_rows.h"
#include "operators/flares/flare_file.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "support/memory.h"
#include "tasks/fork_rows.h"

#include <algorithm>

namespace velloran {

void read_flare_args(const Node* node, const FlareArgs& at, FlareSettings* settings) {
    const RasterRect& frame = the_frame->render_info.full_ren;
    settings->pivot[0] = sample_of_pixel(frame.w / 2.0 + static_cast<double>(filter_arg_float(node, at.pivot, 0)));
    settings->pivot[1] = sample_of_pixel(frame.h / 2.0 + static_cast<double>(filter_arg_float(node, at.pivot, 1)));
    settings->gamma = filter_arg_float(node, at.gamma);
    settings->saturation = filter_arg_float(node, at.saturation);
    settings->size[0] = filter_arg_float(node, at.size, 0);
    settings->size[1] = filter_arg_float(node, at.size, 1);
    settings->rotate = filter_arg_float(node, at.rotate);
    for (int c = 0; c < 3; ++c) {
        settings->hotspot_color[c] = filter_arg_float(node, at.hotspot_color, c);
        settings->rays_color[c] = filter_arg_float(node, at.rays_color, c);
        settings->other_color[c] = filter_arg_float(node, at.other_color, c);
    }
}

const LensFlare* read_flare_type(const Node* node, int i) {
    const LensFlare* const flare = flare_of_type(lens_flare_table(), filter_arg(node, i) >> fix_bits);
    if (!flare && fail_frame()) V_error(level_error, "There is no lens flare to draw.");
    return flare;
}

void clear_planes(FixPixel* const* planes) {
    for (int c = 0; c < 3; ++c) mp_memset(planes[c], 0, filter_frame().bytes());
}

MaskedFlare begin_masked_flare(Node* node, int mask) {
    eval_node_tree_into_images(node->args[mask], node->images, node->image_index, 1);
    const FilterFrame frame = filter_frame();
    const int given = filter_elements(node, mask);
    for (int c = given; c < 3; ++c) mp_memcpy(node->images[c], node->images[given - 1], frame.bytes());
    MaskedFlare flare;
    for (FixPixel*& plane : flare.planes) plane = static_cast<FixPixel*>(frame_malloc(frame.bytes()));
    clear_planes(flare.planes);
    return flare;
}

void finish_masked_flare(Node* node, const MaskedFlare& flare) {
    const int width = filter_frame().width;
    const MaskRows& rows = mask_rows();
    fork_rows_if_big_image(width, filter_frame().height, [&](int first, int n) {
        for (int y = first; y < first + n; ++y)
            for (int c = 0; c < 3; ++c) {
                const ptrdiff_t at = ptrdiff_t{y} * width;
                rows.apply_mask(flare.planes[c] + at, node->images[c] + at, width);
                std::copy(flare.planes[c] + at, flare.planes[c] + at + width, node->images[c] + at);
            }
    });
    for (FixPixel* const plane : flare.planes) frame_free(plane);
}

}  // namespace velloran
