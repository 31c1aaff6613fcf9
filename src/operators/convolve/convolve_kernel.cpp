// Taking a kernel: its part that is not empty, its divisor, its runs, the way of running, and what that way needs.
#include "operators/convolve/convolution.h"
#include "operators/convolve/convolve_parts.h"
#include "operators/fft/fft_config.h"
#include "operators/fft/fft_sizes.h"
#include "support/memory.h"
#include "tasks/tasks.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace velloran {

int fft_kernels_built = 0;
int fft_forced_mode = 0;

namespace {

constexpr float same_level = 1e-20f;

bool near(float a, float b) { return std::fabs(a - b) < same_level; }

struct Kernel {
    const float* const* planes;
    int width, height, n;
};

bool empty(const Kernel& k, int x, int y, int dx, int dy, int count) {
    for (int c = 0; c < k.n; ++c)
        for (int i = 0; i < count; ++i)
            if (k.planes[c][static_cast<ptrdiff_t>(y + i * dy) * k.width + x + i * dx] != 0.0f) return false;
    return true;
}

// Rows and columns of zeros in every channel fall off; of the rows those from most_below on stay.
void trim(fft_info_t* info, const Kernel& k, int most_below) {
    int top = k.height, bottom = 0, left = 0, right = k.width;
    while (bottom < std::min(top, most_below) && empty(k, 0, bottom, 1, 0, k.width)) ++bottom;
    while (top > bottom && empty(k, 0, top - 1, 1, 0, k.width)) --top;
    if (top == bottom) {
        info->kcrop_x = info->kcrop_y = info->kcrop_w = info->kcrop_h = 0;
        return;
    }
    while (left < right && empty(k, left, bottom, 0, 1, top - bottom)) ++left;
    while (right > left && empty(k, right - 1, bottom, 0, 1, top - bottom)) --right;
    info->kcrop_x = left;
    info->kcrop_y = bottom;
    info->kcrop_w = right - left;
    info->kcrop_h = top - bottom;
}

void set_scales(fft_info_t* info, const Kernel& k) {
    double sums[max_kernels] = {};
    int counts[max_kernels] = {};
    for (int c = 0; c < k.n; ++c)
        for (ptrdiff_t i = 0; i < static_cast<ptrdiff_t>(k.width) * k.height; ++i) {
            sums[c] += k.planes[c][i];
            counts[c] += k.planes[c][i] != 0.0f;
        }
    const double largest = *std::max_element(sums, sums + k.n);
    const double luminance = k.n >= 3 ? 0.3 * sums[0] + 0.5 * sums[1] + 0.2 * sums[2] : sums[0];
    for (int c = 0; c < k.n; ++c) {
        double scale = largest;
        switch (info->autoscale) {
            case autoscale_none:
                scale = 1;
                break;
            case autoscale_area:
                scale = static_cast<double>(info->kcrop_w) * info->kcrop_h;
                break;
            case autoscale_luminance:
                scale = c == 3 ? 1 : luminance;
                break;
            case autoscale_each:
                scale = sums[c];
                break;
            case autoscale_count:
                scale = *std::max_element(counts, counts + k.n);
                break;
            default:
                break;
        }
        info->kernel_scale[c] = static_cast<float>(scale);
    }
}

// How dear sums along runs would be: a stretch of ones costs its beginning and its end, any other sample 1. Stops above
// max_cheap_runs.
int count_runs(const fft_info_t* info, const Kernel& k) {
    int count = 0;
    for (int y = info->kcrop_y; y < info->kcrop_y + info->kcrop_h; ++y) {
        for (int c = 0; c < k.n; ++c) {
            bool on_run = false;
            for (int x = info->kcrop_x; x < info->kcrop_x + info->kcrop_w; ++x) {
                const float v = k.planes[c][static_cast<ptrdiff_t>(y) * k.width + x];
                if (near(v, 1.0f)) {
                    count += !on_run;
                    on_run = true;
                } else {
                    count += on_run;
                    on_run = false;
                    count += !near(v, 0.0f);
                }
                if (count > max_cheap_runs) return count;
            }
            count += on_run;
        }
    }
    return count;
}

// Stretches of exactly equal samples: a looser rule would let the picture depend on the way of running.
void set_runs(fft_info_t* info, const Kernel& k) {
    for (int c = 0; c < k.n; ++c) {
        info->runs[c] =
            static_cast<KernelRun*>(safe_malloc(sizeof(KernelRun) * static_cast<size_t>(max_cheap_runs + 1)));
        int capacity = max_cheap_runs + 1;
        for (int y = info->kcrop_y; y < info->kcrop_y + info->kcrop_h; ++y) {
            const float* row = k.planes[c] + static_cast<ptrdiff_t>(y) * k.width;
            for (int x = info->kcrop_x; x < info->kcrop_x + info->kcrop_w;) {
                int end = x + 1;
                while (end < info->kcrop_x + info->kcrop_w && row[end] == row[x]) ++end;
                if (row[x] != 0.0f) {
                    if (info->n_runs[c] == capacity) {
                        capacity *= 2;  // a mode that was asked for, not chosen
                        info->runs[c] = static_cast<KernelRun*>(
                            safe_realloc(info->runs[c], sizeof(KernelRun) * static_cast<size_t>(capacity)));
                    }
                    info->runs[c][info->n_runs[c]++] = {y - info->kcentre_y, x - info->kcentre_x, end - x, row[x]};
                }
                x = end;
            }
        }
    }
}

void choose_mode(fft_info_t* info, const Kernel& k) {
    info->mode = convolve_direct;
    if (info->kcrop_w > 0 && count_runs(info, k) > max_cheap_runs) {
        const int th = good_size(std::min(info->kcrop_h + info->crop_h - 1, 3 * info->kcrop_h + 39));
        info->mode = info->crop_h / th < least_tile_rows ? convolve_one_transform : convolve_tiles;
    }
    if (fft_forced_mode && info->kcrop_w > 0) info->mode = fft_forced_mode;
}

void set_sizes(fft_info_t* info) {
    info->fft_w = info->fft_h = 1;
    if (info->mode == convolve_one_transform) {
        whole_size(info->kcrop_w + info->crop_w - 1, info->kcrop_h + info->crop_h - 1, &info->fft_w, &info->fft_h);
    } else if (info->mode != convolve_direct) {
        best_tile_size(info->kcrop_w, info->kcrop_h, info->crop_w, info->crop_h, &info->fft_w, &info->fft_h);
    }
    info->tile_w = info->fft_w - info->kcrop_w + 1 > 1 ? info->fft_w - info->kcrop_w + 1 : info->fft_w;
    info->tile_h = info->fft_h - info->kcrop_h + 1 > 1 ? info->fft_h - info->kcrop_h + 1 : info->fft_h;
    info->tile_overlap_x = info->fft_w - info->tile_w;
    info->tile_overlap_y = info->fft_h - info->tile_h;
    info->real_w = info->fft_w;
    info->real_h = info->fft_h;
    info->complex_w = info->fft_w / 2 + 1;
    info->complex_h = info->fft_h;
}

void dims_text(const fft_info_t* info, char* text, size_t size) {
    std::snprintf(text, size, "(%d,%d)", info->crop_w, info->crop_h);
}

// most_below: of the empty rows on the side of the first ones, how many may fall off.
void set_kernel(fft_info_t* info, const Kernel& k, const KernelSettings& settings, int most_below) {
    retire_fft_bufs(info);
    if (!info->crop_set) fft_set_no_crop(info);
    ++fft_kernels_built;
    info->area_x = info->crop_x;
    info->area_y = info->crop_y;
    info->area_w = info->crop_w;
    info->area_h = info->crop_h;
    info->n_kernels = k.n;
    info->autoscale = settings.autoscale;
    info->edge_x = settings.edge_x;
    info->edge_y = settings.edge_y;
    info->kernel_stride = k.width;
    info->kernel_rows = k.height;
    const int centre_x = info->kcentre_x = settings.centre_x;
    const int centre_y = info->kcentre_y = settings.centre_y;
    trim(info, k, most_below);
    info->kcrop_centre_x = centre_x - info->kcrop_x;
    info->kcrop_centre_y = centre_y - info->kcrop_y;
    info->kernel_right = info->kcrop_w - info->kcrop_centre_x - 1;
    info->kernel_top = info->kcrop_h - info->kcrop_centre_y - 1;
    set_scales(info, k);
    info->single = info->kcrop_w == 1 && info->kcrop_h == 1 && info->kcrop_centre_x == 0 && info->kcrop_centre_y == 0;
    for (int c = 0; c < k.n && info->single; ++c)
        info->single_value[c] = k.planes[c][static_cast<ptrdiff_t>(centre_y) * k.width + centre_x];
    choose_mode(info, k);
    set_sizes(info);
    if (info->mode == convolve_direct) {
        set_runs(info, k);
    } else if (info->mode == convolve_one_transform) {
        fft_config_make(info->fft_w, info->fft_h);
        reserve_one_transform(info);
        for (int c = 0; c < k.n; ++c) set_spectrum_of_image(info, k.planes[c], c);
    } else {
        fft_config_make(info->fft_w, info->fft_h);
        reserve_tiles(info, get_n_procs());
        for (int c = 0; c < k.n; ++c) set_spectrum_of_tile(info, k.planes[c], c);
    }
    free_spare_fft_bufs(info);
    char dims[64];
    dims_text(info, dims, sizeof dims);
    info->kernel_key = safe_strdup(settings.key);
    info->dims_key = safe_strdup(dims);
}

}  // namespace

