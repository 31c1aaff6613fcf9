#include "compile/need_reach.h"

#include "compile/need_rect.h"
#include "frame/filter_radius.h"
#include "records/fix_pixel.h"
#include "records/frame.h"

#include <algorithm>

namespace velloran::need {
namespace {

// Fields lie two rows apart.
Reach on_fields(Reach reach) {
    if (the_frame->render_field) reach.y *= 2;
    return reach;
}

}  // namespace

int64_t largest(const Node* node, int i, int64_t least) {
    int64_t most = least;
    for (int e = 0; e < node->args[i]->elnum; ++e) {
        const int64_t v = value(node, i, e);
        most = std::max(most, v < 0 ? -v : v);
    }
    return most;
}

int32_t scaled_amount(int64_t amount, int64_t scale) {
    return static_cast<int32_t>(std::clamp<int64_t>((amount * scale) >> fix_bits, 0, INT32_MAX));
}

Reach blur_arg_reach(const Node* node, int i) {
    if (varies(node, i)) return everywhere;
    return {filter_reach(value(node, i, 0)), filter_reach(value(node, i, 1))};
}

void with_reach(Node* node, int i, Reach reach) {
    if (!varies(node, i)) return;
    reach = on_fields(reach);
    need_rect_grow(*node_need_rect(node), reach.x, reach.y, node_need_rect(node->args[i]));
}

void all_of(Node* node, int i) {
    if (varies(node, i)) need_rect_set_all(node_need_rect(node->args[i]));
}

void filter(Node* node, int n_images, Reach reach) {
    for (int i = 0; i < n_images; ++i) with_reach(node, i, reach);
    default_need_rect(node, n_images);
}

}  // namespace velloran::need
