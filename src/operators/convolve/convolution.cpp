// The record of the kernel in force, its crop, and one plane's convolution in whatever way was chosen.
#include "operators/convolve/convolution.h"

#include "operators/convolve/convolve_parts.h"
#include "operators/convolve/convolve_rows.h"
#include "records/frame.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace velloran {

namespace {

fft_info_t* fft_info;
bool fft_initialised;

ConvolveJob fork_job;

// A rectangle of samples by a factor; scale 0 clears.
void forked_scale() {
    const fft_info_t* info = fork_job.info;
    int first, count;
    get_proc_stripe(info->crop_h, &first, &count);
    for (int y = info->crop_y + first; y < info->crop_y + first + count && y < info->dest_h; ++y) {
        const int n = std::min(info->crop_w, info->dest_w - info->crop_x);
        const ptrdiff_t at = static_cast<ptrdiff_t>(y) * info->dest_w + info->crop_x;
        const FixPixel* from = fork_job.source + static_cast<ptrdiff_t>(y) * info->image_w + info->crop_x;
        const bool inside = y < info->image_h && info->crop_x + n <= info->image_w && fork_job.scale != 0.0f;
        if (fork_job.dest) {
            if (inside)
                convolve_rows().scale_fix(from, fork_job.dest + at, fork_job.scale, n);
            else
                std::fill(fork_job.dest + at, fork_job.dest + at + n, FixPixel{0});
        } else {
            for (int x = 0; x < n; ++x)
                fork_job.float_dest[at + x] = inside ? static_cast<float>(from[x]) * fork_job.scale : 0.0f;
        }
    }
}

void convolve(fft_info_t* info, const FixPixel* source, FixPixel* dest, float* float_dest, float gain, int channel) {
    if (poll_abort()) return;
    if (info->n_kernels == 1) channel = 0;
    channel = std::clamp(channel, 0, max_kernels - 1);
    ConvolveJob job = {info, source, dest, float_dest, 0.0f, channel, convolve_source_area(info)};
    const float divisor = info->kernel_scale[channel];
    const bool fields = info->crop_field != 0;
    if (divisor == 0.0f || info->kcrop_w == 0 || channel >= info->n_kernels || (info->single && !fields)) {
        if (info->single && divisor != 0.0f) job.scale = info->single_value[channel] * gain / divisor;
        fork_job = job;
        fork_processes(forked_scale);
        return;
    }
    job.scale = gain / divisor;
    // Tiles read what their neighbours have written; the other ways have taken the source in before they write.
    if (source == dest && info->mode != convolve_direct && info->mode != convolve_one_transform) job.source = nullptr;
    if (!job.source) {
        const size_t bytes = static_cast<size_t>(info->image_w) * static_cast<size_t>(info->image_h) * sizeof(FixPixel);
        if (info->aside_bytes < bytes) {
            safe_free(info->aside);
            info->aside = nullptr;
            info->aside_bytes = 0;
            info->aside = static_cast<FixPixel*>(safe_malloc_aligned(bytes));
            info->aside_bytes = bytes;
        }
        mp_memcpy(info->aside, source, bytes);
        job.source = info->aside;
    }
    switch (info->mode) {
        case convolve_direct:
            run_direct(job);
            break;
        case convolve_one_transform:
            job.scale /= static_cast<float>(info->fft_w) * static_cast<float>(info->fft_h);
            run_one_transform(job);
            break;
        default:
            job.scale /= static_cast<float>(info->fft_w) * static_cast<float>(info->fft_h);
            reserve_tiles(info, get_n_procs());
            run_tiles(job);
            break;
    }
}

}  // namespace

void init_fft() {
    if (fft_initialised) return;
    fft_initialised = true;
    // Before the first transform, for transform libraries that look there themselves.
    char text[32];
    std::snprintf(text, sizeof text, "%ld", std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L));
    setenv("OMP_NUM_THREADS", text, 0);
}

fft_info_t* get_fft_info() {
    init_fft();
    if (!fft_info) fft_info = safe_new_zeroed<fft_info_t>();
    return fft_info;
}

