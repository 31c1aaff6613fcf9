#include "operators/stamps/scratches.h"

#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/noise/noise_1d.h"
#include "operators/pixel/luma.h"
#include "operators/stamps/stamps_functions.h"
#include "records/frame.h"
#include "support/hash.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

enum ScratchArg : int {
    arg_image,
    arg_seed,
    arg_n_scratches,
    arg_length,
    arg_width,
    arg_luma,
    arg_alpha,
    arg_sputter,
    arg_x,
    arg_taper
};

constexpr double native_width = 1920;
constexpr float most_scratches = 1000, most_length = 10000, most_width = 2000, most_alpha = 8;
constexpr int wander_octaves = 5, sputter_octaves = 8;
// Breaks in a frame height; the noise lies around 0.5 then, and mostly within 0.2 to 0.8.
constexpr double sputter_frequency = 5;
constexpr float sputter_edge = 10;
// Between two scratches of a row, in frame heights.
constexpr double least_gap = 1;

float number(uint32_t seed, uint32_t what) { return static_cast<float>(unit_hash(bit_hash2(seed, what))); }

// A scratch with its part of the frame, heights counted along the film: the frame begins at its number.
struct Scratch {
    uint32_t seed;
    double column;      // frame widths
    double begin, end;  // along the film
    double half_width;  // samples
    float alpha;
};

struct ScratchFrame {
    double number;         // of the frame
    double width, height;  // samples
    int left, bottom;      // of the planes
    int columns, rows;
};

ScratchFrame scratch_frame() {
    const rinfo& raster = the_frame->temp_raster_info;
    const RenderInfo& info = the_frame->render_info;
    const int step = std::max(raster.render_step, 1);
    return {std::trunc(static_cast<double>(the_frame->time_globals.frame)),
            static_cast<double>(info.full_ren.w) / step,
            static_cast<double>(info.full_ren.h) / step,
            raster.x / step,
            raster.y / step,
            raster.width,
            raster.height};
}

// The scratches of a frame. Each has a stretch of film for itself, in which it lies once, and then the next one of its
// row, with numbers of its own.
int list_scratches(const ScratchParams& p, const ScratchFrame& frame, Scratch* list) {
    const int rows = static_cast<int>(std::ceil(std::min(p.n_scratches, most_scratches)));
    const double length = static_cast<double>(std::min(p.length, most_length)), stretch = 1.5 * length + least_gap;
    int n = 0;
    for (int i = 0; i < rows; ++i) {
        const uint32_t row = bit_hash2(p.seed, static_cast<uint32_t>(i));
        const double shift = unit_hash(row) * stretch;
        const auto first = static_cast<int64_t>(std::floor((frame.number + shift) / stretch));
        const auto last = static_cast<int64_t>(std::floor((frame.number + 1 + shift) / stretch));
        for (int64_t k = first; k <= last; ++k) {
            Scratch s = {};
            s.seed = bit_hash2(row, static_cast<uint32_t>(k));
            const double own = length * (0.5 + static_cast<double>(number(s.seed, 1)));
            s.begin =
                static_cast<double>(k) * stretch - shift + static_cast<double>(number(s.seed, 2)) * (stretch - own);
            s.end = s.begin + own;
            s.column = static_cast<double>(number(s.seed, 3));
            const float width = p.width + (number(s.seed, 4) - 0.5f) * p.vary_width;
            s.half_width = static_cast<double>(std::clamp(width, 0.0f, most_width)) / 2 * frame.width / native_width;
            const float share = std::min(p.n_scratches - static_cast<float>(i), 1.0f);
            s.alpha = std::clamp(p.alpha + (number(s.seed, 5) - 0.5f) * p.vary_alpha, 0.0f, most_alpha) * share;
            if (s.end > frame.number && s.begin < frame.number + 1 && s.half_width > 0 && s.alpha > 0) list[n++] = s;
        }
    }
    return n;
}

// How much of the scratch there is at a place along the film.
float there(const Scratch& s, float sputter, double at) {
    if (sputter <= 0) return 1;
    const float level = 0.5f + 1.5f * fnoise1(bit_hash2(s.seed, 6),
                                              static_cast<float>((at - s.begin) * sputter_frequency), sputter_octaves);
    // At 1 hardly any of the noise is left above.
    const float threshold = sputter + 0.3f * sputter * sputter;
    return std::clamp((level - threshold) * sputter_edge + 0.5f, 0.0f, 1.0f);
}

FixPixel added(FixPixel p, float light) {
    const float sum = static_cast<float>(p) + light;
    return static_cast<FixPixel>(std::lround(std::clamp(sum, -32767.0f, 32767.0f)));
}

