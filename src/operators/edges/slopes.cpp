#include "operators/edges/slopes.h"

#include "compile/need_reach.h"
#include "operators/blur/filter_args.h"

#include <algorithm>

namespace velloran {

BlurSettings read_pre_blur(const Node* node, int arg_pre_blur, int arg_subpixel) {
    return {.x_radius = filter_radius(filter_arg(node, arg_pre_blur, 0)),
            .y_radius = filter_radius(filter_arg(node, arg_pre_blur, 1)),
            .subpixel = filter_arg(node, arg_subpixel) > 0};
}

bool prepare_slopes(const FixPixel* plane, const BlurSettings& blur, float scale, Slopes* slopes) {
    slopes->frame = filter_frame();
    blur_into_long_image(plane, blur, slopes->frame);
    slopes->scale = scale / (2.0f * static_cast<float>(slopes->frame.step) * static_cast<float>(long_image_scale));
    return !poll_abort();
}

SlopeRow slope_row(const Slopes& slopes, int y) {
    const FilterFrame& frame = slopes.frame;
    const int w = frame.width, h = frame.height, apart = frame.fields ? 2 : 1;
    const auto row = [&](int r) { return long_image + ptrdiff_t{r} * w; };
    return {row(y),       row(y - apart < 0 ? y : y - apart),       row(y + apart >= h ? y : y + apart),
            slopes.scale, slopes.scale / static_cast<float>(apart), w};
}

void need_slopes(Node* node, int arg_pre_blur) {
    const need::Reach reach = need::blur_arg_reach(node, arg_pre_blur);
    need::filter(node, 1, {reach.x + 1, reach.y + 1});
}

void fold_slopes(Node* node) { std::fill_n(node->vals, 4, 0); }

}  // namespace velloran
