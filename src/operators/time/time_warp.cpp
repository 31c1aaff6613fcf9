// A clip at another time. Where the time varies with the pixel, the frames that any pixel wants are gone through once,
// in their order, and each gives its samples to the pixels that want it: so an earlier frame is in place when the later
// one is mixed over it.
#include "engine/clip_args.h"
#include "engine/evaluate.h"
#include "frame/host_buffers.h"
#include "frame/lut_files.h"
#include "frame/pixel_formats.h"
#include "operators/time/frame_access.h"
#include "operators/time/time_functions.h"
#include "operators/time/time_rows.h"
#include "records/run_state.h"
#include "rows/line_rows.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>

namespace velloran {
namespace {

enum TimeWarpArg : int { arg_clip, arg_frame, arg_interp };

constexpr int rows_between_polls = 64;
constexpr int block_samples = 1024;  // of a row; the lines of a block stay in the first cache

// The times of the pixels, in frames with 12 fraction bits, held to the clip.
struct Times {
    int32_t* plane;     // in the working geometry; null: low for all pixels
    int32_t low, high;  // of all pixels
    bool mixed;         // frames are mixed by the fraction; else the whole part counts
};

int first_frame(const Times& times) { return times.low >> fix_bits; }
int last_frame(const Times& times) { return (times.high + (times.mixed ? fix_scale - 1 : 0)) >> fix_bits; }

template <class T>
void widen(std::atomic<T>& bound, T value, bool upwards) {
    T before = bound.load(std::memory_order_relaxed);
    while ((upwards ? value > before : value < before) &&
           !bound.compare_exchange_weak(before, value, std::memory_order_relaxed)) {
    }
}

// Holds the plane's times to the clip and finds their range.
void find_range(Times* times, int32_t most) {
    const rinfo& working = the_frame->temp_raster_info;
    std::atomic<int32_t> low = INT32_MAX, high = 0;
    const TimeRows& rows = time_row_functions();
    fork_rows(working.height, [&](int first, int n) {
        int32_t least = INT32_MAX, greatest = 0;
        for (int y = first; y < first + n; ++y)
            rows.hold(times->plane + ptrdiff_t{y} * working.width, most, &least, &greatest, working.width);
        widen(low, least, false);
        widen(high, greatest, true);
    });
    times->low = std::min(low.load(), high.load());
    times->high = high.load();
}

void find_times(Node* node, bool warn, Times* times) {
    const Node* const frame = node->args[arg_frame];
    const int64_t end = static_cast<int64_t>(last_clip_frame()) << fix_bits;
    const int32_t most = static_cast<int32_t>(std::min<int64_t>(end, INT32_MAX - fix_scale));
    times->mixed = node->arg_vals[arg_interp][0] > 0;
    if (is_constant(frame)) {
        times->plane = nullptr;
        times->low = times->high = std::clamp(node->arg_vals[arg_frame][0], 0, most);
        return;
    }
    if (warn) V_error(level_warning, "Warning: for %s frame is not constant.\n", node->fun_info->name);
    const rinfo& working = the_frame->temp_raster_info;
    the_frame->eval_long_image = spark_set_long_image(working.width, working.height);
    eval_node_tree_into_long_image(node->args[arg_frame]);
    times->plane = the_frame->eval_long_image;
    find_range(times, most);
}

// Marks the frames that any pixel wants, from the first on. The caller frees it. Null: all are wanted.
uint8_t* mark_frames(const Times& times) {
    const rinfo& working = the_frame->temp_raster_info;
    const int first = first_frame(times), count = last_frame(times) - first + 1;
    if (!times.plane || count <= 2) return nullptr;
    auto* const wanted = frame_array<uint8_t>(static_cast<size_t>(count));
    std::memset(wanted, 0, static_cast<size_t>(count));
    const auto mark = [wanted, first](int32_t frame) {
        std::atomic_ref<uint8_t> flag(wanted[frame - first]);
        if (!flag.load(std::memory_order_relaxed)) flag.store(1, std::memory_order_relaxed);
    };
    const size_t width = static_cast<size_t>(working.width);
    fork_rows(working.height, [&](int first_row, int n) {
        const int32_t* const at = times.plane + static_cast<size_t>(first_row) * width;
        for (size_t i = 0; i < static_cast<size_t>(n) * width; ++i) {
            mark(at[i] >> fix_bits);
            if (times.mixed) mark((at[i] + fix_scale - 1) >> fix_bits);
        }
    });
    return wanted;
}

// One frame of the clip on its way into the node's planes.
struct Taking {
    const rinfo* source;
    const void* memory;
    int32_t frame;
    const Times* times;
    Node* node;
    int channels;  // planes that the clip fills
};

void take_block(const Taking& job, const int32_t* samples, FixPixel* out, ptrdiff_t at, int n) {
    const TimeRows& rows = time_row_functions();
    const Times& times = *job.times;
    if (!times.plane && job.frame == times.low >> fix_bits)
        line_rows().line_to_samples(samples, out, n, fix_image_limit);
    else if (!times.plane)
        rows.mix(samples, times.low & (fix_scale - 1), out, n);
    else if (times.mixed)
        rows.take_or_mix(samples, times.plane + at, job.frame, out, n);
    else
        rows.take(samples, times.plane + at, job.frame, out, n);
}

void take_rows(const Taking& job, int first, int n) {
    const rinfo& working = the_frame->temp_raster_info;
    const int step = std::max(working.render_step, 1);
    alignas(64) int32_t samples[2][3][block_samples];
    int32_t* const lines[3] = {samples[0][0], samples[0][1], samples[0][2]};
    int32_t* const spare[3] = {samples[1][0], samples[1][1], samples[1][2]};
    for (int y = first; y < first + n; ++y) {
        if (y % rows_between_polls == 0 && poll_abort()) return;
        for (int x = 0; x < working.width; x += block_samples) {
            const int count = std::min(block_samples, working.width - x);
            const ptrdiff_t at = ptrdiff_t{y} * working.width + x;
            read_source_line_of_field(*job.source, job.memory, working.y / step + y, working.x / step + x, count, lines,
                                      spare, 3, use_input_lut != 0);
            for (int c = 0; c < job.channels; ++c) take_block(job, lines[c], job.node->images[c] + at, at, count);
        }
    }
}

void take_frame(const Taking& job) {
    const rinfo& working = the_frame->temp_raster_info;
    const bool as_it_is = !job.times->plane && job.frame == first_frame(*job.times);
    if (as_it_is && job.channels == 3 && !the_frame->render_field)
        source_converter(*job.source, job.memory, working, job.node->images, 3, use_input_lut != 0);
    else
        fork_rows(working.height, [&](int first, int n) { take_rows(job, first, n); });
}

void take_frames(Node* node, int clip, const Times& times, const FrameBuffer& buffer) {
    uint8_t* const wanted = mark_frames(times);
    const int first = first_frame(times), last = last_frame(times);
    Taking job = {&the_frame->source_raster_infos[clip], buffer.memory, first, &times, node,
                  std::min<int>(node->elnum, 3)};
    for (int f = first; f <= last; ++f) {
        if (wanted && !wanted[f - first]) continue;
        if (!get_spark_frame(clip, f, buffer)) break;
        job.frame = f;
        take_frame(job);
    }
    frame_free(wanted);
}

// A clip has no alpha: it is opaque.
void fill_alpha(const Node* node) {
    const rinfo& working = the_frame->temp_raster_info;
    if (node->elnum == 4)
        fill_samples(node->images[3], fix_scale,
                     static_cast<size_t>(working.width) * static_cast<size_t>(working.height));
}

void read_clip_at_times(Node* node, bool warn) {
    if (!clip_args_p(node)) {
        fail_frame();
        return;
    }
    Times times;
    find_times(node, warn, &times);
    if (render_aborted_p() || the_frame->failed) return;
    FrameBuffer buffer;
    if (!get_frame_buffer(&buffer)) return;
    take_frames(node, clip_number(node, arg_clip), times, buffer);
    fill_alpha(node);
    the_frame->eval_long_image = nullptr;
    release_frame_buffer(buffer);
}

}  // namespace

void image_time_warp(Node* node) { read_clip_at_times(node, false); }
void image_get_frame(Node* node) { read_clip_at_times(node, true); }

}  // namespace velloran
