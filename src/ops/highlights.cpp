#include "ops/highlights.h"

#include "engine/tasks.h"

#include <algorithm>

namespace velloran {

namespace {

constexpr float most_boost = 28671.0f;  // with native white the largest boosted sample
constexpr float most_sample = 32766.0f;

FixPixel* fork_planes[4];
int fork_vlen, fork_n;
float fork_amount, fork_threshold, fork_top;

void forked_boost() {
    int first, n;
    get_proc_stripe(fork_n, &first, &n);
    const float u = 1.0f - fork_threshold, to_unit = 1.0f / (4096.0f * fork_top), t = fork_threshold;
    const float boost = fork_amount * u * 4096.0f;
    for (int c = 0; c < fork_vlen; ++c) {
        FixPixel* p = fork_planes[c] + first;
        for (int i = 0; i < n; ++i) {
            const float v = std::max(static_cast<float>(p[i]) * to_unit - t, 0.0f) / u;
            const float raised = static_cast<float>(p[i]) + std::min(boost * v * v, most_boost) * fork_top;
            p[i] = static_cast<FixPixel>(std::clamp(raised, -32767.0f, most_sample));
        }
    }
}

}  // namespace

float boost_highlights_maxval(float amount, float threshold) {
    const float u = std::max(1.0f - threshold, 0.0f);
    return (std::min(static_cast<float>(static_cast<int>(std::min(amount * u * 4096.0f, 1e9f))), most_boost) +
            4095.0f) /
           4096.0f;
}

void boost_highlights(FixPixel* const* planes, int vlen, float amount, float threshold, float top, int n) {
    if (threshold >= 1.0f || amount <= 0.0f) return;
    std::copy(planes, planes + vlen, fork_planes);
    fork_vlen = vlen;
    fork_amount = amount;
    fork_threshold = threshold;
    fork_top = top;
    fork_n = n;
    fork_processes(forked_boost);
}

}  // namespace velloran
