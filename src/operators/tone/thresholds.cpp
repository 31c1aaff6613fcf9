#include "operators/tone/thresholds.h"

#include "operators/tone/tone_rows.h"
#include "tasks/tasks.h"

#include <algorithm>
#include <cstdlib>

namespace velloran {

namespace {

const ToneRows* fork_rows;
FixPixel* fork_planes[3];
int32_t fork_thresholds[3];
int32_t fork_gain;
int fork_count;

void forked_threshold_1() {
    int first, n;
    get_proc_stripe(fork_count, &first, &n);
    fork_rows->threshold(fork_planes[0] + first, fork_thresholds[0], fork_gain, n);
}

void forked_threshold_3() {
    int first, n;
    get_proc_stripe(fork_count, &first, &n);
    FixPixel* const planes[] = {fork_planes[0] + first, fork_planes[1] + first, fork_planes[2] + first};
    fork_rows->threshold_3(planes, fork_thresholds, fork_gain, n);
}

// For gains and thresholds beyond what the row function takes.
void forked_steep_threshold_3() {
    int first, n;
    get_proc_stripe(fork_count, &first, &n);
    for (int i = first; i < first + n; ++i) {
        int64_t e = 0, s = 0;
        for (int c = 0; c < 3; ++c) {
            const int64_t v = fork_planes[c][i];
            e += std::max<int64_t>(v - fork_thresholds[c], 0);
            s += std::max<int64_t>(v, 0);
        }
        // More than this times a sample of 1 is over the limit.
        constexpr int64_t most = int64_t{fix_image_limit} * fix_scale + fix_scale;
        const int64_t k = e >= 1 && s > 0 ? std::clamp(e * fork_gain / s, -most, most) : 0;
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
    fork_rows = &tone_rows();
    fork_processes(forked_threshold_1);
}

void threshold_images_3(FixPixel* const* planes, const int32_t* thresholds, int32_t gain, int count) {
    if (thresholds[0] == 0 && thresholds[1] == 0 && thresholds[2] == 0) return;
    std::copy(planes, planes + 3, fork_planes);
    // Far below any sample; sums and products of what lies above stay within 64 bits.
    constexpr int32_t lowest = -(1 << 30);
    for (int c = 0; c < 3; ++c) fork_thresholds[c] = std::max(thresholds[c], lowest);
    fork_gain = gain;
    fork_count = count;
    fork_rows = &tone_rows();
    int64_t above = 0;
    for (int c = 0; c < 3; ++c) above += std::max<int64_t>(int64_t{fix_image_limit} - fork_thresholds[c], 0);
    constexpr int64_t bound = int64_t{1} << 34;
    fork_processes(above * std::abs(int64_t{gain}) <= bound ? forked_threshold_3 : forked_steep_threshold_3);
}

}  // namespace velloran
