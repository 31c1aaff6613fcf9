#include "operators/depth/z_kernels.h"

#include "operators/blur/blur_image.h"
#include "operators/tone/gamma_table.h"
#include "support/memory.h"
#include "support/unload.h"

#include <algorithm>

namespace velloran {

size_t most_z_kernel_bytes = size_t{256} << 20;

namespace {

constexpr float linear_top = 8.0f;  // what 1.0 becomes: the range of a sample

constexpr int most_records = 4096;  // more than there are ever layers
fft_info_t* records[most_records];
fft_info_t* shared_record;
fft_info_t* last_record;          // the one that has work buffers
int first_shared = most_records;  // the layers from here on share a record
int last_layer;

void free_record(fft_info_t*& record) {
    if (record == last_record) last_record = nullptr;
    if (record) free_fft_bufs(record);
    safe_free(record);
    record = nullptr;
}

void free_records() {
    for (fft_info_t*& record : records) free_record(record);
    free_record(shared_record);
    first_shared = most_records;
}

size_t bytes_of(const fft_info_t* record) {
    size_t bytes = sizeof(fft_info_t);
    for (int c = 0; c < max_kernels; ++c)
        bytes += (record->kernel_spectrum[c] ? record->complex_bytes : 0) +
                 static_cast<size_t>(record->n_runs[c]) * sizeof(KernelRun);
    return bytes;
}

// Whether a layer may keep its kernel. Of those that have grown too large together the last ones go, and come back in
// a later run over the layers if the others leave them room.
bool may_keep(int layer) {
    size_t bytes = 0;
    for (int i = 0; i < first_shared; ++i) {
        if (!records[i]) continue;
        bytes += bytes_of(records[i]);
        if (bytes > most_z_kernel_bytes) first_shared = i;
    }
    for (int i = first_shared; i < most_records; ++i) free_record(records[i]);
    if (layer < last_layer && bytes < most_z_kernel_bytes / 2) first_shared = most_records;
    last_layer = layer;
    return layer < first_shared;
}

bool has_power(float gamma) { return gamma > 0.0f && gamma != 1.0f; }

}  // namespace

fft_info_t* z_kernel_record(int layer) {
    init_fft();
    fft_info_t*& record = may_keep(layer) ? records[layer] : shared_record;
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
