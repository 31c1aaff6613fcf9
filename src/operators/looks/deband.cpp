#include "engine/evaluate.h"
#include "operators/blur/filter_args.h"
#include "operators/looks/looks_functions.h"
#include "support/hash.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cstdlib>

namespace velloran {

namespace {

enum DebandArg : int { arg_source, arg_mask, arg_threshold, arg_radius, arg_converge_rate };

constexpr int channels = 3;
constexpr uint32_t own_seed = 55555;
// Then the pixel itself is taken, whatever the arguments: of pixels that find one in time hardly any needs so many.
constexpr int most_tries = 100;

// Rows that are worked side by side: each waits for its own last number, and meanwhile there is work for the others.
constexpr int rows_at_once = 4;

struct Deband {
    const FixPixel* source[channels];
    const FixPixel* mask;
    int width, height;
    int32_t threshold;
    double radius, converge;
};

bool alike(const Deband& d, ptrdiff_t a, ptrdiff_t b) {
    int most = 0;
    for (const FixPixel* plane : d.source) most = std::max(most, std::abs(plane[a] - plane[b]));
    return most < d.threshold;
}

// A random pixel within the radius of (x, y) that differs by less than the threshold; after each try the radius
// shrinks. Answers its offset in a plane.
ptrdiff_t choose_random_pixel(const Deband& d, int x, int y, uint32_t* seed) {
    const ptrdiff_t here = ptrdiff_t{y} * d.width + x;
    const int32_t mask = d.mask[here];
    if (mask >= fix_max) return here;
    double radius = (fix_scale - mask) * (1.0 / fix_scale) * d.radius;
    for (int tries = 0; tries < most_tries; ++tries) {
        uint32_t h = bit_hash(*seed);
        const double other_x = (unit_hash(h) - 0.5) * 2.0 * radius + x;
        h = bit_hash(h);
        *seed = h;
        const double other_y = (unit_hash(h) - 0.5) * 2.0 * radius + y;
        radius *= d.converge;
        // What lies less than a pixel outside is truncated to the border.
        if (!(other_x > -1.0 && other_x < d.width && other_y > -1.0 && other_y < d.height)) continue;
        const ptrdiff_t other = ptrdiff_t{static_cast<int>(other_y)} * d.width + static_cast<int>(other_x);
        if (other == here || alike(d, here, other)) return other;
    }
    return here;
}

}  // namespace

// Breaks bands up: each pixel becomes one that is chosen at random within radius (1.0 is an eighth of the frame's
// width) and differs by less than threshold in every channel; where there is none, the radius is multiplied by
// converge_rate and another one tried, until the pixel itself comes up. mask leaves pixels: 1.0 all of them, less
// shortens the radius. Each row of each frame has random numbers of its own.
void image_deband(Node* node) {
    eval_node_tree_into_images(node->args[arg_source], node->images + channels, node->image_index + channels, 1);
    eval_node_tree_into_images(node->args[arg_mask], node->images + 2 * channels, node->image_index + 2 * channels, 1);
    if (poll_abort()) return;
    Deband d;
    for (int c = 0; c < channels; ++c) d.source[c] = node->images[channels + c];
    d.mask = node->images[2 * channels];
    d.width = the_frame->temp_raster_info.width;
    d.height = the_frame->temp_raster_info.height;
    d.threshold = filter_arg(node, arg_threshold);
    d.radius = filter_radius(filter_arg(node, arg_radius)) / 4096.0;
    d.converge = filter_arg(node, arg_converge_rate) / 4096.0;
    // Frames of fields stand at halves.
    const uint32_t frame_seed =
        own_seed + static_cast<uint32_t>(static_cast<int32_t>(the_frame->time_globals.frame * 2.0f));
    fork_rows_if_big_image(d.width, d.height, [&](int first, int n) {
        for (int y = first; y < first + n; y += rows_at_once) {
            if ((y & 15) < rows_at_once && poll_abort()) return;
            const int rows = std::min(rows_at_once, first + n - y);
            uint32_t seeds[rows_at_once];
            for (int r = 0; r < rows; ++r) seeds[r] = bit_hash2(frame_seed, static_cast<uint32_t>(y + r));
            for (int x = 0; x < d.width; ++x)
                for (int r = 0; r < rows; ++r) {
                    const ptrdiff_t from = choose_random_pixel(d, x, y + r, &seeds[r]);
                    const ptrdiff_t to = ptrdiff_t{y + r} * d.width + x;
                    for (int c = 0; c < channels; ++c) node->images[c][to] = d.source[c][from];
                }
        }
    });
}

}  // namespace velloran
