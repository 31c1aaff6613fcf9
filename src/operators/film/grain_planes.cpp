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

// plane = plane + the blur of grain. Few samples around each take one walk; a wide blur, or one of fields apart, costs
// the same at any radius, and leaves itself in the grain.
void add_blurred_grain(FixPixel* plane, FixPixel* grain, int32_t radius, const FilterFrame& frame) {
    const FilmImageRows& rows = film_image_rows();
    const int width = frame.width, height = frame.height;
    const GrainBlur blur = make_grain_blur(radius);
    GrainKernel kernel;
    // No box of the other blur is held to a frame that is larger than this.
    const bool large = std::min(frame.widest(), frame.highest()) > 2 * longest_grain_reach;
    if (large && !frame.fields && make_grain_kernel(blur, &kernel)) {
        const int reach = kernel.reach;
        const size_t bytes = static_cast<size_t>(width + 2 * reach) * sizeof(float);
        maybe_malloc_forked_buffers(bytes, 1);
        fork_rows_if_big_image(width, height, [&](int first, int n) {
            auto* const line = static_cast<float*>(get_forked_buffer(0, bytes));
            const FixPixel* around[2 * longest_grain_reach + 1];
            for (int y = first; y < first + n; ++y) {
                if ((y & 63) == 0 && poll_abort()) return;
                for (int k = -reach; k <= reach; ++k) {
                    const int row = y + k < 0 ? -1 - y - k : y + k >= height ? 2 * height - 1 - y - k : y + k;
                    around[reach + k] = grain + ptrdiff_t{row} * width;
                }
                rows.add_blurred(plane + ptrdiff_t{y} * width, around, kernel, line, width);
            }
        });
        return;
    }
    BlurSettings box = {.x_radius = blur.radius, .y_radius = blur.radius, .passes = 1, .subpixel = true};
    if (blur.second_radius > 0) {
        blur_image(grain, grain, box, frame);
        box.x_radius = box.y_radius = blur.second_radius;
    }
    box.gain = blur.gain;
    blur_image(grain, grain, box, frame);
    if (poll_abort()) return;
    fork_rows_if_big_image(width, height, [&](int first, int n) {
        const ptrdiff_t at = ptrdiff_t{first} * width;
        rows.add(plane + at, grain + at, n * width);
    });
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
    if (blurred && !poll_abort()) add_blurred_grain(plane, scratch, grain->colors[color].radius, frame);
}

}  // namespace velloran
