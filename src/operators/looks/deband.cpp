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

// Each random number is made of the last one, which takes its time. So those of several rows are made side by side, and
// ahead: how many a pixel takes changes nothing of what they are.
constexpr int rows_at_once = 8;

// Two numbers for each try of a row.
struct Try {
    uint32_t x, y;
};

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

// The tries of a row: those made ahead, then one by one.
struct Tries {
    const Try *next, *end;
    uint32_t seed;  // after the last one
    Try take() {
        if (next < end) return *next++;
        const uint32_t x = bit_hash(seed);
        seed = bit_hash(x);
        return {x, seed};
    }
};

// count tries for each of n rows, one row after the other.
void make_tries(uint32_t* seeds, int n, int count, Try* tries) {
    uint32_t s[rows_at_once] = {};
    std::copy(seeds, seeds + n, s);
    for (int i = 0; i < count; ++i)
        for (int r = 0; r < n; ++r) {
            const uint32_t x = bit_hash(s[r]);
            s[r] = bit_hash(x);
            tries[static_cast<ptrdiff_t>(r) * count + i] = {x, s[r]};
        }
    std::copy(s, s + n, seeds);
}

// A random pixel within the radius of (x, y) that differs by less than the threshold; after each try the radius
// shrinks. Answers its offset in a plane.
ptrdiff_t choose_random_pixel(const Deband& d, int x, int y, Tries* tries) {
    const ptrdiff_t here = ptrdiff_t{y} * d.width + x;
    const int32_t mask = d.mask[here];
    if (mask >= fix_max) return here;
    double radius = (fix_scale - mask) * (1.0 / fix_scale) * d.radius;
    for (int i = 0; i < most_tries; ++i) {
        const Try t = tries->take();
        const double other_x = (unit_hash(t.x) - 0.5) * 2.0 * radius + x;
        const double other_y = (unit_hash(t.y) - 0.5) * 2.0 * radius + y;
        radius *= d.converge;
        // What lies less than a pixel outside is truncated to the border.
        if (!(other_x > -1.0 && other_x < d.width && other_y > -1.0 && other_y < d.height)) continue;
        const ptrdiff_t other = ptrdiff_t{static_cast<int>(other_y)} * d.width + static_cast<int>(other_x);
        if (other == here || alike(d, here, other)) return other;
    }
    return here;
}

// As many rows as are worked at once; the answer is how many tries the row of the most took.
int deband_rows(const Deband& d, FixPixel* const* out, uint32_t* seeds, int first, int n, int count, Try* ahead) {
    make_tries(seeds, n, count, ahead);
    ptrdiff_t most = 0;
    for (int r = 0; r < n; ++r) {
        const Try* const own = ahead + static_cast<ptrdiff_t>(r) * count;
        Tries tries = {own, own + count, seeds[r]};
        const ptrdiff_t row = ptrdiff_t{first + r} * d.width;
        for (int x = 0; x < d.width; ++x) {
            const ptrdiff_t from = choose_random_pixel(d, x, first + r, &tries);
            for (int c = 0; c < channels; ++c) out[c][row + x] = d.source[c][from];
        }
        most = std::max(most, tries.next - own);
    }
    return static_cast<int>(most);
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
    // Frames of fields stand at halves. Twice the highest number of a frame is more than 32 bits hold.
    const uint32_t frame_seed =
        own_seed + static_cast<uint32_t>(static_cast<int64_t>(the_frame->time_globals.frame * 2.0f));
    // Where rows take all that is made ahead the next ones are given more, else what they took.
    const int most_ahead = 4 * d.width;
    const size_t bytes = sizeof(Try) * static_cast<size_t>(most_ahead) * rows_at_once;
    maybe_malloc_forked_buffers(bytes, 1);
    fork_rows_if_big_image(d.width, d.height, [&](int first, int n) {
        auto* const ahead = static_cast<Try*>(get_forked_buffer(0, bytes));
        int count = d.width;
        for (int y = first; y < first + n; y += rows_at_once) {
            if (poll_abort()) return;
            const int rows = std::min(rows_at_once, first + n - y);
            uint32_t seeds[rows_at_once];
            for (int r = 0; r < rows; ++r) seeds[r] = bit_hash2(frame_seed, static_cast<uint32_t>(y + r));
            const int taken = deband_rows(d, node->images, seeds, y, rows, count, ahead);
            count = taken == count ? std::min(2 * count, most_ahead) : taken + 64;
            count = std::min(count, most_ahead);
        }
    });
}

}  // namespace velloran
