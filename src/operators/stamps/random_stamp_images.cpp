// Numbers are drawn in one fixed order from a chain of hashes; what a setting does not use is drawn all the same, so
// that moving it leaves everything else where it was.
#include "operators/stamps/random_stamp_images.h"

#include "operators/noise/noise_1d.h"
#include "operators/noise/random_waves.h"
#include "operators/stamps/stamp_collections.h"
#include "operators/stamps/transform_and_comp_image.h"
#include "records/frame.h"
#include "records/run_state.h"
#include "support/hash.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

constexpr float native_width = 1920;
constexpr double most_stamps = 100000;
constexpr int noise_octaves = 3;

struct Chain {
    uint32_t h;
    // Places keep all their bits: rounded to float on their way, they would hang on what a compiler keeps of that.
    double place() {
        h = bit_hash(h);
        return unit_hash(h);
    }
    float unit() { return static_cast<float>(place()); }
};

// A hair moves while it lies there.
struct Wobble {
    float time, amp;
};

struct PlacedStamps {
    PlacedStamp* stamps;
    int count, room;
};

void add(PlacedStamps* all, const PlacedStamp& stamp) {
    if (stamp.left > stamp.right) return;
    if (all->count == all->room) {
        all->room = std::max(2 * all->room, 64);
        auto* const more = frame_array<PlacedStamp>(static_cast<size_t>(all->room));
        std::copy(all->stamps, all->stamps + all->count, more);
        frame_free(all->stamps);
        all->stamps = more;
    }
    all->stamps[all->count++] = stamp;
}

// The frame in pixels, and how its samples lie in it.
struct StampFrame {
    double width, height;   // pixels
    double step;            // pixels of a sample
    double x_unit, y_unit;  // samples to a sample of a stamp of scale 1
    double sample(double pixel) const { return pixel / step - 0.5; }
};

StampFrame stamp_frame() {
    const RenderInfo& info = the_frame->render_info;
    StampFrame frame = {};
    frame.width = info.full_ren.w;
    frame.height = info.full_ren.h;
    frame.step = std::max(the_frame->temp_raster_info.render_step, 1);
    frame.x_unit = frame.width / static_cast<double>(native_width) / frame.step;
    const auto ratio = static_cast<double>(the_frame->pixel_aspect_ratio);
    frame.y_unit = frame.x_unit / (ratio > 0 ? ratio : 1.0);
    return frame;
}

// Which stamps of a collection a frame has had: the next one is another, until all were there.
struct UsedStamps {
    uint8_t* used;
    int free, count;
};

int pick_unused(UsedStamps* used, int i) {
    if (!used->free) {
        std::fill_n(used->used, used->count, uint8_t{0});
        used->free = used->count;
    }
    while (used->used[i]) i = (i + 1) % used->count;
    used->used[i] = 1;
    --used->free;
    return i;
}

struct Drawing {
    StampCollection* collection;
    const StampSettings* settings;
    StampFrame frame;
    UsedStamps* used;      // null: any stamp at any time
    const Wobble* wobble;  // null: it lies still
    PlacedStamps* all;
};

// Answers the number that the next stamp begins with. False: a file could not be read.
bool draw_stamp(const Drawing& d, uint32_t* running) {
    const StampSettings& s = *d.settings;
    uint32_t h = bit_hash(*running);
    int i = static_cast<int>(h % static_cast<uint32_t>(d.collection->count));
    if (d.used) i = pick_unused(d.used, i);
    Chain chain = {bit_hash2(h, static_cast<uint32_t>(i))};
    const bool mirrored = unit_hash(chain.h) > 0.5;
    const double x = chain.place() * d.frame.width;
    const double y = chain.place() * d.frame.height;
    float moved[4] = {};
    if (d.wobble)
        for (float& m : moved) {
            chain.h = bit_hash(chain.h);
            m = fnoise1(chain.h, d.wobble->time, noise_octaves) * d.wobble->amp;
        }
    StampPlace place = {};
    place.flip_x = chain.unit() > 0.5f;
    place.flip_y = chain.unit() > 0.5f;
    const float least = std::max(0.0f, s.scale - s.vary_scale / 2);
    const float scale = std::max(0.0f, least + chain.unit() * (s.scale + s.vary_scale / 2 - least));
    const float t = chain.unit();
    const float bright = std::max(0.0f, 1 - s.vary_brightness / 2 + chain.unit() * s.vary_brightness);
    float color[3];
    for (int c = 0; c < 3; ++c) {
        const float own = s.color1[c] * t + s.color2[c] * (1 - t);
        color[c] = std::max(0.0f, own + (chain.unit() - 0.5f) * s.vary_color) * bright;
    }
    const float opacity = std::max(0.0f, s.opacity + (chain.unit() - 0.5f) * s.vary_opacity);
    *running = chain.h;
    bool lost;
    const Stamp* const stamp = stamp_with_pixels(&d.collection->stamps[i], mirrored, &lost);
    if (!stamp) return !lost;
    const double x_scale = static_cast<double>(scale * stamp->x_scale * (1 + moved[2])) * d.frame.x_unit;
    const double y_scale = static_cast<double>(scale * stamp->y_scale * (1 + moved[3])) * d.frame.y_unit;
    if (!(x_scale > 0) || !(y_scale > 0)) return true;
    place.x = d.frame.sample(x) + static_cast<double>(moved[0]) * x_scale * stamp->width;
    place.y = d.frame.sample(y) + static_cast<double>(moved[1]) * y_scale * stamp->height;
    place.x_scale = x_scale;
    place.y_scale = y_scale;
    add(d.all, place_stamp(*stamp, place, color, opacity));
    return true;
}

