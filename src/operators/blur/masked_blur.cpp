#include "compile/need_reach.h"
#include "operators/blur/blur_functions.h"
#include "operators/blur/blur_image.h"
#include "operators/blur/filter_args.h"
#include "operators/blur/spread_inside_mask.h"

namespace velloran {

namespace {

enum MaskedBlurArg : int { arg_image, arg_mask, arg_amount, arg_filter_shape, arg_subpixel };

void spread_by_blur(FixPixel* plane, SpreadOf, int, const void* settings, const FilterFrame& frame) {
    blur_image(plane, plane, *static_cast<const BlurSettings*>(settings), frame);
}

}  // namespace

void image_masked_blur(Node* node) {
    const BlurSettings blur = {.x_radius = filter_radius(filter_arg(node, arg_amount, 0)),
                               .y_radius = filter_radius(filter_arg(node, arg_amount, 1)),
                               .edge_mode = blur_edge_black,
                               .passes = filter_passes(filter_arg(node, arg_filter_shape)),
                               .subpixel = filter_arg(node, arg_subpixel) > 0};
    spread_inside_mask(node, {spread_by_blur, &blur, true});
}

// The mask is blurred along with the image.
void need_rect_masked_blur(Node* node) { need::filter(node, 2, need::blur_arg_reach(node, arg_amount)); }

}  // namespace velloran
