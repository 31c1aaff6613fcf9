// Rows first, from the plane into the long image, then columns out of it: one read and one write of the accumulators.
// The last direction writes the scaled result; a blur along one axis alone never touches the long image.
#include "operators/blur/blur_image.h"

#include "frame/host_buffers.h"
#include "operators/blur/blur_plan.h"
#include "operators/blur/boxes/box_lines.h"
#include "operators/blur/boxes/box_sums.h"
#include "support/errors.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cstring>

namespace velloran {

int32_t* long_image;
int32_t long_image_scale = fix_scale;
int long_image_width, long_image_height;

namespace {

// Passes as the row functions take them: those of radius 0 fall out, their shifts go to the neighbour.
// A box is never wider than the line and its mirror image; only lines of a part of the frame come near that, far from
// what is asked of them.
BoxLines make_lines(const blur_plan& plan, int n, int passes, int edge_mode) {
    BoxLines lines = {};
    lines.n = n;
    lines.mirror = edge_mode != blur_edge_black;
    int* shift = &lines.first_shift;
    for (int i = 0; i < passes; ++i) {
        *shift += plan.pre_shift[i];
        if (plan.hi_radius[i] == 0 || n < 2) continue;
        BoxPass& pass = lines.passes[lines.n_passes++];
        pass = {std::min(plan.lo_radius[i], n - 1), std::min(plan.hi_radius[i], n - 1), 0, plan.lo_weight[i],
                plan.hi_weight};
        shift = &pass.shift_after;
    }
    return lines;
}

bool idle(const BoxLines& lines) { return lines.n_passes == 0 && lines.first_shift == 0; }

// Images of so many samples do not stay in the caches until they are read again.
constexpr ptrdiff_t streamed_samples = ptrdiff_t{4} << 20;

// Row functions want whole cache lines; forked buffers begin at multiples of 16 bytes.
constexpr size_t line_bytes = 64;

// Scratch of the row functions, for each task.
struct LineScratch {
    size_t bytes;
    int32_t* of_task() const {
        const auto at = reinterpret_cast<uintptr_t>(get_forked_buffer(0, bytes));
        return reinterpret_cast<int32_t*>((at + line_bytes - 1) & ~(line_bytes - 1));
    }
};

LineScratch reserve_scratch(const BoxLines& lines, int lanes) {
    const LineScratch scratch = {box_lines_scratch(lines, lanes) + line_bytes};
    maybe_malloc_forked_buffers(scratch.bytes, 1);
    return scratch;
}

void reserve_long_image(int width, int height) {
    long_image = spark_set_long_image(width, height);
    long_image_width = width;
    long_image_height = height;
}

// The two directions of a blur, planned.
struct BlurJob {
    bool x, y;  // the direction has work
    BoxLines x_lines, y_lines;
    BoxLines y_odd_lines;  // on fields: the odd rows
};

BlurJob plan_blur(const BlurSettings& blur, const FilterFrame& frame) {
    BlurJob job = {};
    const int passes = clamp_passes(blur.passes), height = frame.height;
    long_image_scale = fix_scale;
    if (blur.x_radius >= 1) {
        const blur_plan plan =
            make_blur_plan(blur.x_radius, frame.widest(), passes, blur.subpixel, long_image_bits, &long_image_scale);
        job.x_lines = make_lines(plan, frame.width, passes, blur.edge_mode);
        job.x = !idle(job.x_lines);
    }
    const int32_t y_radius = frame.fields ? blur.y_radius >> 1 : blur.y_radius;
    if (y_radius > 0) {
        const int whole = frame.fields ? frame.highest() >> 1 : frame.highest();
        const blur_plan plan =
            make_blur_plan(y_radius, whole, passes, blur.subpixel, long_image_bits, &long_image_scale);
        const int odd_height = height >> 1;
        job.y_lines = make_lines(plan, frame.fields ? height - odd_height : height, passes, blur.edge_mode);
        job.y_odd_lines = make_lines(plan, odd_height, passes, blur.edge_mode);
        job.y = !idle(job.y_lines);
    }
    if (!job.x) job.x_lines.n = frame.width;  // with nothing to do rows are copied
    return job;
}

void run_rows(const BoxLines& lines, const BoxSource& source, const BoxSink& sink, int height) {
    const BoxLinesFunction work = box_rows_function(lines);
    const LineScratch scratch = reserve_scratch(lines, row_lanes);
    fork_rows(height, [&](int first, int count) {
        int32_t* const own = scratch.of_task();
        for (int y = first; y < first + count; y += row_lanes) {
            if (poll_abort()) return;
            BoxSource from = source;
            BoxSink to = sink;
            if (from.plane) from.plane += y * from.pitch;
            if (from.long_image) from.long_image += y * from.pitch;
            if (to.stripe_height)
                to.stripe_row = y;
            else if (to.long_image)
                to.long_image += y * to.pitch;
            if (to.plane) to.plane += y * to.pitch;
            work(lines, from, to, std::min(row_lanes, first + count - y), own);
        }
    });
}

// stripes: the source is an image in stripes.
void run_columns(const BlurJob& job, const BoxSource& source, bool stripes, const BoxSink& sink,
                 const FilterFrame& frame) {
    const BoxLinesFunction work = box_columns_function(job.y_lines, source, sink);
    const LineScratch scratch = reserve_scratch(job.y_lines, column_lanes);
    // Tasks take whole groups, which are the stripes of an image in stripes.
    constexpr int unit = column_lanes;
    fork_rows((frame.width + unit - 1) / unit, [&](int first, int count) {
        int32_t* const own = scratch.of_task();
        const int end = std::min((first + count) * unit, frame.width);
        for (int x = first * unit; x < end; x += unit) {
            if (poll_abort()) return;
            const int columns = std::min(unit, end - x);
            for (int field = 0; field <= (frame.fields ? 1 : 0); ++field) {
                const BoxLines& lines = field ? job.y_odd_lines : job.y_lines;
                if (lines.n < 1) continue;
                BoxSource from = source;
                BoxSink to = sink;
                if (from.plane) from.plane += field * from.pitch + x;
                if (stripes) {
                    from.pitch = columns;
                    from.long_image += ptrdiff_t{x} * frame.height + field * from.pitch;
                } else if (from.long_image) {
                    from.long_image += field * from.pitch + x;
                }
                if (to.plane) to.plane += field * to.pitch + x;
                if (to.long_image) to.long_image += field * to.pitch + x;
                if (frame.fields) {
                    from.pitch *= 2;
                    to.pitch *= 2;
                }
                work(lines, from, to, columns, own);
            }
        }
    });
}

// The shift between the directions: rows write each sample once, columns may read it several times.
void move_first_shift(BlurJob& job) {
    BoxLines& x = job.x_lines;
    (x.n_passes > 0 ? x.passes[x.n_passes - 1].shift_after : x.first_shift) += job.y_lines.first_shift;
    job.y_lines.first_shift = job.y_odd_lines.first_shift = 0;
}

// Both directions; the result goes to the long image, or scaled by gain to dest.
void run_blur(BlurJob job, const FixPixel* source, FixPixel* dest, int32_t gain, const FilterFrame& frame) {
    const int width = frame.width, height = frame.height;
    const BoxSource from_plane = {source, nullptr, width};
    const bool streamed = ptrdiff_t{width} * height >= streamed_samples;
    BoxSink last = {nullptr, dest, width, 0.0f, 0, 0, streamed};
    if (dest) last.factor = (static_cast<float>(gain) / 4096.0f) / (static_cast<float>(long_image_scale) / 4096.0f);
    const bool through_long_image = !dest || (job.x && job.y);
    if (through_long_image) reserve_long_image(width, height);
    if (!dest) last = {long_image, nullptr, width, 0.0f, 0, 0, false};
    if (!job.y) {
        run_rows(job.x_lines, from_plane, last, height);
        return;
    }
    if (!job.x) {
        run_columns(job, from_plane, false, last, frame);
        return;
    }
    // Stripes are for columns that end elsewhere; what stays in the long image lies there row after row.
    const bool stripes = dest != nullptr;
    move_first_shift(job);
    run_rows(job.x_lines, from_plane, {long_image, nullptr, width, 0.0f, stripes ? height : 0, 0, false}, height);
    if (poll_abort()) return;
    run_columns(job, {nullptr, long_image, width}, stripes, last, frame);
}

}  // namespace

void blur_into_long_image(const FixPixel* source, const BlurSettings& blur, const FilterFrame& frame) {
    run_blur(plan_blur(blur, frame), source, nullptr, 0, frame);
}

void blur_image(const FixPixel* source, FixPixel* dest, const BlurSettings& blur, const FilterFrame& frame) {
    if (poll_abort()) return;
    if (blur.gain == 0) {
        mp_memset(dest, 0, frame.bytes());
        return;
    }
    if (blur.x_radius < 1 && blur.y_radius < 1) {
        if (blur.gain != fix_scale)
            scale_fix_image(source, dest, blur.gain, frame.width, frame.height);
        else if (source != dest)
            mp_memcpy(dest, source, frame.bytes());
        return;
    }
    run_blur(plan_blur(blur, frame), source, dest, blur.gain, frame);
}

void scale_fix_image(const FixPixel* source, FixPixel* dest, int32_t gain, int width, int height) {
    fork_rows_if_big_image(width, height, [&](int first, int count) {
        const ptrdiff_t at = ptrdiff_t{first} * width, n = ptrdiff_t{count} * width;
        const FixPixel* in = source + at;
        FixPixel* out = dest + at;
        for (ptrdiff_t i = 0; i < n; ++i) out[i] = clip_to_image(fix_mul(in[i], gain));
    });
}

void scale_long_image(int32_t gain) {
    if (!long_image) return;
    const int width = long_image_width, height = long_image_height;
    if (gain == 0) {
        mp_memset(long_image, 0, static_cast<size_t>(width) * static_cast<size_t>(height) * sizeof(int32_t));
        return;
    }
    if (gain == long_image_scale && gain == fix_scale) return;
    const float factor = static_cast<float>(gain) / static_cast<float>(long_image_scale);
    fork_rows_if_big_image(width, height, [&](int first, int count) {
        int32_t* const at = long_image + ptrdiff_t{first} * width;
        for (ptrdiff_t i = 0; i < ptrdiff_t{count} * width; ++i) {
            const float v = std::clamp(static_cast<float>(at[i]) * factor, -2147483648.0f, 2147483520.0f);
            at[i] = static_cast<int32_t>(v);
        }
    });
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
