#include "operators/film/grain_planes.h"

#include "operators/blur/blur_image.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <cmath>
#include <utility>

namespace velloran {

namespace {

// Frames of 576 lines have their first field on the odd rows, counted from the bottom one; others on the even ones,
// with the bottom row last if its number is odd.
bool odd_rows_first(int height) { return (height & 1) != (height == 576 ? 1 : 0); }

// While fields are rendered all rows are those of the field in hand: the first one comes on the frame, the other one
// half a frame later.
FieldSeeds seeds_of_rows(const GrainSettings& settings) {
    const float time = the_frame->time_globals.frame, frame = std::floor(time);
    FieldSeeds seeds = grain_field_seeds(settings.hold, static_cast<int64_t>(frame));
    if (the_frame->render_field > 0) {
        const uint32_t own = time > frame ? seeds.second : seeds.first;
        return {own, own};
    }
    const bool odd_first = settings.field_order == grain_order_by_height
                               ? odd_rows_first(the_frame->render_info.full_ren.h)
                               : settings.field_order == grain_order_odd_first;
    if (odd_first) std::swap(seeds.first, seeds.second);
    return seeds;
}

// Two boxes, and some of the strength that they take back.
void blur_grain(FixPixel* grain, int32_t radius, const FilterFrame& frame) {
    const int64_t gain = (int64_t{radius} * 8 + 5) / 10 + fix_scale;
    BlurSettings blur = {.x_radius = radius, .y_radius = radius, .passes = 1, .subpixel = true};
    const int32_t second = radius - fix_scale / 2;
    if (second <= 0) {
        blur.gain = static_cast<int32_t>(std::min<int64_t>(gain, INT32_MAX));
        return blur_image(grain, grain, blur, frame);
    }
    blur_image(grain, grain, blur, frame);
    if (poll_abort()) return;
    blur.x_radius = blur.y_radius = second;
    blur.gain = static_cast<int32_t>(std::min<int64_t>(gain, INT32_MAX));
    blur_image(grain, grain, blur, frame);
}

}  // namespace

Grain make_grain(const GrainSettings& settings) {
    Grain grain = {};
    const rinfo& planes = the_frame->temp_raster_info;
    const int step = std::max(planes.render_step, 1);
    grain.first_row = planes.y / step;
    grain.first_column = planes.x / step;
    grain.pitch = filter_frame_width();
    const uint32_t samples = static_cast<uint32_t>(grain.pitch) * static_cast<uint32_t>(filter_frame_height());
    const FieldSeeds fields = seeds_of_rows(settings);
    for (int c = 0; c < film_colors; ++c) {
        Grain::Color& color = grain.colors[c];
        color.on = settings.amp[c] != 0.0f;
        fill_grain_amounts(color.amounts, settings.midtones[c], settings.darks, settings.brights, settings.amp[c]);
        const uint32_t channel = settings.mono ? 1 : static_cast<uint32_t>(c);
        const auto seed_of = [&](uint32_t field) {
            return settings.seed + 7 * field + samples * field + 10001 * channel;
        };
        color.seeds[0] = seed_of(fields.first);
        color.seeds[1] = seed_of(fields.second);
        color.radius = filter_radius(settings.blur[c]);
    }
    return grain;
}

void work_film_plane(FixPixel* plane, FixPixel* scratch, int color, const PlaneWork& work, const FilterFrame& frame) {
    if (poll_abort()) return;
    const FilmImageRows& rows = film_image_rows();
    const int width = frame.width;
    const Grain* const grain = work.grain && work.grain->colors[color].on ? work.grain : nullptr;
    const bool blurred = grain && grain->colors[color].radius >= 1;
    if (!work.table && !work.glow && !grain) return;
    fork_rows_if_big_image(width, frame.height, [&](int first, int n) {
        for (int y = first; y < first + n; ++y) {
            if ((y & 63) == 0 && poll_abort()) return;
            FixPixel* const p = plane + ptrdiff_t{y} * width;
            if (work.table) rows.tone(p, work.table, width);
            if (work.glow) rows.add_glow(p, work.glow + ptrdiff_t{y} * width, work.keep, width);
            if (!grain) continue;
            const Grain::Color& of = grain->colors[color];
            const int row = grain->first_row + y;
            const uint32_t line = of.seeds[row & 1] + static_cast<uint32_t>(row) * static_cast<uint32_t>(grain->pitch);
            const GrainRow noise = {line + static_cast<uint32_t>(grain->first_column & ~3), grain->first_column & 3};
            if (blurred)
                rows.make_grain(p, scratch + ptrdiff_t{y} * width, of.amounts, noise, width);
            else
                rows.add_grain(p, of.amounts, noise, width);
        }
    });
    if (!blurred || poll_abort()) return;
    blur_grain(scratch, grain->colors[color].radius, frame);
    if (poll_abort()) return;
    fork_rows_if_big_image(width, frame.height, [&](int first, int n) {
        const ptrdiff_t at = ptrdiff_t{first} * width;
        rows.add(plane + at, scratch + at, n * width);
    });
}

}  // namespace velloran
