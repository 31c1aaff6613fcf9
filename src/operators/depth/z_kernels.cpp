#include "operators/depth/z_kernels.h"

#include "operators/blur/blur_image.h"
#include "operators/tone/gamma_table.h"
#include "support/memory.h"
#include "support/unload.h"

#include <algorithm>

namespace velloran {

namespace {

constexpr float linear_top = 8.0f;  // what 1.0 becomes: the range of a sample

fft_info_t* records[kept_z_kernels];
fft_info_t* last_record;  // the one that has work buffers

void free_records() {
    for (fft_info_t*& record : records) {
        if (record) free_fft_bufs(record);
        safe_free(record);
        record = nullptr;
    }
    last_record = nullptr;
}

bool has_power(float gamma) { return gamma > 0.0f && gamma != 1.0f; }

}  // namespace

fft_info_t* z_kernel_record(int layer) {
    init_fft();
    fft_info_t*& record = records[std::min(layer, kept_z_kernels - 1)];
    if (!record) {
        free_at_unload(free_records);
        record = safe_new_zeroed<fft_info_t>();
    }
    if (last_record && last_record != record) release_fft_work(last_record);
    last_record = record;
    return record;
}

void to_linear_light(FixPixel* const* planes, int n, float gamma, int samples) {
    if (!has_power(gamma)) return;
    set_gamma_table(1.0f / gamma, linear_top);
    for (int c = 0; c < n; ++c) apply_gamma_table(planes[c], 1.0f, 1.0f, samples);
}

void from_linear_light(FixPixel* const* planes, int n, float gamma, float scale, int width, int height) {
    if (has_power(gamma)) {
        set_gamma_table(gamma, 1.0f);
        for (int c = 0; c < n; ++c) apply_gamma_table(planes[c], 1.0f / linear_top, scale, width * height);
    } else if (scale != 1.0f) {
        for (int c = 0; c < n; ++c) scale_fix_image(planes[c], planes[c], float_to_fix(scale), width, height);
    }
}

}  // namespace velloran
