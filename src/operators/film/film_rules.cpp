#include "compile/need_reach.h"
#include "frame/filter_radius.h"
#include "operators/film/film_args.h"
#include "operators/film/film_functions.h"

#include <algorithm>

namespace velloran {

namespace {

// Of the widest of three colours.
int64_t widest_reach(const Node* node, int arg) {
    int64_t reach = 0;
    for (int e = 0; e < 3; ++e) reach = std::max(reach, filter_reach(need::value(node, arg, e)));
    return reach;
}

}  // namespace

// Grain lies on the picture before it is blurred, twice.
void need_rect_grain(Node* node) {
    using namespace grain_args;
    if (need::varies(node, grain_blur)) return need::filter(node, 1, need::everywhere);
    const int64_t reach = 2 * widest_reach(node, grain_blur);
    need::filter(node, 1, {reach, reach});
}

void need_rect_film_effect(Node* node) {
    using namespace film_args;
    for (const int arg : {films_fields_blur, glow_width, grain_blur})
        if (need::varies(node, arg)) return need::filter(node, 1, need::everywhere);
    const int64_t reach = filter_reach(need::value(node, films_fields_blur, 3)) + widest_reach(node, glow_width) +
                          2 * widest_reach(node, grain_blur);
    need::filter(node, 1, {reach, reach});
}

}  // namespace velloran