struct ScratchLight {
    FixPixel* const* images;
    int channels;
    float light[4];  // a channel's, in samples
};

void draw_row(const Scratch& s, const ScratchParams& p, const ScratchFrame& frame, const ScratchLight& light, int y) {
    const double at = frame.number + (frame.bottom + y + 0.5) / frame.height;
    if (at < s.begin || at >= s.end) return;
    const double length = s.end - s.begin, reach = static_cast<double>(std::clamp(p.taper, 0.0f, 1.0f)) * length / 2;
    const double narrow = reach > 0 ? std::min(std::min(at - s.begin, s.end - at) / reach, 1.0) : 1.0;
    const double half = s.half_width * narrow;
    const float strength = s.alpha * there(s, p.sputter, at) * static_cast<float>(std::min(2 * half, 1.0));
    if (!(strength > 0)) return;
    const double wandered =
        static_cast<double>(p.distance) *
        static_cast<double>(fnoise1(bit_hash2(s.seed, 7),
                                    static_cast<float>((at - s.begin) * static_cast<double>(p.speed)), wander_octaves));
    const double middle = (s.column + wandered) * frame.width - 0.5 - frame.left, wide = std::max(half, 0.5) + 0.5;
    const double from = std::max(std::ceil(middle - wide), 0.0),
                 to = std::min(std::floor(middle + wide), frame.columns - 1.0);
    for (int x = static_cast<int>(from); x <= to; ++x) {
        const auto cover = static_cast<float>(std::clamp(wide - std::abs(x - middle), 0.0, 1.0));
        for (int c = 0; c < light.channels; ++c) {
            FixPixel& pixel = light.images[c][ptrdiff_t{y} * frame.columns + x];
            pixel = added(pixel, light.light[c] * strength * cover);
        }
    }
}

ScratchParams read_params(const Node* node, int set) {
    const auto arg = [&](int i, int e) { return filter_arg_float(node, i, e); };
    ScratchParams p = {};
    p.seed = static_cast<uint32_t>(filter_arg(node, arg_seed));
    if (set == 1) p.seed = bit_hash(p.seed);
    p.n_scratches = arg(arg_n_scratches, set);
    p.length = arg(arg_length, set);
    p.width = arg(arg_width, 2 * set);
    p.vary_width = arg(arg_width, 2 * set + 1);
    for (int c = 0; c < 3; ++c) p.luma[c] = arg(arg_luma, c);
    p.alpha = arg(arg_alpha, 2 * set);
    p.vary_alpha = arg(arg_alpha, 2 * set + 1);
    p.sputter = arg(arg_sputter, set);
    p.distance = arg(arg_x, 2 * set);
    p.speed = arg(arg_x, 2 * set + 1);
    p.taper = arg(arg_taper, 0);
    p.dark = set == 1 ? 1.0f : 0.0f;
    return p;
}

}  // namespace

void render_scratches(FixPixel* const* images, int channels, const ScratchParams& p) {
    if (!(p.n_scratches > 0) || !(p.length > 0) || !(p.width > 0) || !(p.alpha > 0)) return;
    const ScratchFrame frame = scratch_frame();
    // A frame touches so many scratches of a row: a stretch is longer than a frame.
    constexpr size_t in_frame = 2;
    auto* const list = frame_array<Scratch>(in_frame * static_cast<size_t>(most_scratches));
    const int n = list_scratches(p, frame, list);
    const float sign = p.dark > 0 ? -1.0f : 1.0f;
    const float bright = p.luma[1] + luma_red * (p.luma[0] - p.luma[1]) + luma_blue * (p.luma[2] - p.luma[1]);
    ScratchLight light = {images, std::min(channels, 3), {}};
    for (int c = 0; c < light.channels; ++c)
        light.light[c] = sign * (channels < 3 ? bright : p.luma[c]) * static_cast<float>(fix_scale);
    if (n)
        fork_rows_if_big_image(frame.columns, frame.rows, [&](int first, int count) {
            for (int y = first; y < first + count; ++y) {
                if ((y & 63) == 0 && poll_abort()) return;
                for (int i = 0; i < n; ++i) draw_row(list[i], p, frame, light, y);
            }
        });
    frame_free(list);
}

void image_scratches(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    const int sets = filter_elements(node, arg_n_scratches) > 1 ? 2 : 1;
    for (int set = 0; set < sets && !poll_abort(); ++set)
        render_scratches(node->images, node->elnum, read_params(node, set));
}

}  // namespace velloran
