// Rows first, from the plane into the long image, then columns out of it: one read and one write of the accumulators.
// The last direction writes the scaled result; a blur along one axis alone never touches the long image.
#include "operators/blur/blur.h"

#include "frame/host_buffers.h"
#include "operators/blur/blur_plan.h"
#include "operators/blur/boxes/box_lines.h"
#include "operators/blur/boxes/box_sums.h"
#include "support/errors.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"

#include <algorithm>
#include <cstring>

namespace velloran {

int32_t* long_image;
int32_t long_image_scale = fix_scale;
int long_image_width, long_image_height;

namespace {

// ---- arguments of the forks ----
BoxLinesFunction fork_function;
BoxLines fork_lines;
BoxLines fork_odd_lines;  // per field: the odd rows
bool fork_per_field;
bool fork_from_stripes;  // columns come from an image in stripes
BoxSource fork_source;
BoxSink fork_sink;
int fork_width, fork_height;
size_t fork_scratch;
const FixPixel* fork_fix_source;
FixPixel* fork_fix_dest;
int32_t fork_gain;

// Passes as the row functions take them: those of radius 0 fall out, their shifts go to the neighbour.
BoxLines make_lines(const blur_plan& plan, int n, int passes, int edge_mode) {
    BoxLines lines = {};
    lines.n = n;
    lines.mirror = edge_mode != blur_edge_black;
    int* shift = &lines.first_shift;
    for (int i = 0; i < passes; ++i) {
        *shift += plan.pre_shift[i];
        if (plan.hi_radius[i] == 0) continue;
        BoxPass& pass = lines.passes[lines.n_passes++];
        pass = {plan.lo_radius[i], plan.hi_radius[i], 0, plan.lo_weight[i], plan.hi_weight};
        shift = &pass.shift_after;
    }
    return lines;
}

bool idle(const BoxLines& lines) { return lines.n_passes == 0 && lines.first_shift == 0; }

// Images of so many samples do not stay in the caches until they are read again.
constexpr ptrdiff_t streamed_samples = ptrdiff_t{4} << 20;

// Row functions want whole cache lines; forked buffers begin at multiples of 16 bytes.
constexpr size_t line_bytes = 64;

void reserve_scratch(const BoxLines& lines, int lanes) {
    fork_scratch = box_lines_scratch(lines, lanes) + line_bytes;
    maybe_malloc_forked_buffers(fork_scratch, 1);
}

int32_t* scratch_of_task() {
    const auto at = reinterpret_cast<uintptr_t>(get_forked_buffer(0, fork_scratch));
    return reinterpret_cast<int32_t*>((at + line_bytes - 1) & ~(line_bytes - 1));
}

void forked_blur_rows() {
    int first, count;
    get_proc_stripe(fork_height, &first, &count);
    int32_t* scratch = scratch_of_task();
    for (int y = first; y < first + count; y += row_lanes) {
        if (poll_abort()) return;
        const ptrdiff_t at = y * fork_source.pitch;
        BoxSource source = fork_source;
        BoxSink sink = fork_sink;
        if (source.plane) source.plane += at;
        if (source.long_image) source.long_image += at;
        if (sink.stripe_height)
            sink.stripe_row = y;
        else if (sink.long_image)
            sink.long_image += y * sink.pitch;
        if (sink.plane) sink.plane += y * sink.pitch;
        fork_function(fork_lines, source, sink, std::min(row_lanes, first + count - y), scratch);
    }
}

void forked_blur_columns() {
    // Tasks take whole groups, which are the stripes of an image in stripes.
    constexpr int unit = column_lanes;
    int first, count;
    get_proc_stripe((fork_width + unit - 1) / unit, &first, &count);
    int32_t* scratch = scratch_of_task();
    const int end = std::min((first + count) * unit, fork_width);
    for (int x = first * unit; x < end; x += unit) {
        if (poll_abort()) return;
        const int columns = std::min(unit, end - x);
        for (int field = 0; field <= (fork_per_field ? 1 : 0); ++field) {
            const BoxLines& lines = field ? fork_odd_lines : fork_lines;
            if (lines.n < 1) continue;
            BoxSource source = fork_source;
            BoxSink sink = fork_sink;
            if (source.plane) source.plane += field * source.pitch + x;
            if (fork_from_stripes) {
                source.pitch = columns;
                source.long_image += ptrdiff_t{x} * fork_height + field * source.pitch;
            } else if (source.long_image) {
                source.long_image += field * source.pitch + x;
            }
            if (sink.plane) sink.plane += field * sink.pitch + x;
            if (sink.long_image) sink.long_image += field * sink.pitch + x;
            if (fork_per_field) {
                source.pitch *= 2;
                sink.pitch *= 2;
            }
            fork_function(lines, source, sink, columns, scratch);
        }
    }
}

void forked_scale_long_image() {
    int first, count;
    get_proc_stripe(fork_height, &first, &count);
    const ptrdiff_t at = ptrdiff_t{first} * fork_width;
    const ptrdiff_t n = ptrdiff_t{count} * fork_width;
    const float factor = fork_sink.factor;
    for (ptrdiff_t i = at; i < at + n; ++i) {
        const float v = std::clamp(static_cast<float>(long_image[i]) * factor, -2147483648.0f, 2147483520.0f);
        long_image[i] = static_cast<int32_t>(v);
    }
}

void forked_scale_fix_image() {
    int first, count;
    get_proc_stripe(fork_height, &first, &count);
    const ptrdiff_t at = ptrdiff_t{first} * fork_width, n = ptrdiff_t{count} * fork_width;
    const FixPixel* in = fork_fix_source + at;
    FixPixel* out = fork_fix_dest + at;
    const int32_t gain = fork_gain;
    for (ptrdiff_t i = 0; i < n; ++i) out[i] = clip_to_image(fix_mul(in[i], gain));
}

void reserve_long_image(int width, int height) {
    long_image = spark_set_long_image(width, height);
    long_image_width = width;
    long_image_height = height;
}

// The two directions of a blur, planned.
struct BlurJob {
    bool x, y;  // the direction has work
    BoxLines x_lines, y_lines, y_odd_lines;
};

BlurJob plan_blur(int32_t x_radius, int32_t y_radius, int edge_mode, int passes, bool subpixel, bool per_field,
                  int width, int height) {
    BlurJob job = {};
    long_image_scale = fix_scale;
    if (x_radius >= 1) {
        const blur_plan plan = make_blur_plan(x_radius, width, passes, subpixel, long_image_bits, &long_image_scale);
        job.x_lines = make_lines(plan, width, passes, edge_mode);
        job.x = !idle(job.x_lines);
    }
    if (per_field) y_radius >>= 1;
    if (y_radius > 0) {
        const int odd_height = height >> 1, lines_height = per_field ? odd_height : height;
        const blur_plan plan =
            make_blur_plan(y_radius, lines_height, passes, subpixel, long_image_bits, &long_image_scale);
        job.y_lines = make_lines(plan, per_field ? height - odd_height : height, passes, edge_mode);
        job.y_odd_lines = make_lines(plan, odd_height, passes, edge_mode);
        job.y = !idle(job.y_lines);
    }
    return job;
}

void run_rows(const BoxLines& lines, const BoxSource& source, const BoxSink& sink, int width, int height) {
    fork_function = box_rows_function(lines);
    fork_lines = lines;
    fork_source = source;
    fork_sink = sink;
    fork_width = width;
    fork_height = height;
    reserve_scratch(lines, row_lanes);
    fork_processes(forked_blur_rows);
}

void run_columns(const BlurJob& job, const BoxSource& source, bool stripes, const BoxSink& sink, bool per_field,
                 int width, int height) {
    fork_from_stripes = stripes;
    fork_function = box_columns_function(job.y_lines, source, sink);
    fork_lines = job.y_lines;
    fork_odd_lines = job.y_odd_lines;
    fork_per_field = per_field;
    fork_source = source;
    fork_sink = sink;
    fork_width = width;
    fork_height = height;
    reserve_scratch(job.y_lines, column_lanes);
    fork_processes(forked_blur_columns);
}

// The shift between the directions: rows write each sample once, columns may read it several times.
void move_first_shift(BlurJob& job) {
    BoxLines& x = job.x_lines;
    (x.n_passes > 0 ? x.passes[x.n_passes - 1].shift_after : x.first_shift) += job.y_lines.first_shift;
    job.y_lines.first_shift = job.y_odd_lines.first_shift = 0;
}

// Both directions; the result goes to the long image, or scaled by gain to dest.
void run_blur(BlurJob job, const FixPixel* source, FixPixel* dest, int32_t gain, bool per_field, int width,
              int height) {
    const BoxSource from_plane = {source, nullptr, width};
    const bool streamed = ptrdiff_t{width} * height >= streamed_samples;
    BoxSink last = {nullptr, dest, width, 0.0f, 0, 0, streamed};
    if (dest) last.factor = (static_cast<float>(gain) / 4096.0f) / (static_cast<float>(long_image_scale) / 4096.0f);
    const bool through_long_image = !dest || (job.x && job.y);
    if (through_long_image) reserve_long_image(width, height);
    if (!dest) last = {long_image, nullptr, width, 0.0f, 0, 0, false};
    if (!job.y) {
        const BoxLines& lines = job.x_lines;
        run_rows(lines, from_plane, last, width, height);
        return;
    }
    if (!job.x) {
        run_columns(job, from_plane, false, last, per_field, width, height);
        return;
    }
    // Stripes are for columns that end elsewhere; what stays in the long image lies there row after row.
    const bool stripes = dest != nullptr;
    move_first_shift(job);
    run_rows(job.x_lines, from_plane, {long_image, nullptr, width, 0.0f, stripes ? height : 0, 0, false}, width,
             height);
    if (poll_abort()) return;
    run_columns(job, {nullptr, long_image, width}, stripes, last, per_field, width, height);
}

}  // namespace

void blur_into_long_image(const FixPixel* source, int32_t x_radius, int32_t y_radius, int edge_mode, int passes,
                          bool subpixel, bool per_field, int width, int height) {
    passes = clamp_passes(passes);
    BlurJob job = plan_blur(x_radius, y_radius, edge_mode, passes, subpixel, per_field, width, height);
    if (!job.x) job.x_lines.n = width;  // with nothing to do rows are copied
    run_blur(job, source, nullptr, 0, per_field, width, height);
}

void blur_image(const FixPixel* source, FixPixel* dest, int32_t x_radius, int32_t y_radius, int edge_mode, int passes,
                int32_t gain, bool subpixel, bool per_field, int width, int height) {
    if (poll_abort()) return;
    const size_t bytes = static_cast<size_t>(width) * static_cast<size_t>(height) * sizeof(FixPixel);
    if (gain == 0) {
        mp_memset(dest, 0, bytes);
        return;
    }
    if (x_radius < 1 && y_radius < 1) {
        if (gain != fix_scale)
            scale_fix_image(source, dest, gain, width, height);
        else if (source != dest)
            mp_memcpy(dest, source, bytes);
        return;
    }
    passes = clamp_passes(passes);
    BlurJob job = plan_blur(x_radius, y_radius, edge_mode, passes, subpixel, per_field, width, height);
    if (!job.x) job.x_lines.n = width;
    run_blur(job, source, dest, gain, per_field, width, height);
}

void scale_fix_image(const FixPixel* source, FixPixel* dest, int32_t gain, int width, int height) {
    fork_fix_source = source;
    fork_fix_dest = dest;
    fork_gain = gain;
    fork_width = width;
    fork_height = height;
    fork_if_big_image(forked_scale_fix_image, width, height);
}

void scale_long_image(int32_t gain) {
    if (!long_image) return;
    if (gain == 0) {
        mp_memset(long_image, 0, static_cast<size_t>(long_image_width) * static_cast<size_t>(long_image_height) * 4);
        return;
    }
    if (gain == long_image_scale && gain == fix_scale) return;
    fork_sink.factor = static_cast<float>(gain) / static_cast<float>(long_image_scale);
    fork_width = long_image_width;
    fork_height = long_image_height;
    fork_if_big_image(forked_scale_long_image, fork_width, fork_height);
    long_image_scale = gain;
}

void fill_edge_weight_table(int32_t* a, int32_t* b, const int32_t* radii, int n_passes, int n) {
    V_error(level_error, "fill_edge_weight_table: not done, needs shift.");
    int32_t *in = n_passes & 1 ? b : a, *out = n_passes & 1 ? a : b;
    std::fill(in, in + n, 1);
    for (int i = 0; i < n_passes; ++i) {
        box_sum_black(in, out, radii[i], n);
        std::swap(in, out);
    }
}

void set_shift_and_weight_for_divide(int* shift, int32_t* weight, int32_t numerator, int32_t scale) {
    if (scale == 0) V_error(level_error, "Warning set_shift_and_weight_for_divide has scale = 0.");
    *shift = std::max(0, long_image_bits - bit_count(static_cast<uint32_t>(numerator)));
    const int32_t shifted = static_cast<int32_t>(static_cast<uint32_t>(numerator) << *shift);
    // A division by 0 is what the caller asked for; it gives the weight that follows, instead of a trap.
    *weight = scale == 0 ? 0 : shifted / scale;
    if (*weight == 0) *weight = scale > 0 ? 1 : -1;
}

}  // namespace velloran
