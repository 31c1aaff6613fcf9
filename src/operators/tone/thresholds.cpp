#include "operators/tone/thresholds.h"

#include "operators/tone/tone_rows.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cstdlib>

namespace velloran {

namespace {

// For gains and thresholds beyond what the row function takes.
void steep_threshold_3(FixPixel* const* planes, const int32_t* thresholds, int32_t gain, int n) {
    for (int i = 0; i < n; ++i) {
        int64_t e = 0, s = 0;
        for (int c = 0; c < 3; ++c) {
            const int64_t v = planes[c][i];
            e += std::max<int64_t>(v - thresholds[c], 0);
            s += std::max<int64_t>(v, 0);
        }
        // More than this times a sample of 1 is over the limit.
        constexpr int64_t most = int64_t{fix_image_limit} * fix_scale + fix_scale;
        const int64_t k = e >= 1 && s > 0 ? std::clamp(e * gain / s, -most, most) : 0;
        for (int c = 0; c < 3; ++c) {
            const int64_t v = (planes[c][i] * k) >> fix_bits;
            planes[c][i] = static_cast<FixPixel>(std::clamp<int64_t>(v, -fix_image_limit, fix_image_limit));
        }
    }
}

}  // namespace

void threshold_images_1(FixPixel* plane, const int32_t* thresholds, int32_t gain, int count) {
    const int32_t threshold = thresholds[0];
    if (threshold == 0) return;
    const ToneRows& rows = tone_rows();
    fork_rows(count, [&](int first, int n) { rows.threshold(plane + first, threshold, gain, n); });
}

void threshold_images_3(FixPixel* const* planes, const int32_t* thresholds, int32_t gain, int count) {
    if (thresholds[0] == 0 && thresholds[1] == 0 && thresholds[2] == 0) return;
    // Far below any sample; sums and products of what lies above stay within 64 bits.
    constexpr int32_t lowest = -(1 << 30);
    int32_t held[3];
    int64_t above = 0;
    for (int c = 0; c < 3; ++c) {
        held[c] = std::max(thresholds[c], lowest);
        above += std::max<int64_t>(int64_t{fix_image_limit} - held[c], 0);
    }
    constexpr int64_t bound = int64_t{1} << 34;
    const bool steep = above * std::abs(int64_t{gain}) > bound;
    const ToneRows& rows = tone_rows();
    fork_rows(count, [&](int first, int n) {
        FixPixel* const at[] = {planes[0] + first, planes[1] + first, planes[2] + first};
        if (steep)
            steep_threshold_3(at, held, gain, n);
        else
            rows.threshold_3(at, held, gain, n);
    });
}

}  // namespace velloran
