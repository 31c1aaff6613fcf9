// One real transform over the whole area and what the kernel reaches around it.
#include "operators/convolve/convolve_parts.h"
#include "operators/convolve/convolve_rows.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"

#include <algorithm>
#include <cstring>

namespace velloran {

namespace {

ConvolveJob fork_job;
size_t fork_buffer_bytes;

int source_w(const fft_info_t* info) { return info->kcrop_w + info->area_w - 1; }
int source_h(const fft_info_t* info) { return info->kcrop_h + info->area_h - 1; }

void forked_copy_in() {
    const fft_info_t* info = fork_job.info;
    int first, count;
    get_proc_stripe(info->fft_h, &first, &count);
    float* real = info->real_buf[0];
    const int filled = std::clamp(source_h(info) - first, 0, count);
    fft_copy_subimage(fork_job, real, info->fft_w, info->area_x - info->kernel_right, info->area_y - info->kernel_top,
                      source_w(info), first, filled, static_cast<FixPixel*>(get_forked_buffer(0, fork_buffer_bytes)));
    for (int y = first; y < first + count; ++y) {
        const int from = y < source_h(info) ? source_w(info) : 0;
        std::fill(real + static_cast<ptrdiff_t>(y) * info->fft_w + from,
                  real + static_cast<ptrdiff_t>(y + 1) * info->fft_w, 0.0f);
    }
}

void forked_multiply() {
    const fft_info_t* info = fork_job.info;
    int first, count;
    get_proc_stripe(info->complex_h, &first, &count);
    for (int y = first; y < first + count; ++y) {
        const ptrdiff_t at = 2 * static_cast<ptrdiff_t>(y) * info->complex_w;
        convolve_rows().multiply(info->complex_buf[0] + at, info->kernel_spectrum[fork_job.channel] + at,
                                 info->complex_w);
    }
}

void forked_copy_out() {
    const fft_info_t* info = fork_job.info;
    int first, count;
    get_proc_stripe(info->crop_h, &first, &count);
    const int right = info->crop_x - info->area_x + info->kcrop_w - 1,
              up = info->crop_y - info->area_y + info->kcrop_h - 1;
    for (int y = first; y < first + count; ++y)
        convolve_write(fork_job, info->crop_x, info->crop_y + y,
                       info->real_buf[0] + static_cast<ptrdiff_t>(y + up) * info->fft_w + right, info->crop_w);
}

}  // namespace

void reserve_one_transform(fft_info_t* info) {
    info->real_bytes = static_cast<size_t>(info->fft_w) * static_cast<size_t>(info->fft_h) * sizeof(float);
    info->complex_bytes =
        static_cast<size_t>(info->complex_w) * static_cast<size_t>(info->complex_h) * 2 * sizeof(float);
    info->real_buf[0] = static_cast<float*>(safe_malloc_aligned(info->real_bytes));
    info->complex_buf[0] = static_cast<float*>(safe_malloc_aligned(info->complex_bytes));
    info->n_bufs = 1;
}

void set_spectrum_of_image(fft_info_t* info, const float* plane, int channel) {
    float* real = info->real_buf[0];
    std::memset(real, 0, info->real_bytes);
    for (int y = 0; y < info->kcrop_h; ++y)
        std::memcpy(real + static_cast<ptrdiff_t>(y) * info->fft_w,
                    plane + static_cast<ptrdiff_t>(info->kcrop_y + y) * info->kernel_stride + info->kcrop_x,
                    static_cast<size_t>(info->kcrop_w) * sizeof(float));
    float* spectrum = static_cast<float*>(safe_malloc_aligned(info->complex_bytes));
    std::memset(spectrum, 0, info->complex_bytes);
    info->kernel_spectrum[channel] = spectrum;
    fft_check("DftiComputeForward(kernel)",
              fft_run_forward(fft_config_get_image(info->fft_w, info->fft_h, fft_forward), real, spectrum));
}

void run_one_transform(const ConvolveJob& job) {
    const fft_info_t* info = job.info;
    const FftImage* forward = fft_config_get_image(info->fft_w, info->fft_h, fft_forward);
    const FftImage* backward = fft_config_get_image(info->fft_w, info->fft_h, fft_backward);
    fork_job = job;
    fork_buffer_bytes = static_cast<size_t>(info->image_w + source_w(info)) * sizeof(FixPixel);
    maybe_malloc_forked_buffers(fork_buffer_bytes, 1);
    fork_processes(forked_copy_in);
    if (poll_abort()) return;
    fft_check("DftiComputeForward(1)", fft_run_forward(forward, info->real_buf[0], info->complex_buf[0]));
    if (poll_abort()) return;
    fork_processes(forked_multiply);
    if (poll_abort()) return;
    fft_check("DftiComputeBackward", fft_run_backward(backward, info->complex_buf[0], info->real_buf[0]));
    if (poll_abort()) return;
    fork_processes(forked_copy_out);
}

}  // namespace velloran
