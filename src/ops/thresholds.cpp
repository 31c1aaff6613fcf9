#include "ops/thresholds.h"

#include "engine/tasks.h"

#include <algorithm>

namespace velloran {

namespace {

FixPixel* fork_planes[3];
int32_t fork_thresholds[3];
int32_t fork_gain;
int fork_count;

void forked_threshold_1() {
    int first, n;
    get_proc_stripe(fork_count, &first, &n);
    FixPixel* p = fork_planes[0] + first;
    const int32_t t = fork_thresholds[0], gain = fork_gain;
    for (int i = 0; i < n; ++i) p[i] = p[i] > t && p[i] > 0 ? clip_to_image(fix_mul(p[i] - t, gain)) : FixPixel{0};
}

void forked_threshold_3() {
    int first, n;
    get_proc_stripe(fork_count, &first, &n);
    for (int i = first; i < first + n; ++i) {
        int32_t e = 0, s = 0;
        for (int c = 0; c < 3; ++c) {
            const int32_t v = fork_planes[c][i];
            e += std::max(v - fork_thresholds[c], 0);
            s += std::max(v, 0);
        }
        const int64_t k = e >= 1 && s > 0 ? int64_t{e} * fork_gain / s : 0;
        for (int c = 0; c < 3; ++c) {
            const int64_t v = (fork_planes[c][i] * k) >> fix_bits;
            fork_planes[c][i] = static_cast<FixPixel>(std::clamp<int64_t>(v, -fix_image_limit, fix_image_limit));
        }
    }
}

}  // namespace

void threshold_images_1(FixPixel* plane, const int32_t* thresholds, int32_t gain, int count) {
    if (thresholds[0] == 0) return;
    fork_planes[0] = plane;
    fork_thresholds[0] = thresholds[0];
    fork_gain = gain;
    fork_count = count;
    fork_processes(forked_threshold_1);
}

void threshold_images_3(FixPixel* const* planes, const int32_t* thresholds, int32_t gain, int count) {
    if (thresholds[0] == 0 && thresholds[1] == 0 && thresholds[2] == 0) return;
    std::copy(planes, planes + 3, fork_planes);
    std::copy(thresholds, thresholds + 3, fork_thresholds);
    fork_gain = gain;
    fork_count = count;
    fork_processes(forked_threshold_3);
}

}  // namespace velloran
