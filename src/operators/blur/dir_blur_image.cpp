#include "operators/blur/dir_blur_image.h"

#include "operators/blur/blur_image.h"
#include "operators/blur/wu_line.h"
#include "records/frame.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace velloran {

namespace {

constexpr int margin = 3;             // samples that a kernel has beyond its line on each side
constexpr int least_long_side = 720;  // of a frame, for the limit on kernels

struct Filter {
    int filter;
    float bias;
};

float weight_at(const void* context, float at) {
    const auto* f = static_cast<const Filter*>(context);
    return line_filter_weight(f->filter, f->bias, at);
}

int size_limit(const FilterFrame& frame) {
    const RenderInfo& info = the_frame->render_info;
    if (!info.render_step) return std::max({frame.width, frame.height, least_long_side}) * 2;
    const int long_side = std::max({info.full_ren.w, info.full_ren.h, least_long_side});
    return static_cast<int>(long_side * 2 * info.pix_scale / info.render_step);
}

// n_kernels: 1 for channels that are spread alike.
void make_kernel(fft_info_t* info, int n_kernels, const DirBlur& blur, const FilterFrame& frame, const char* key) {
    const float turn = 6.2831853f * blur.angle;
    float dx = std::cos(turn), dy = std::sin(turn) * blur.aspect;
    // Quarter turns are exact, so that lines along the axes are single rows and columns.
    if (std::fabs(dx) < 1e-6f) dx = 0.0f;
    if (std::fabs(dy) < 1e-6f) dy = 0.0f;
    float longest = 0.0f, farthest = 0.0f;
    for (int c = 0; c < n_kernels; ++c) {
        longest = std::max(longest, blur.lengths[c]);
        farthest = std::max(farthest, std::fabs(blur.offsets[c]));
    }
    const int limit = size_limit(frame);
    const float half = longest * 0.5f;
    const auto extent = [&](float d) {
        const float reach = std::min(std::fabs(d) * half * (farthest + 1.0f), static_cast<float>(limit));
        return std::min(2 * static_cast<int>(std::floor(reach + 0.5f)) + 2 * margin, limit);
    };
    const int w = extent(dx), h = extent(dy);
    const size_t n = static_cast<size_t>(w) * static_cast<size_t>(h);
    float* block = frame_array<float>(n * static_cast<size_t>(n_kernels));
    std::memset(block, 0, n * static_cast<size_t>(n_kernels) * sizeof(float));
    const float* planes[4];
    const Filter filter = {blur.filter, blur.bias};
    const int cx = w / 2, cy = h / 2;
    for (int c = 0; c < n_kernels; ++c) {
        float* plane = block + n * static_cast<size_t>(c);
        planes[c] = plane;
        const float length = blur.lengths[c] * 0.5f, offset = blur.offsets[c];
        const auto place = [](float centre, float d, int size) {
            return std::clamp(centre + d, static_cast<float>(margin),
                              static_cast<float>(std::max(size - margin, margin)));
        };
        const float fx = static_cast<float>(cx), fy = static_cast<float>(cy);
        draw_wu_line(plane, w, h, place(fx, (offset - 1) * length * dx, w), place(fy, (offset - 1) * length * dy, h),
                     place(fx, (offset + 1) * length * dx, w), place(fy, (offset + 1) * length * dy, h), 1.0f,
                     blur.filter == line_constant && blur.bias == 0.0f ? nullptr : weight_at, &filter);
    }
    fft_set_kernel_float(info, planes, {w, h, n_kernels, cx, cy, autoscale_each, blur.edge_mode, blur.edge_mode, key});
    frame_free(block);
}

}  // namespace

float line_filter_weight(int filter, float bias, float at) {
    const float t = std::min(std::fabs(at), 1.0f);
    float w = 1.0f;
    if (filter == line_tent) w = 1.0f - t;
    if (filter == line_bell) w = t < 0.5f ? 1.0f - 2.0f * t * t : 2.0f * (t - 1.0f) * (t - 1.0f);
    return w * std::max(1.0f + bias * at, 0.0f);
}

bool dir_blur_alike(const DirBlur& blur) {
    bool alike = true;
    for (int c = 1; c < blur.n_channels; ++c)
        alike &= blur.lengths[c] == blur.lengths[0] && blur.offsets[c] == blur.offsets[0];
    return alike;
}

void dir_blur_image(const FixPixel* source, FixPixel* dest, int channel, const DirBlur& blur,
                    const FilterFrame& frame) {
    if (poll_abort()) return;
    const int32_t gain = float_to_fix(blur.gains[channel]);
    if (blur.lengths[channel] <= 0.0f) {
        if (gain != fix_scale)
            scale_fix_image(source, dest, gain, frame.width, frame.height);
        else if (source != dest)
            mp_memcpy(dest, source, frame.bytes());
        return;
    }
    const int n_kernels = dir_blur_alike(blur) ? 1 : blur.n_channels;
    // The bias is named with the filter: both say how the weight runs along the line.
    char key[512];
    std::snprintf(key, sizeof key, "blur_dir(%f,%f,%f,%f,%f,%f,%f,%f,%f,%f,%u,%d,%d)",
                  static_cast<double>(blur.lengths[0]), static_cast<double>(blur.lengths[1]),
                  static_cast<double>(blur.lengths[2]), static_cast<double>(blur.lengths[3]),
                  static_cast<double>(blur.offsets[0]), static_cast<double>(blur.offsets[1]),
                  static_cast<double>(blur.offsets[2]), static_cast<double>(blur.offsets[3]),
                  static_cast<double>(blur.angle), static_cast<double>(blur.aspect),
                  static_cast<unsigned>(blur.filter) + 8u * static_cast<unsigned>(float_to_fix(blur.bias) + 65536),
                  blur.edge_mode, n_kernels);
    fft_info_t* info = get_fft_info();
    const int w = frame.width, h = frame.height;
    fft_set_crop(info, {w, h, w, h, 0, 0, w, h, convolve_field()});
    if (need_to_set_kernel(info, key)) make_kernel(info, n_kernels, blur, frame, key);
    convolve_fix_fix(info, source, dest, blur.gains[channel], channel);
}

}  // namespace velloran
