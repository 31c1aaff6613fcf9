#include "compile/need_walk.h"

#include "compile/need_rect.h"
#include "records/node.h"

#include <algorithm>

namespace velloran {

void get_expanded_src(Genotype* genotype, const RasterRect& crop, const RasterRect& frame, RasterRect* out) {
    const auto edge = [](int v) { return static_cast<int16_t>(std::clamp(v, -32767, 32767)); };
    const NeedRect root = {edge(crop.x), edge(crop.x + crop.w - 1), edge(crop.y), edge(crop.y + crop.h - 1), 0};
    need_rect_walk(genotype, root);

    NeedRect all = root;
    bool whole = false;
    for (int i = 0; i < genotype->node_number; ++i) {
        const Node& node = genotype->nodes[i];
        if (!node.need_rect || node.need_rect->empty || is_constant(&node)) continue;
        // Generated images count like inputs: a filter reads around its pixel in them too.
        need_rect_union(*node.need_rect, &all);
        if (node.type == node_function && (node.fun_info->def_flags & def_needs_whole_plane)) whole = true;
    }
    // A filter of the previous output reads what lies outside the crop, so that must have been made.
    const int feedback_filter = effect_keeps_own_images | effect_has_spatial;
    if ((genotype->effect_flags_1 & feedback_filter) == feedback_filter) whole = true;
    if (whole) {
        *out = frame;
        return;
    }
    const int x0 = std::max<int>(all.min_x, frame.x), x1 = std::min<int>(all.max_x, frame.x + frame.w - 1);
    const int y0 = std::max<int>(all.min_y, frame.y), y1 = std::min<int>(all.max_y, frame.y + frame.h - 1);
    *out = {x0, y0, std::max(x1 - x0 + 1, 0), std::max(y1 - y0 + 1, 0)};
}

}  // namespace velloran