void comp_stamps(FixPixel* const* images, int channels, PlacedStamps* all) {
    const rinfo& raster = the_frame->temp_raster_info;
    const int step = std::max(raster.render_step, 1);
    const StampCanvas canvas = {images, channels, raster.width, raster.height, raster.x / step, raster.y / step};
    if (all->count)
        fork_rows_if_big_image(canvas.width, canvas.height, [&](int first, int n) {
            for (int i = 0; i < all->count; ++i) {
                if ((i & 15) == 0 && poll_abort()) return;
                transform_and_comp_image(canvas, all->stamps[i], first, n);
            }
        });
    frame_free(all->stamps);
}

// Null: nothing is to be drawn, or the frame has failed.
StampCollection* collection_to_draw(const char* name) {
    StampCollection* const collection = load_stamp_collection(name);
    if (!collection) fail_frame();
    return collection && collection->count ? collection : nullptr;
}

// The frame that a field belongs to: what lies on film lies in both fields.
double film_frame() { return std::trunc(static_cast<double>(the_frame->time_globals.frame)); }

bool nothing(float value, float vary) { return !(value + vary * 0.5f > 0); }

// Values too large for a hash's whole number, or none.
double held(double v, double most) { return v > 0 ? std::min(v, most) : 0; }

}  // namespace

void random_stamp_images(FixPixel* const* images, int channels, const char* name, uint32_t seed,
                         const StampSettings& settings) {
    const StampSettings& s = settings;
    if (nothing(s.density, s.vary_density) || nothing(s.scale, s.vary_scale) || nothing(s.opacity, s.vary_opacity))
        return;
    StampCollection* const collection = collection_to_draw(name);
    if (!collection) return;
    const uint32_t h = bit_hash2(seed, static_cast<uint32_t>(static_cast<int64_t>(film_frame())));
    const double density = static_cast<double>(s.density), vary = static_cast<double>(s.vary_density);
    const double wanted = held(density - vary / 2 + unit_hash(h) * vary, most_stamps);
    int n = static_cast<int>(wanted);
    uint32_t running = bit_hash(h);
    if (unit_hash(running) < wanted - n) ++n;
    UsedStamps used = {frame_array<uint8_t>(static_cast<size_t>(collection->count)), 0, collection->count};
    PlacedStamps all = {};
    const Drawing drawing = {collection, &settings, stamp_frame(), &used, nullptr, &all};
    bool whole = true;
    for (int i = 0; i < n && whole && !((i & 63) == 63 && poll_abort()); ++i) whole = draw_stamp(drawing, &running);
    if (!whole) fail_frame();
    comp_stamps(images, channels, &all);
    frame_free(used.used);
}

void stamp_hairs(FixPixel* const* images, int channels, const char* name, uint32_t seed, const HairSettings& settings) {
    const HairSettings& s = settings;
    if (s.max_hairs < 1 || !(s.opacity > 0) || nothing(s.scale, s.vary_scale)) return;
    StampCollection* const collection = collection_to_draw(name);
    if (!collection) return;
    StampSettings stamp = {};
    std::copy_n(s.color, 3, stamp.color1);
    std::copy_n(s.color, 3, stamp.color2);
    stamp.opacity = s.opacity;
    stamp.scale = s.scale;
    stamp.vary_scale = s.vary_scale;
    PlacedStamps all = {};
    const auto time = static_cast<float>(film_frame());
    uint32_t slot = seed;
    bool whole = true;
    for (int i = 0; i < s.max_hairs && whole && !((i & 63) == 63 && poll_abort()); ++i) {
        slot = bit_hash(slot);
        const float at = time * s.frequency;
        if (!(random_square_wave(slot, at, 0, 1) > s.threshold)) continue;
        const float start = s.frequency != 0 ? random_square_wave_start_time(slot, at) / s.frequency : 0.0f;
        const Wobble wobble = {(time - start) * s.noise_freq, s.noise_amp};
        uint32_t running = random_square_wave_seed(slot, at);
        whole = draw_stamp({collection, &stamp, stamp_frame(), nullptr, &wobble, &all}, &running);
    }
    if (!whole) fail_frame();
    comp_stamps(images, channels, &all);
}

}  // namespace velloran
