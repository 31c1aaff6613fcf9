// Kernels of few runs: with the running sums of the source's rows at hand, a run of any length costs two reads.
//
// The sums are integers, so their differences are exact. They are extended by what the kernel reaches beyond the crop,
// edges obeyed, and lie in the long image where that has room for them.
#include "frame/host_buffers.h"
#include "operators/convolve/convolve_parts.h"
#include "operators/convolve/convolve_rows.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>

namespace velloran {

namespace {

// What the runs of a kernel reach: samples before and behind a pixel, rows.
struct RunsReach {
    int before, behind, lowest, highest;
};

RunsReach reach_of(const KernelRun* runs, int n_runs) {
    RunsReach reach = {};
    for (int i = 0; i < n_runs; ++i) {
        const KernelRun& run = runs[i];
        reach.before = std::max(reach.before, run.first + run.length - 1);
        reach.behind = std::max(reach.behind, -run.first);
        reach.lowest = i ? std::min(reach.lowest, run.row) : run.row;
        reach.highest = i ? std::max(reach.highest, run.row) : run.row;
    }
    return reach;
}

struct RunningSums {
    int32_t* sums;          // [n_rows][pitch]
    int pitch;              // extended width + 1
    int first_row, n_rows;  // of the source, that are read
    int left;               // samples before the crop
    size_t buffer_bytes;    // of a task
};

RunningSums reserve_sums(const ConvolveJob& job, const RunsReach& reach) {
    const fft_info_t* info = job.info;
    RunningSums s = {};
    s.left = reach.before;
    s.pitch = reach.before + info->crop_w + reach.behind + 1;
    int first_row = info->image_h, last_row = -1;
    for (int y = info->crop_y - reach.highest; y < info->crop_y + info->crop_h - reach.lowest; ++y) {
        const int row = convolve_edge_index(y, job.area.y, job.area.h, info->edge_y);
        if (row < 0) continue;
        first_row = std::min(first_row, row);
        last_row = std::max(last_row, row);
    }
    s.first_row = first_row;
    s.n_rows = std::max(last_row - first_row + 1, 0);
    s.sums = spark_set_long_image(s.pitch, std::max(s.n_rows, 1));
    s.buffer_bytes = std::max(static_cast<size_t>(info->image_w + s.pitch) * sizeof(FixPixel),
                              static_cast<size_t>(info->crop_w) * sizeof(float));
    maybe_malloc_forked_buffers(s.buffer_bytes, 1);
    return s;
}

void fill_sums(const ConvolveJob& job, const RunningSums& s) {
    const fft_info_t* info = job.info;
    fork_rows(s.n_rows, [&](int first, int count) {
        auto* buffer = static_cast<FixPixel*>(get_forked_buffer(0, s.buffer_bytes));
        FixPixel* line = buffer + info->image_w;
        for (int y = first; y < first + count; ++y) {
            const FixPixel* row = convolve_source_row(job, s.first_row + y, buffer);
            convolve_gather(job, row, info->crop_x - s.left, s.pitch - 1, line);
            int32_t* sums = s.sums + static_cast<ptrdiff_t>(y) * s.pitch;
            int32_t sum = 0;
            sums[0] = 0;
            for (int x = 1; x < s.pitch; ++x) sums[x] = sum += line[x - 1];
        }
    });
}

}  // namespace

void run_direct(const ConvolveJob& job) {
    const fft_info_t* info = job.info;
    const KernelRun* runs = info->runs[job.channel];
    const int n_runs = info->n_runs[job.channel];
    const RunningSums s = reserve_sums(job, reach_of(runs, n_runs));
    fill_sums(job, s);
    if (poll_abort()) return;
    const ConvolveRows& rows = convolve_rows();
    fork_rows(info->crop_h, [&](int first, int count) {
        auto* sums = static_cast<float*>(get_forked_buffer(0, s.buffer_bytes));
        for (int y = first; y < first + count; ++y) {
            if ((y & 63) == 0 && poll_abort()) return;
            std::fill(sums, sums + info->crop_w, 0.0f);
            for (int i = 0; i < n_runs; ++i) {
                const KernelRun& run = runs[i];
                const int row = convolve_edge_index(info->crop_y + y - run.row, job.area.y, job.area.h, info->edge_y);
                if (row < 0) continue;
                // Samples p - first - length + 1 .. p - first of the source.
                const int32_t* at =
                    s.sums + static_cast<ptrdiff_t>(row - s.first_row) * s.pitch + s.left - run.first - run.length + 1;
                rows.add_run(at, run.length, run.value, sums, info->crop_w);
            }
            convolve_write(job, info->crop_x, info->crop_y + y, sums, info->crop_w);
        }
    });
}

}  // namespace velloran