bool need_to_set_kernel(const fft_info_t* info, const char* key) {
    if (!info || !info->kernel_key || std::strcmp(info->kernel_key, key) != 0) return true;
    if (info->mode == 0) return true;
    char dims[64];
    dims_text(info, dims, sizeof dims);
    return !info->dims_key || std::strcmp(info->dims_key, dims) != 0;
}

void fft_set_kernel_float(fft_info_t* info, const float* const* planes, const KernelSettings& settings) {
    const Kernel k = {planes, settings.width, settings.height, std::clamp(settings.n_kernels, 1, max_kernels)};
    set_kernel(info, k, settings, settings.symmetrical ? std::max(settings.centre_y, 0) : settings.height);
}

void fft_set_kernel(fft_info_t* info, const FixPixel* const* planes, const KernelSettings& settings) {
    const size_t n = static_cast<size_t>(settings.width) * static_cast<size_t>(settings.height);
    const int count = std::clamp(settings.n_kernels, 1, max_kernels);
    float* block = frame_array<float>(n * static_cast<size_t>(count));
    const float* floats[max_kernels];
    for (int c = 0; c < count; ++c) {
        float* to = block + static_cast<size_t>(c) * n;
        for (size_t i = 0; i < n; ++i) to[i] = static_cast<float>(planes[c][i]) * fix_to_float_scale;
        floats[c] = to;
    }
    fft_set_kernel_float(info, floats, settings);
    frame_free(block);
}

void fft_get_centroid(const FixPixel* plane, int width, int height, float* x, float* y) {
    double sum = 0, sum_x = 0, sum_y = 0;
    for (int r = 0; r < height; ++r)
        for (int c = 0; c < width; ++c) {
            const double v = plane[static_cast<ptrdiff_t>(r) * width + c];
            sum += v;
            sum_x += v * c;
            sum_y += v * r;
        }
    *x = sum != 0 ? static_cast<float>(sum_x / sum) : static_cast<float>(width / 2);
    *y = sum != 0 ? static_cast<float>(sum_y / sum) : static_cast<float>(height / 2);
}

}  // namespace velloran
