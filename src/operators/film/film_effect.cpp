#include "engine/evaluate.h"
#include "operators/blur/blur_image.h"
#include "operators/blur/filter_args.h"
#include "operators/film/film_args.h"
#include "operators/film/film_functions.h"
#include "operators/film/film_tone.h"
#include "operators/film/grain_planes.h"
#include "support/user_abort.h"

#include <algorithm>
#include <cmath>

namespace velloran {

using namespace film_args;

namespace {

FilmSettings read_film_settings(const Node* node) {
    FilmSettings s;
    s.negative = filter_arg(node, films_fields_blur, 0) >> fix_bits;
    s.print = filter_arg(node, films_fields_blur, 1) >> fix_bits;
    s.master_gamma = filter_arg_float(node, cc_gammas, 3);
    s.exposure = static_cast<float>(std::exp2(std::clamp<double>(filter_arg_float(node, neg_exposure), -60, 60)));
    s.offset = filter_arg_float(node, offset_scale, 0);
    s.scale = filter_arg_float(node, offset_scale, 1);
    for (int c = 0; c < film_colors; ++c) {
        s.gamma[c] = filter_arg_float(node, cc_gammas, c);
        s.print_exposure[c] = filter_arg_float(node, print_exposure, c);
    }
    return s;
}

GrainSettings read_grain(const Node* node, const FilmSettings& film) {
    GrainSettings s = {};
    const FilmType &negative = film_type(neg_film_types(), film.negative),
                   &print = film_type(print_film_types(), film.print);
    for (int c = 0; c < film_colors; ++c) {
        // The coarser of the two films shows most.
        const float own = print.is_reversal
                              ? 2 * print.grain[c]
                              : negative.grain[c] + print.grain[c] + std::max(negative.grain[c], print.grain[c]);
        s.amp[c] = own * filter_arg_float(node, grain_amp, c) * 4.0f;
        s.midtones[c] = filter_arg_float(node, midtones_mono, c);
        s.blur[c] = filter_arg(node, grain_blur, c);
    }
    s.mono = filter_arg(node, midtones_mono, 3) > 0;
    s.hold = filter_arg(node, grain_misc, 0) >> fix_bits;
    s.seed = static_cast<uint32_t>(filter_arg(node, grain_misc, 1));
    s.darks = filter_arg_float(node, grain_misc, 2);
    s.brights = filter_arg_float(node, grain_misc, 3);
    s.field_order = filter_arg(node, films_fields_blur, 2) >> fix_bits;
    return s;
}

// What stays of a picture below a glow: all of it where the glow is added, none where it takes the picture's place as
// bright as that.
int32_t kept_below_glow(int32_t soft_focus, int32_t brightness) {
    const int64_t replaced =
        (int64_t{std::clamp(soft_focus, 0, fix_scale)} * std::clamp(brightness, 0, fix_scale)) >> fix_bits;
    return fix_scale - static_cast<int32_t>(replaced);
}

}  // namespace

void image_film_effect(Node* node) {
    eval_node_tree_into_images(node->args[image], node->images, node->image_index, 1);
    const FilmSettings film = read_film_settings(node);
    set_film_tables(film);
    const Grain grain = make_grain(read_grain(node, film));
    const FilterFrame frame = filter_frame();
    const int32_t softness = filter_radius(filter_arg(node, films_fields_blur, 3));
    FixPixel* const scratch = node->images[node->elnum];
    for (int c = 0; c < film_colors; ++c) {
        FixPixel* const plane = node->images[c];
        if (softness >= 1)
            blur_image(plane, plane, {.x_radius = softness, .y_radius = softness, .subpixel = true}, frame);
        PlaneWork work = {.table = film_table(c), .grain = &grain};
        const int32_t brightness = filter_arg(node, glow_brightness, c);
        if (brightness > 0) {
            work_film_plane(plane, scratch, c, {.table = film_table(c)}, frame);
            const int32_t radius = filter_radius(filter_arg(node, glow_width, c));
            blur_image(plane, scratch, {.x_radius = radius, .y_radius = radius, .subpixel = true, .gain = brightness},
                       frame);
            work = {.glow = scratch,
                    .keep = kept_below_glow(filter_arg(node, glow_soft_focus), brightness),
                    .grain = &grain};
        }
        work_film_plane(plane, scratch, c, work, frame);
        if (poll_abort()) return;
    }
}

}  // namespace velloran
