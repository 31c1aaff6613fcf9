// Every line is gathered into a buffer of the task, filtered there, and written back.
#include "operators/blur/blur_variants.h"

#include "operators/blur/blur.h"
#include "operators/blur/blur_plan.h"
#include "operators/blur/boxes/box_sums.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"

#include <algorithm>
#include <utility>

namespace velloran {

namespace {

const FixPixel* fork_source;
FixPixel* fork_dest;
int fork_width, fork_height, fork_direction, fork_passes, fork_edge_mode, fork_bias;
int32_t fork_radius;
int fork_longest;
int fork_size;  // that radii are held to along rows and columns

struct LinePlan {
    blur_plan plan;
    int32_t scale;  // product of the widths, less the shifts
};

LinePlan plan_for(int size, int length) {
    LinePlan p;
    p.scale = 1;
    p.plan = make_blur_plan(fork_radius, size, fork_passes, false, short_plan_bits, &p.scale);
    if (length >= size) return p;
    p.scale = 1;
    for (int i = 0; i < fork_passes; ++i) {
        int32_t& r = p.plan.hi_radius[i];
        r = p.plan.lo_radius[i] = std::min(r, std::max((length - 1) >> 1, 0));
        const uint32_t w = static_cast<uint32_t>(2 * r + 1);
        p.plan.pre_shift[i] = std::max(0, bit_count(static_cast<uint32_t>(p.scale)) + bit_count(w) - short_plan_bits);
        p.scale = (p.scale >> p.plan.pre_shift[i]) * (2 * r + 1);
    }
    return p;
}

// n samples from index at on, step apart.
void filter_line(ptrdiff_t at, ptrdiff_t step, int n, const LinePlan& p) {
    const size_t bytes = static_cast<size_t>(fork_longest) * sizeof(int32_t);
    auto* a = static_cast<int32_t*>(get_forked_buffer(0, bytes));
    auto* b = static_cast<int32_t*>(get_forked_buffer(1, bytes));
    for (int i = 0; i < n; ++i) a[i] = fork_source[at + i * step];
    for (int pass = 0; pass < fork_passes; ++pass) {
        const int shift = p.plan.pre_shift[pass], r = p.plan.hi_radius[pass];
        if (shift)
            for (int i = 0; i < n; ++i) a[i] >>= shift;
        if (r < 1) continue;
        if (fork_edge_mode == blur_edge_black)
            box_sum_black(a, b, r, n);
        else
            box_sum_mirror(a, b, r, n);
        std::swap(a, b);
    }
    if (fork_bias) {
        box_offset(a, b, fork_bias, n);
        std::swap(a, b);
    }
    const float factor = 1.0f / static_cast<float>(p.scale);
    for (int i = 0; i < n; ++i)
        fork_dest[at + i * step] =
            static_cast<FixPixel>(std::clamp(static_cast<float>(a[i]) * factor, -32767.0f, 32767.0f));
}

void forked_lines() {
    const bool rows = fork_direction == 0;
    const int n = rows ? fork_width : fork_height;
    const LinePlan plan = plan_for(fork_size, n);
    int first, count;
    get_proc_stripe(rows ? fork_height : fork_width, &first, &count);
    for (int k = first; k < first + count; ++k) {
        if ((k & 63) == 0 && poll_abort()) return;
        filter_line(rows ? ptrdiff_t{k} * fork_width : k, rows ? 1 : fork_width, n, plan);
    }
}

constexpr int shortest_diagonal = 3;

void forked_diagonals() {
    const int w = fork_width, h = fork_height, size = std::min(w, h);
    const LinePlan full = plan_for(size, size);
    int first, count;
    get_proc_stripe(w + h - 2 * shortest_diagonal + 1, &first, &count);
    const bool right = fork_direction == 2;
    for (int k = first; k < first + count; ++k) {
        if ((k & 63) == 0 && poll_abort()) return;
        // Diagonal d begins on the left or right side and goes on along the bottom.
        const int d = k + shortest_diagonal - 1;
        const int y = std::max(h - 1 - d, 0), x = std::max(d - (h - 1), 0);
        const int n = std::min(w - x, h - y);
        const ptrdiff_t at = ptrdiff_t{y} * w + (right ? x : w - 1 - x);
        filter_line(at, right ? w + 1 : w - 1, n, n == size ? full : plan_for(size, n));
    }
}

void run_lines(const FixPixel* source, FixPixel* dest, int direction, int32_t radius, int32_t bias, int edge_mode,
               int passes, int size, int width, int height) {
    fork_source = source;
    fork_dest = dest;
    fork_direction = direction;
    fork_radius = radius;
    fork_bias = bias >> fix_bits;
    fork_edge_mode = edge_mode;
    fork_passes = clamp_passes(passes);
    fork_size = size;
    fork_width = width;
    fork_height = height;
    fork_longest = std::max(width, height);
    maybe_malloc_forked_buffers(static_cast<size_t>(fork_longest) * sizeof(int32_t), 2);
    fork_processes(direction < 2 ? forked_lines : forked_diagonals);
}

}  // namespace

void blur_rows_fix(FixPixel* plane, int32_t radius, int32_t bias, int edge_mode, int passes, int width, int height) {
    run_lines(plane, plane, 0, radius, bias, edge_mode, passes, width, width, height);
}

void blur_columns_fix(FixPixel* plane, int32_t radius, int32_t bias, int edge_mode, int passes, int width, int height) {
    run_lines(plane, plane, 1, radius, bias, edge_mode, passes, height, width, height);
}

void blur_diagonal(const FixPixel* source, FixPixel* dest, int direction_bits, int32_t radius, int32_t bias, int width,
                   int height) {
    direction_bits &= 3;
    if (direction_bits & 2) {
        if (source != dest)
            mp_memcpy(dest, source, static_cast<size_t>(width) * static_cast<size_t>(height) * sizeof(FixPixel));
        if (std::min(width, height) < shortest_diagonal) return;
    }
    run_lines(source, dest, direction_bits, radius, bias, blur_edge_black, max_blur_passes, std::min(width, height),
              width, height);
}

}  // namespace velloran
