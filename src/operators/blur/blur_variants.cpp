// Every line is gathered into a buffer of the task, filtered there, and written back.
#include "operators/blur/blur_variants.h"

#include "operators/blur/blur_plan.h"
#include "operators/blur/boxes/box_sums.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <utility>

namespace velloran {

namespace {

struct LinePlan {
    blur_plan plan;
    int32_t scale;  // product of the widths, less the shifts
};

struct LineJob {
    const FixPixel* source;
    FixPixel* dest;
    LineBlurSettings blur;
    int passes;
    int width, height;
    int size;             // that radii are held to
    size_t buffer_bytes;  // of one line
};

// For lines of `length` samples: those shorter than size take smaller boxes.
LinePlan plan_for(const LineJob& job, int length) {
    LinePlan p;
    p.scale = 1;
    p.plan = make_blur_plan(job.blur.radius, job.size, job.passes, false, short_plan_bits, &p.scale);
    if (length >= job.size) return p;
    p.scale = 1;
    for (int i = 0; i < job.passes; ++i) {
        int32_t& r = p.plan.hi_radius[i];
        r = p.plan.lo_radius[i] = std::min(r, std::max((length - 1) >> 1, 0));
        const uint32_t w = static_cast<uint32_t>(2 * r + 1);
        p.plan.pre_shift[i] = std::max(0, bit_count(static_cast<uint32_t>(p.scale)) + bit_count(w) - short_plan_bits);
        p.scale = (p.scale >> p.plan.pre_shift[i]) * (2 * r + 1);
    }
    return p;
}

// n samples from index at on, step apart.
void filter_line(const LineJob& job, ptrdiff_t at, ptrdiff_t step, int n, const LinePlan& p) {
    auto* a = static_cast<int32_t*>(get_forked_buffer(0, job.buffer_bytes));
    auto* b = static_cast<int32_t*>(get_forked_buffer(1, job.buffer_bytes));
    for (int i = 0; i < n; ++i) a[i] = job.source[at + i * step];
    for (int pass = 0; pass < job.passes; ++pass) {
        // A line of a part of the frame may be shorter than a box.
        const int shift = p.plan.pre_shift[pass], r = std::min(p.plan.hi_radius[pass], n - 1);
        if (shift)
            for (int i = 0; i < n; ++i) a[i] >>= shift;
        if (r < 1) continue;
        if (job.blur.edge_mode == blur_edge_black)
            box_sum_black(a, b, r, n);
        else
            box_sum_mirror(a, b, r, n);
        std::swap(a, b);
    }
    if (const int offset = job.blur.bias >> fix_bits) {
        box_offset(a, b, offset, n);
        std::swap(a, b);
    }
    const float factor = 1.0f / static_cast<float>(p.scale);
    for (int i = 0; i < n; ++i)
        job.dest[at + i * step] =
            static_cast<FixPixel>(std::clamp(static_cast<float>(a[i]) * factor, -32767.0f, 32767.0f));
}

LineJob make_job(const FixPixel* source, FixPixel* dest, const LineBlurSettings& blur, int size, int width,
                 int height) {
    const size_t bytes = static_cast<size_t>(std::max(width, height)) * sizeof(int32_t);
    maybe_malloc_forked_buffers(bytes, 2);
    return {source, dest, blur, clamp_passes(blur.passes), width, height, size, bytes};
}

// count lines of n samples each, line_step apart; sample_step within a line.
void run_lines(const LineJob& job, const LinePlan& plan, int count, int n, ptrdiff_t line_step, ptrdiff_t sample_step) {
    fork_rows(count, [&](int first, int lines) {
        for (int k = first; k < first + lines; ++k) {
            if ((k & 63) == 0 && poll_abort()) return;
            filter_line(job, k * line_step, sample_step, n, plan);
        }
    });
}

void run_rows(const LineJob& job, const LinePlan& plan) { run_lines(job, plan, job.height, job.width, job.width, 1); }
void run_columns(const LineJob& job, const LinePlan& plan) {
    run_lines(job, plan, job.width, job.height, 1, job.width);
}

constexpr int shortest_diagonal = 3;

void run_diagonals(const LineJob& job, bool right) {
    const int w = job.width, h = job.height;
    const LinePlan full = plan_for(job, job.size);
    fork_rows(w + h - 2 * shortest_diagonal + 1, [&](int first, int count) {
        for (int k = first; k < first + count; ++k) {
            if ((k & 63) == 0 && poll_abort()) return;
            // Diagonal d begins on the left or right side and goes on along the bottom.
            const int d = k + shortest_diagonal - 1;
            const int y = std::max(h - 1 - d, 0), x = std::max(d - (h - 1), 0);
            const int n = std::min(w - x, h - y);
            const ptrdiff_t at = ptrdiff_t{y} * w + (right ? x : w - 1 - x);
            filter_line(job, at, right ? w + 1 : w - 1, n, n == job.size ? full : plan_for(job, n));
        }
    });
}

}  // namespace

void blur_rows_fix(FixPixel* plane, const LineBlurSettings& blur, const FilterFrame& frame) {
    const LineJob job = make_job(plane, plane, blur, frame.widest(), frame.width, frame.height);
    run_rows(job, plan_for(job, job.size));
}

void blur_columns_fix(FixPixel* plane, const LineBlurSettings& blur, const FilterFrame& frame) {
    const LineJob job = make_job(plane, plane, blur, frame.highest(), frame.width, frame.height);
    run_columns(job, plan_for(job, job.size));
}

void blur_diagonal(const FixPixel* source, FixPixel* dest, int direction_bits, int32_t radius, int32_t bias, int width,
                   int height) {
    direction_bits &= 3;
    const int shorter = std::min(width, height);
    if (direction_bits & 2) {
        if (source != dest)
            mp_memcpy(dest, source, static_cast<size_t>(width) * static_cast<size_t>(height) * sizeof(FixPixel));
        if (shorter < shortest_diagonal) return;
    }
    const LineBlurSettings blur = {radius, bias, blur_edge_black, max_blur_passes};
    const LineJob job = make_job(source, dest, blur, shorter, width, height);
    const LinePlan plan = plan_for(job, job.size);
    if (direction_bits == 0)
        run_rows(job, plan);
    else if (direction_bits == 1)
        run_columns(job, plan);
    else
        run_diagonals(job, direction_bits == 2);
}

}  // namespace velloran
