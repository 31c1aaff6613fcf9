#include "compile/need_reach.h"
#include "frame/filter_radius.h"
#include "operators/blur/blur_image.h"
#include "operators/blur/filter_args.h"
#include "operators/glow/glow_functions.h"
#include "operators/glow/glow_rows.h"
#include "operators/glow/light_planes.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>

namespace velloran {

namespace {

enum GlowArg : int {
    arg_image,
    arg_threshold,
    arg_width_xy,
    arg_width,
    arg_brightness,
    arg_scale_source,
    arg_subpixel
};

}  // namespace

// scale_source * image + brightness * its light, blurred by width * width_xy; width and brightness are per channel.
void image_glow(Node* node) {
    if (!make_light_planes(node, arg_image, arg_threshold)) return;
    const FilterFrame frame = filter_frame();
    const int width = frame.width;
    const GlowRows& rows = glow_rows();
    for (int c = 0; c < node->elnum; ++c) {
        const int64_t amount = filter_arg(node, arg_width, c);
        const BlurSettings blur = {
            .x_radius = filter_radius(need::scaled_amount(filter_arg(node, arg_width_xy, 0), amount)),
            .y_radius = filter_radius(need::scaled_amount(filter_arg(node, arg_width_xy, 1), amount)),
            .subpixel = filter_arg(node, arg_subpixel) > 0,
            .gain = filter_arg(node, arg_brightness, c)};
        FixPixel *const image = node->images[c], *const light = node->images[node->elnum + c];
        blur_image(light, light, blur, frame);
        if (poll_abort()) return;
        const int32_t scale = filter_arg(node, arg_scale_source, c);
        fork_rows_if_big_image(width, frame.height, [&](int first, int n) {
            const ptrdiff_t at = ptrdiff_t{first} * width;
            rows.add_light(image + at, light + at, scale, n * width);
        });
    }
}

void need_rect_glow(Node* node) {
    using namespace need;
    if (varies(node, arg_width_xy) || varies(node, arg_width)) return filter(node, 1, everywhere);
    const int64_t w = largest(node, arg_width, 0);
    filter(node, 1,
           {filter_reach(scaled_amount(value(node, arg_width_xy, 0), w)),
            filter_reach(scaled_amount(value(node, arg_width_xy, 1), w))});
}

}  // namespace velloran
