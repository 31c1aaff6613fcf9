#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/film/film_args.h"
#include "operators/film/film_functions.h"
#include "operators/film/grain_planes.h"

namespace velloran {

void image_grain(Node* node) {
    using namespace grain_args;
    eval_node_tree_into_images(node->args[image], node->images, node->image_index, 1);
    GrainSettings settings = {};
    for (int c = 0; c < film_colors; ++c) {
        settings.amp[c] = filter_arg_float(node, grain_amp, c);
        settings.midtones[c] = filter_arg_float(node, midtones, c);
        settings.blur[c] = filter_arg(node, grain_blur, c);
    }
    settings.darks = filter_arg_float(node, darks_brights, 0);
    settings.brights = filter_arg_float(node, darks_brights, 1);
    settings.mono = filter_arg(node, grain_mono) > 0;
    settings.hold = filter_arg(node, grain_hold) >> fix_bits;
    settings.seed = static_cast<uint32_t>(filter_arg(node, seed));
    const Grain grain = make_grain(settings);
    const FilterFrame frame = filter_frame();
    for (int c = 0; c < film_colors; ++c)
        work_film_plane(node->images[c], node->images[node->elnum], c, {.grain = &grain}, frame);
}

}  // namespace velloran
