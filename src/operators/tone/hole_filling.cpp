#include "operators/tone/hole_filling.h"

#include "operators/blur/filter_args.h"
#include "operators/convolve/convolution.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace velloran {

namespace {

// Far from any matte both sums vanish, and with them what could be filled in; what transforms leave there is about a
// thousandth of a sample's last bit, and to divide one such rest by another would make up any colour.
constexpr float least_matte = 1.0f / 32;

// What is filled in at one pixel, by the sums of image and matte there.
FixPixel filled_sample(FixPixel source, FixPixel own_matte, float image_sum, float matte_sum) {
    const int32_t m = std::clamp<int32_t>(own_matte, 0, fix_scale);
    if (m >= fix_max) return source;
    const float filled =
        matte_sum > least_matte ? std::clamp(image_sum / matte_sum * 4096.0f, -32767.0f, 32767.0f) : 0.0f;
    return clip_to_image(static_cast<int32_t>(filled) + (((source - static_cast<int32_t>(filled)) * m) >> fix_bits));
}

constexpr int least_size = 10, most_size = 1000;
constexpr float nearest = 5.0f;

}  // namespace

void enlarge_edges_step1(int size, float least_distance, float power, int width, int height) {
    if (power >= 0.0f) V_error(level_error, "diffuse_into_holes: power (%g) must be < 0\n", static_cast<double>(power));
    size = std::max(std::min({size, filter_frame_width(), most_size}), least_size);
    least_distance = std::clamp(least_distance, nearest, std::max(static_cast<float>(size) * 0.5f, nearest));
    char key[128];
    std::snprintf(key, sizeof key, "hole_kern(%d,%g,%g)", size, static_cast<double>(least_distance),
                  static_cast<double>(power));
    fft_info_t* info = get_fft_info();
    fft_set_crop(info, {width, height, width, height, 0, 0, width, height, 0});
    if (!need_to_set_kernel(info, key)) return;
    float* plane = frame_array<float>(static_cast<size_t>(size) * static_cast<size_t>(size));
    const int centre = size / 2;
    const float scale = std::pow(least_distance, -power);  // the middle weighs 1
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            const float dx = static_cast<float>(x - centre), dy = static_cast<float>(y - centre);
            plane[y * size + x] = std::pow(std::max(std::sqrt(dx * dx + dy * dy), least_distance), power) * scale;
        }
    const float* planes[] = {plane};
    fft_set_kernel_float(
        info, planes, {size, size, 1, centre, centre, autoscale_each, convolve_edge_black, convolve_edge_black, key});
    frame_free(plane);
}

void enlarge_edges_step2(const FixPixel* const* source, FixPixel* const* dest, int n_planes, const FixPixel* matte,
                         FixPixel* work, int width, int height) {
    fft_info_t* info = get_fft_info();
    const int n = width * height;
    float* matte_sums = frame_array<float>(static_cast<size_t>(n));
    float* image_sums = frame_array<float>(static_cast<size_t>(n));
    convolve_fix_float(info, matte, matte_sums, 1.0f, 0);
    for (int c = 0; c < n_planes && !poll_abort(); ++c) {
        const FixPixel* const from = source[c];
        FixPixel* const to = dest[c];
        fork_rows(n, [&](int first, int count) {
            for (int i = first; i < first + count; ++i) work[i] = clip_to_image(fix_mul(from[i], matte[i]));
        });
        convolve_fix_float(info, work, image_sums, 1.0f, 0);
        if (poll_abort()) break;
        fork_rows(n, [&](int first, int count) {
            for (int i = first; i < first + count; ++i)
                to[i] = filled_sample(from[i], matte[i], image_sums[i], matte_sums[i]);
        });
    }
    frame_free(image_sums);
    frame_free(matte_sums);
}

}  // namespace velloran
