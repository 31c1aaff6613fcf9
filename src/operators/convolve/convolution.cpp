// The record of the kernel in force, its crop, and one plane's convolution in whatever way was chosen.
#include "operators/convolve/convolution.h"

#include "operators/convolve/convolve_parts.h"
#include "operators/convolve/convolve_rows.h"
#include "operators/tone/tone_rows.h"
#include "records/frame.h"
#include "support/memory.h"
#include "support/unload.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace velloran {

namespace {

fft_info_t* fft_info;
bool fft_initialised;

// The crop's rectangle of samples by a factor; scale 0 clears.
void scale_samples(const ConvolveJob& job) {
    const fft_info_t* info = job.info;
    const int n = std::min(info->crop_w, info->dest_w - info->crop_x);
    fork_rows(std::min(info->crop_h, info->dest_h - info->crop_y), [&](int first, int count) {
        for (int y = info->crop_y + first; y < info->crop_y + first + count; ++y) {
            const ptrdiff_t at = static_cast<ptrdiff_t>(y) * info->dest_w + info->crop_x;
            const FixPixel* from = job.source + static_cast<ptrdiff_t>(y) * info->image_w + info->crop_x;
            const bool inside = y < info->image_h && info->crop_x + n <= info->image_w && job.scale != 0.0f;
            if (job.dest) {
                if (inside)
                    convolve_rows().scale_fix(from, job.dest + at, job.scale, n);
                else
                    std::fill(job.dest + at, job.dest + at + n, FixPixel{0});
            } else {
                for (int x = 0; x < n; ++x)
                    job.float_dest[at + x] = inside ? static_cast<float>(from[x]) * job.scale : 0.0f;
            }
        }
    });
}

int channel_in_force(const fft_info_t* info, int channel) {
    return info->n_kernels == 1 ? 0 : std::clamp(channel, 0, max_kernels - 1);
}

// The plane that tiles read, while their neighbours write.
void set_aside(fft_info_t* info, ConvolveJob* job) {
    const int n = info->image_w * info->image_h;
    const size_t bytes = static_cast<size_t>(n) * sizeof(FixPixel);
    if (info->aside_bytes < bytes) {
        safe_free(info->aside);
        info->aside = nullptr;
        info->aside_bytes = 0;
        info->aside = static_cast<FixPixel*>(safe_malloc_aligned(bytes));
        info->aside_bytes = bytes;
    }
    if (job->raise)
        fork_rows(n, [=](int first, int count) {
            tone_rows().map(job->raise, job->source + first, info->aside + first, count);
        });
    else
        mp_memcpy(info->aside, job->source, bytes);
    job->source = info->aside;
    job->raise = nullptr;
}

void run(fft_info_t* info, ConvolveJob* job) {
    switch (info->mode) {
        case convolve_direct:
            run_direct(*job);
            break;
        case convolve_one_transform:
            job->scale /= static_cast<float>(info->fft_w) * static_cast<float>(info->fft_h);
            run_one_transform(*job);
            break;
        default:
            job->scale /= static_cast<float>(info->fft_w) * static_cast<float>(info->fft_h);
            reserve_tiles(info, get_n_procs());
            run_tiles(*job);
            break;
    }
}

void convolve(fft_info_t* info, const FixPixel* source, FixPixel* dest, float* float_dest, float gain, int channel) {
    if (poll_abort()) return;
    channel = channel_in_force(info, channel);
    ConvolveJob job = {info, source, dest, float_dest, 0.0f, channel, convolve_source_area(info), nullptr, nullptr};
    const float divisor = info->kernel_scale[channel];
    const bool fields = info->crop_field != 0;
    if (divisor == 0.0f || info->kcrop_w == 0 || channel >= info->n_kernels || (info->single && !fields)) {
        if (info->single && divisor != 0.0f) job.scale = info->single_value[channel] * gain / divisor;
        scale_samples(job);
        return;
    }
    job.scale = gain / divisor;
    // Tiles read what their neighbours have written; the other ways have taken the source in before they write.
    if (source == dest && info->mode != convolve_direct && info->mode != convolve_one_transform) set_aside(info, &job);
    run(info, &job);
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
    if (!fft_info) {
        free_at_unload(free_fft);
        fft_info = safe_new_zeroed<fft_info_t>();
    }
    return fft_info;
}

void free_spare_fft_bufs(fft_info_t* info) {
    for (int i = 0; i < info->n_spare; ++i) safe_free(info->spare[i].block);
    info->n_spare = 0;
}

void retire_fft_bufs(fft_info_t* info) {
    free_spare_fft_bufs(info);
    const auto retire = [&](float*& block, size_t bytes) {
        if (!block || info->n_spare == max_spare_buffers) return;
        info->spare[info->n_spare++] = {block, bytes};
        block = nullptr;
    };
    for (float*& spectrum : info->kernel_spectrum) retire(spectrum, info->complex_bytes);
    for (int i = 0; i < info->n_bufs; ++i) {
        retire(info->complex_buf[i], info->complex_bytes);
        retire(info->real_buf[i], info->real_bytes);
    }
    const int n_spare = info->n_spare;
    info->n_spare = 0;  // they outlive what follows
    free_fft_bufs(info);
    info->n_spare = n_spare;
}

float* take_fft_buf(fft_info_t* info, size_t bytes) {
    for (int i = 0; i < info->n_spare; ++i) {
        if (info->spare[i].bytes != bytes) continue;
        float* const block = info->spare[i].block;
        info->spare[i] = info->spare[--info->n_spare];
        return block;
    }
    return static_cast<float*>(safe_malloc_aligned(bytes));
}

void free_fft_bufs(fft_info_t* info) {
    free_spare_fft_bufs(info);
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

void release_fft_work(fft_info_t* info) {
    constexpr size_t too_large = size_t{8} << 20;
    if (info->mode == convolve_one_transform) {
        if (info->complex_bytes > too_large) free_fft_bufs(info);
        return;
    }
    for (int i = 0; i < info->n_bufs; ++i) {
        safe_free(info->real_buf[i]);
        safe_free(info->complex_buf[i]);
        info->real_buf[i] = info->complex_buf[i] = nullptr;
    }
    info->n_bufs = 0;
    safe_free(info->aside);
    info->aside = nullptr;
    info->aside_bytes = 0;
}

void free_fft() {
    if (fft_info) free_fft_bufs(fft_info);
    safe_free(fft_info);
    fft_info = nullptr;
    fft_initialised = false;
}

void fft_set_crop(fft_info_t* info, const ConvolveCrop& crop) {
    // Buffers are sized by the image, too.
    if (info->image_w != crop.image_w || info->image_h != crop.image_h) free_fft_bufs(info);
    info->image_w = crop.image_w;
    info->image_h = crop.image_h;
    info->dest_w = crop.dest_w;
    info->dest_h = crop.dest_h;
    info->crop_x = std::clamp(crop.x, 0, std::max(crop.dest_w - 1, 0));
    info->crop_y = std::clamp(crop.y, 0, std::max(crop.dest_h - 1, 0));
    info->crop_w = std::clamp(crop.w + std::min(crop.x, 0), 1, std::max(crop.dest_w - info->crop_x, 1));
    info->crop_h = std::clamp(crop.h + std::min(crop.y, 0), 1, std::max(crop.dest_h - info->crop_y, 1));
    info->crop_field = crop.field;
    info->crop_set = 1;
    const bool within = info->crop_x >= info->area_x && info->crop_x + info->crop_w <= info->area_x + info->area_w &&
                        info->crop_y >= info->area_y && info->crop_y + info->crop_h <= info->area_y + info->area_h;
    if (within) return;
    info->area_x = info->crop_x;
    info->area_y = info->crop_y;
}

int convolve_field() {
    const rinfo& planes = the_frame->temp_raster_info;
    const int field = the_frame->render_field;
    return field && ((planes.y / std::max(planes.render_step, 1)) & 1) ? 3 - field : field;
}

void fft_set_no_crop(fft_info_t* info) {
    const rinfo& temp = the_frame->temp_raster_info;
    const int w = temp.render_step ? temp.width : info->image_w, h = temp.render_step ? temp.height : info->image_h;
    fft_set_crop(info, {w, h, w, h, 0, 0, w, h, convolve_field()});
}

void fft_set_std_crop(fft_info_t* info) {
    if (!the_frame->temp_raster_info.render_step || !the_frame->render_info.render_step) {
        fft_set_no_crop(info);
        return;
    }
    const rinfo& planes = the_frame->temp_raster_info;
    const int step = std::max(planes.render_step, 1);
    const RasterRect &area = the_frame->render_info.downsampled, &crop = the_frame->render_info.croprect;
    // A crop that is not on the grid of samples begins and ends within one, and may take one more than its size says.
    const int w = std::max(area.w, (crop.x + crop.w + step - 1) / step - area.x);
    const int h = std::max(area.h, (crop.y + crop.h + step - 1) / step - area.y);
    fft_set_crop(info, {planes.width, planes.height, planes.width, planes.height, area.x - planes.x / step,
                        area.y - planes.y / step, w, h, convolve_field()});
}

void convolve_fix_fix(fft_info_t* info, const FixPixel* source, FixPixel* dest, float gain, int channel) {
    convolve(info, source, dest, nullptr, gain, channel);
}

void convolve_fix_float(fft_info_t* info, const FixPixel* source, float* dest, float gain, int channel) {
    convolve(info, source, nullptr, dest, gain, channel);
}

bool convolve_transforms_p(const fft_info_t* info) {
    return info->mode != convolve_direct && info->kcrop_w > 0 && !info->single;
}

void convolve_fix_taken(fft_info_t* info, const FixPixel* source, const FixPixel* raise, float gain, int channel,
                        const SumsTaker& taker) {
    if (poll_abort()) return;
    channel = channel_in_force(info, channel);
    const float divisor = info->kernel_scale[channel];
    ConvolveJob job = {
        info,   source, nullptr, nullptr, divisor == 0.0f ? 0.0f : gain / divisor, channel, convolve_source_area(info),
        &taker, raise};
    if (info->mode != convolve_one_transform) set_aside(info, &job);
    run(info, &job);
}

}  // namespace velloran
