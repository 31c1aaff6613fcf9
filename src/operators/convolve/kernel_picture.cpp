#include "operators/convolve/kernel_picture.h"

#include "support/memory.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace velloran {

namespace {

struct Span {
    int first, size;  // samples
};

Span span_of(float a, float b, int n) {
    if (a > b) std::swap(a, b);
    const int from = std::clamp(static_cast<int>(std::floor(std::clamp(a, -1e6f, 1e6f))), 0, n);
    const int to = std::clamp(static_cast<int>(std::ceil(std::clamp(b, -1e6f, 1e6f))), 0, n);
    return to > from ? Span{from, to - from} : Span{0, n};
}

float sample_scale(float scale) { return scale > 0.0f ? std::min(scale, 16.0f) : 1.0f; }

// Resamples one line: n samples in_step apart become m, out_step apart. A sample of the result averages a tent that is
// as wide as a sample of the coarser of the two grids on each side.
void resample(const float* in, ptrdiff_t in_step, int n, float* out, ptrdiff_t out_step, int m, float scale) {
    const float reach = std::max(1.0f / scale, 1.0f);
    for (int i = 0; i < m; ++i) {
        const float centre = (static_cast<float>(i) + 0.5f) / scale - 0.5f;
        const int first = static_cast<int>(std::ceil(centre - reach)),
                  last = static_cast<int>(std::floor(centre + reach));
        float sum = 0.0f, weights = 0.0f;
        for (int k = first; k <= last; ++k) {
            const float w = 1.0f - std::fabs(static_cast<float>(k) - centre) / reach;
            weights += w;
            if (k >= 0 && k < n) sum += w * in[k * in_step];
        }
        out[i * out_step] = weights > 0.0f ? sum / weights : 0.0f;
    }
}

}  // namespace

void place_kernel_picture(KernelPicture* k, const FilterFrame& frame, FramePoint corner_1, FramePoint corner_2,
                          FramePoint centre) {
    const float step = static_cast<float>(frame.step);
    const RasterRect& full = the_frame->render_info.full_ren;
    const float left = static_cast<float>(the_frame->temp_raster_info.x) / step,
                bottom = static_cast<float>(the_frame->temp_raster_info.y) / step;
    k->x0 = corner_1.x / step - left;
    k->y0 = corner_1.y / step - bottom;
    k->x1 = corner_2.x / step - left;
    k->y1 = corner_2.y / step - bottom;
    k->centre_x = (static_cast<float>(full.w / 2) + centre.x) / step - left;
    k->centre_y = (static_cast<float>(full.h / 2) + centre.y) / step - bottom;
}

// FNV-1a with words of four samples for bytes, and the high bits, which depend on all of a word, brought down each
// time.
uint64_t kernel_picture_hash(const KernelPicture& p) {
    const Span across = span_of(p.x0, p.x1, p.width), up = span_of(p.y0, p.y1, p.height);
    uint64_t hash = 14695981039346656037u;
    for (int c = 0; c < p.n_planes; ++c)
        for (int y = up.first; y < up.first + up.size; ++y) {
            const FixPixel* row = p.planes[c] + static_cast<ptrdiff_t>(y) * p.width + across.first;
            for (int x = 0; x < across.size; x += 4) {
                uint64_t word = 0;
                std::memcpy(&word, row + x, static_cast<size_t>(std::min(4, across.size - x)) * sizeof(FixPixel));
                hash = (hash ^ word) * 1099511628211u;
                hash ^= hash >> 32;
            }
        }
    return hash;
}

void set_kernel_picture(fft_info_t* info, const KernelPicture& p, int autoscale, int edge_x, int edge_y,
                        const char* key) {
    const Span across = span_of(p.x0, p.x1, p.width), up = span_of(p.y0, p.y1, p.height);
    const bool colors = p.color && p.n_planes > 1;
    const int n_kernels = colors ? std::min(p.n_planes, max_kernels) : 1;
    const float scale_x = sample_scale(p.scale_x), scale_y = sample_scale(p.scale_y);
    const int w = std::max(static_cast<int>(std::lround(static_cast<float>(across.size) * scale_x)), 1);
    const int h = std::max(static_cast<int>(std::lround(static_cast<float>(up.size) * scale_y)), 1);
    const size_t cut = static_cast<size_t>(across.size) * static_cast<size_t>(up.size);
    const size_t narrowed = static_cast<size_t>(w) * static_cast<size_t>(up.size),
                 n = static_cast<size_t>(w) * static_cast<size_t>(h);
    float* part = frame_array<float>(cut);
    float* middle = frame_array<float>(narrowed);
    float* block = frame_array<float>(n * static_cast<size_t>(n_kernels));
    const float* planes[max_kernels];
    double sum = 0, sum_x = 0, sum_y = 0;
    for (int c = 0; c < n_kernels; ++c) {
        for (int y = 0; y < up.size; ++y)
            for (int x = 0; x < across.size; ++x) {
                const ptrdiff_t at = static_cast<ptrdiff_t>(up.first + y) * p.width + across.first + x;
                float v = static_cast<float>(p.planes[c][at]);
                if (!colors && p.n_planes >= 3)
                    v = 0.3f * v + 0.5f * static_cast<float>(p.planes[1][at]) +
                        0.2f * static_cast<float>(p.planes[2][at]);
                part[static_cast<ptrdiff_t>(y) * across.size + x] = v * fix_to_float_scale;
                sum += v;
                sum_x += static_cast<double>(v) * (across.first + x);
                sum_y += static_cast<double>(v) * (up.first + y);
            }
        float* plane = block + n * static_cast<size_t>(c);
        planes[c] = plane;
        if (w == across.size && h == up.size && scale_x == 1.0f && scale_y == 1.0f) {
            std::copy(part, part + cut, plane);
            continue;
        }
        for (int y = 0; y < up.size; ++y)
            resample(part + static_cast<ptrdiff_t>(y) * across.size, 1, across.size,
                     middle + static_cast<ptrdiff_t>(y) * w, 1, w, scale_x);
        for (int x = 0; x < w; ++x) resample(middle + x, w, up.size, plane + x, w, h, scale_y);
    }
    float centre_x = p.centre_x, centre_y = p.centre_y;
    if (p.autocenter && sum != 0) {
        centre_x = std::floor(static_cast<float>(sum_x / sum) + 0.5f);
        centre_y = std::floor(static_cast<float>(sum_y / sum) + 0.5f);
    }
    const auto within = [](float centre, const Span& span, float scale) {
        // The sample whose middle is nearest.
        const float at = std::floor(centre) - static_cast<float>(span.first);
        return scale == 1.0f ? static_cast<int>(at) : static_cast<int>(std::floor((at + 0.5f) * scale));
    };
    fft_set_kernel_float(info, planes,
                         {w, h, n_kernels, within(centre_x, across, scale_x), within(centre_y, up, scale_y), autoscale,
                          edge_x, edge_y, key});
    frame_free(block);
    frame_free(middle);
    frame_free(part);
}

}  // namespace velloran
