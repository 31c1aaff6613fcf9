// Kernels of few runs: with the running sums of the source's rows at hand, a run of any length costs two reads.
//
// The sums are integers, so their differences are exact. They are extended by what the kernel reaches beyond the crop,
// edges obeyed, and lie in the long image where that has room for them.
#include "frame/host_buffers.h"
#include "operators/convolve/convolve_parts.h"
#include "operators/convolve/convolve_rows.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"

#include <algorithm>

namespace velloran {

namespace {

ConvolveJob fork_job;
int32_t* fork_sums;  // [rows that are read][extended width + 1]
int fork_pitch;
int fork_first_row, fork_rows;  // of the source, that are read
int fork_left;                  // samples before the crop
size_t fork_buffer_bytes;

void forked_running_sums() {
    const fft_info_t* info = fork_job.info;
    const SourceArea& area = fork_job.area;
    int first, count;
    get_proc_stripe(fork_rows, &first, &count);
    auto* buffer = static_cast<FixPixel*>(get_forked_buffer(0, fork_buffer_bytes));
    FixPixel* line = buffer + info->image_w;
    for (int y = first; y < first + count; ++y) {
        const FixPixel* row = convolve_source_row(fork_job, area, fork_first_row + y, buffer);
        convolve_gather(fork_job, area, row, info->crop_x - fork_left, fork_pitch - 1, line);
        int32_t* sums = fork_sums + static_cast<ptrdiff_t>(y) * fork_pitch;
        int32_t sum = 0;
        sums[0] = 0;
        for (int x = 1; x < fork_pitch; ++x) sums[x] = sum += line[x - 1];
    }
}

void forked_runs() {
    const fft_info_t* info = fork_job.info;
    const SourceArea& area = fork_job.area;
    const ConvolveRows& rows = convolve_rows();
    const KernelRun* runs = info->runs[fork_job.channel];
    const int n_runs = info->n_runs[fork_job.channel];
    int first, count;
    get_proc_stripe(info->crop_h, &first, &count);
    auto* sums = static_cast<float*>(get_forked_buffer(0, fork_buffer_bytes));
    for (int y = first; y < first + count; ++y) {
        if ((y & 63) == 0 && poll_abort()) return;
        std::fill(sums, sums + info->crop_w, 0.0f);
        for (int i = 0; i < n_runs; ++i) {
            const KernelRun& run = runs[i];
            const int row = convolve_edge_index(info->crop_y + y - run.row, area.y, area.h, info->edge_y);
            if (row < 0) continue;
            // Samples p - first - length + 1 .. p - first of the source.
            const int32_t* at = fork_sums + static_cast<ptrdiff_t>(row - fork_first_row) * fork_pitch + fork_left -
                                run.first - run.length + 1;
            rows.add_run(at, run.length, run.value, sums, info->crop_w);
        }
        convolve_write(fork_job, info->crop_x, info->crop_y + y, sums, info->crop_w);
    }
}

}  // namespace

void run_direct(const ConvolveJob& job) {
    const fft_info_t* info = job.info;
    // What the runs of the channel reach: samples before and behind a pixel, rows.
    int before = 0, behind = 0, lowest = 0, highest = 0;
    for (int i = 0; i < info->n_runs[job.channel]; ++i) {
        const KernelRun& run = info->runs[job.channel][i];
        before = std::max(before, run.first + run.length - 1);
        behind = std::max(behind, -run.first);
        lowest = i ? std::min(lowest, run.row) : run.row;
        highest = i ? std::max(highest, run.row) : run.row;
    }
    fork_job = job;
    fork_left = before;
    fork_pitch = before + info->crop_w + behind + 1;
    int first_row = info->image_h, last_row = -1;
    for (int y = info->crop_y - highest; y < info->crop_y + info->crop_h - lowest; ++y) {
        const int row = convolve_edge_index(y, job.area.y, job.area.h, info->edge_y);
        if (row < 0) continue;
        first_row = std::min(first_row, row);
        last_row = std::max(last_row, row);
    }
    fork_first_row = first_row;
    fork_rows = std::max(last_row - first_row + 1, 0);
    fork_sums = spark_set_long_image(fork_pitch, std::max(fork_rows, 1));
    fork_buffer_bytes = std::max(static_cast<size_t>(info->image_w + fork_pitch) * sizeof(FixPixel),
                                 static_cast<size_t>(info->crop_w) * sizeof(float));
    maybe_malloc_forked_buffers(fork_buffer_bytes, 1);
    fork_processes(forked_running_sums);
    if (!poll_abort()) fork_processes(forked_runs);
}

}  // namespace velloran
