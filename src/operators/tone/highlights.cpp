#include "operators/tone/highlights.h"

#include "operators/tone/tone_rows.h"
#include "tasks/fork_rows.h"

#include <algorithm>

namespace velloran {

namespace {

constexpr float most_boost = 28671.0f;  // with native white the largest boosted sample
constexpr float most_sample = 32766.0f;

}  // namespace

float boost_highlights_maxval(float amount, float threshold) {
    const float u = std::max(1.0f - threshold, 0.0f);
    return (std::min(static_cast<float>(static_cast<int>(std::min(amount * u * 4096.0f, 1e9f))), most_boost) +
            4095.0f) /
           4096.0f;
}

void boost_highlights(FixPixel* const* planes, int vlen, float amount, float threshold, float top, int n) {
    if (threshold >= 1.0f || amount <= 0.0f) return;
    const float room = 1.0f - threshold;
    const HighlightBoost boost = {
        1.0f / (4096.0f * top), threshold, room, std::min(amount * room * 4096.0f, most_boost), top, most_sample};
    const ToneRows& rows = tone_rows();
    fork_rows(n, [&](int first, int count) {
        for (int c = 0; c < vlen; ++c) rows.boost(planes[c] + first, boost, count);
    });
}

}  // namespace velloran