void free_fft_bufs(fft_info_t* info) {
    for (int i = 0; i < max_fft_processors; ++i) {
        safe_free(info->real_buf[i]);
        safe_free(info->complex_buf[i]);
        info->real_buf[i] = info->complex_buf[i] = nullptr;
    }
    for (int c = 0; c < max_kernels; ++c) {
        safe_free(info->kernel_spectrum[c]);
        safe_free(info->runs[c]);
        info->kernel_spectrum[c] = nullptr;
        info->runs[c] = nullptr;
        info->n_runs[c] = 0;
        info->single_value[c] = 0;
    }
    safe_free(info->kernel_key);
    safe_free(info->dims_key);
    safe_free(info->aside);
    info->kernel_key = info->dims_key = nullptr;
    info->aside = nullptr;
    info->aside_bytes = 0;
    info->n_bufs = 0;
    info->mode = 0;
}

void free_fft() {
    fft_config_free();
    if (fft_info) free_fft_bufs(fft_info);
    safe_free(fft_info);
    fft_info = nullptr;
    fft_initialised = false;
}

void fft_set_crop(fft_info_t* info, int image_w, int image_h, int dest_w, int dest_h, int x, int y, int w, int h,
                  int field) {
    // Buffers are sized by the image, too.
    if (info->image_w != image_w || info->image_h != image_h) free_fft_bufs(info);
    info->image_w = image_w;
    info->image_h = image_h;
    info->dest_w = dest_w;
    info->dest_h = dest_h;
    info->crop_x = std::clamp(x, 0, std::max(dest_w - 1, 0));
    info->crop_y = std::clamp(y, 0, std::max(dest_h - 1, 0));
    info->crop_w = std::clamp(w + std::min(x, 0), 1, std::max(dest_w - info->crop_x, 1));
    info->crop_h = std::clamp(h + std::min(y, 0), 1, std::max(dest_h - info->crop_y, 1));
    info->crop_field = field;
    info->crop_set = 1;
    const bool within = info->crop_x >= info->area_x && info->crop_x + info->crop_w <= info->area_x + info->area_w &&
                        info->crop_y >= info->area_y && info->crop_y + info->crop_h <= info->area_y + info->area_h;
    if (within) return;
    info->area_x = info->crop_x;
    info->area_y = info->crop_y;
}

void fft_set_no_crop(fft_info_t* info) {
    const rinfo& temp = the_frame->temp_raster_info;
    const int w = temp.render_step ? temp.width : info->image_w, h = temp.render_step ? temp.height : info->image_h;
    fft_set_crop(info, w, h, w, h, 0, 0, w, h, the_frame->render_field);
}

void fft_set_std_crop(fft_info_t* info) {
    if (!the_frame->temp_raster_info.render_step || !the_frame->render_info.render_step) {
        fft_set_no_crop(info);
        return;
    }
    const int step = std::max(the_frame->temp_raster_info.render_step, 1);
    const RasterRect &area = the_frame->render_info.downsampled, &crop = the_frame->render_info.croprect;
    // A crop that is not on the grid of samples begins and ends within one, and may take one more than its size says.
    const int w = std::max(area.w, (crop.x + crop.w + step - 1) / step - area.x);
    const int h = std::max(area.h, (crop.y + crop.h + step - 1) / step - area.y);
    fft_set_crop(info, the_frame->temp_raster_info.width, the_frame->temp_raster_info.height,
                 the_frame->temp_raster_info.width, the_frame->temp_raster_info.height,
                 area.x - the_frame->temp_raster_info.x / step, area.y - the_frame->temp_raster_info.y / step, w, h,
                 the_frame->render_field);
}

void convolve_fix_fix(fft_info_t* info, const FixPixel* source, FixPixel* dest, float gain, int channel) {
    convolve(info, source, dest, nullptr, gain, channel);
}

void convolve_fix_float(fft_info_t* info, const FixPixel* source, float* dest, float gain, int channel) {
    convolve(info, source, nullptr, dest, gain, channel);
}

}  // namespace velloran
