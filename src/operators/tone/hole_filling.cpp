#include "operators/tone/hole_filling.h"

#include "operators/blur/filter_args.h"
#include "operators/convolve/convolution.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace velloran {

namespace {

const FixPixel *fork_a, *fork_b, *fork_matte;
FixPixel* fork_dest;
const float *fork_image_sums, *fork_matte_sums;
int fork_n;

void forked_mult_fix_images() {
    int first, n;
    get_proc_stripe(fork_n, &first, &n);
    for (int i = first; i < first + n; ++i) fork_dest[i] = clip_to_image(fix_mul(fork_a[i], fork_b[i]));
}

// Far from any matte both sums vanish, and with them what could be filled in; what transforms leave there is about a
// thousandth of a sample's last bit, and to divide one such rest by another would make up any colour.
constexpr float least_matte = 1.0f / 32;

void forked_divide() {
    int first, n;
    get_proc_stripe(fork_n, &first, &n);
    for (int i = first; i < first + n; ++i) {
        const int32_t m = std::clamp<int32_t>(fork_matte[i], 0, fix_scale);
        if (m >= fix_max) {
            fork_dest[i] = fork_a[i];
            continue;
        }
        const float matte = fork_matte_sums[i];
        const float filled =
            matte > least_matte ? std::clamp(fork_image_sums[i] / matte * 4096.0f, -32767.0f, 32767.0f) : 0.0f;
        fork_dest[i] = clip_to_image(static_cast<int32_t>(filled) +
                                     (((fork_a[i] - static_cast<int32_t>(filled)) * m) >> fix_bits));
    }
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
    fft_set_crop(info, width, height, width, height, 0, 0, width, height, 0);
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
    fft_set_kernel_float(info, planes, size, size, 1, centre, centre, autoscale_each, convolve_edge_black,
                         convolve_edge_black, key);
    frame_free(plane);
}

void enlarge_edges_step2(const FixPixel* const* source, FixPixel* const* dest, int n_planes, const FixPixel* matte,
                         FixPixel* work, int width, int height) {
    fft_info_t* info = get_fft_info();
    const size_t n = static_cast<size_t>(width) * static_cast<size_t>(height);
    float* matte_sums = frame_array<float>(n);
    float* image_sums = frame_array<float>(n);
    fork_n = width * height;
    convolve_fix_float(info, matte, matte_sums, 1.0f, 0);
    for (int c = 0; c < n_planes && !poll_abort(); ++c) {
        fork_a = source[c];
        fork_b = matte;
        fork_dest = work;
        fork_processes(forked_mult_fix_images);
        convolve_fix_float(info, work, image_sums, 1.0f, 0);
        if (poll_abort()) break;
        fork_a = source[c];
        fork_matte = matte;
        fork_dest = dest[c];
        fork_image_sums = image_sums;
        fork_matte_sums = matte_sums;
        fork_processes(forked_divide);
    }
    frame_free(image_sums);
    frame_free(matte_sums);
}

}  // namespace velloran
