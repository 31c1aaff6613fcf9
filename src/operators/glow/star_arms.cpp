#include "operators/glow/star_arms.h"

#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

// A light as long as this part of the frame's width has arms as bright as itself.
constexpr float light_length = 1.0f / 200.0f;

// Lines that climb from row to row by slope samples, counted by where they meet row 0: sample x of row y lies on line
// x - slope * y. first .. first + n of them, from below (way 1) or from above.
void run_lines(const FixPixel* light, float* sum, int slope, int way, int first, int n, const ArmKernel& kernel,
               const FilterFrame& frame, float* carried, const GlowRows& rows) {
    std::fill(carried, carried + ptrdiff_t{n} * (1 + arm_stages), 0.0f);
    for (int k = 0; k < frame.height; ++k) {
        if ((k & 63) == 0 && poll_abort()) return;
        const int y = way > 0 ? k : frame.height - 1 - k;
        const int left = std::max(first + slope * y, 0), right = std::min(first + n + slope * y, frame.width);
        if (left >= right) continue;
        const ptrdiff_t at = ptrdiff_t{y} * frame.width + left;
        rows.step(light + at, sum + at, carried + (left - slope * y - first), n, kernel, way > 0, right - left);
    }
}

}  // namespace

ArmKernel make_arm_kernel(StarArm arm, float length, float brightness, float swell, float middle,
                          const FilterFrame& frame) {
    // Along a diagonal a sample is longer.
    const float unit = arm == arm_rising || arm == arm_falling ? 1.41421356f : 1.0f;
    const float gain = brightness * unit / (light_length * static_cast<float>(std::max(frame.widest(), 1)));
    ArmKernel kernel = {std::exp(-4.0f * unit / std::max(length, 0.01f)), gain * (1 - swell), 0, 0};
    if (swell > 0 && middle > 0) {
        // Spread out as it is, four tenths of it at its brightest look as bright as the light that fades.
        // Four stages have let through k (k - 1) (k - 2) / 6 * decay^k after k samples, the most near k = 3 /
        // -log(decay).
        const float rate = 3.0f * unit / std::max(middle, 3.0f * unit);
        const float k = std::max(middle / unit, 3.0f);
        kernel.swell_decay = std::exp(-rate);
        kernel.swell_gain = 0.4f * gain * swell * 6.0f * std::exp(3.0f) / (k * k * k);
    }
    return kernel;
}

void add_star_arm(const FixPixel* light, float* sum, StarArm arm, const ArmKernel& kernel, const FilterFrame& frame) {
    const GlowRows& rows = glow_rows();
    if (arm == arm_level) {
        fork_rows_if_big_image(frame.width, frame.height, [&](int first, int n) {
            for (int y = first; y < first + n; ++y) {
                if ((y & 63) == 0 && poll_abort()) return;
                rows.along(light + ptrdiff_t{y} * frame.width, sum + ptrdiff_t{y} * frame.width, kernel, frame.width);
            }
        });
        return;
    }
    const int slope = arm == arm_rising ? 1 : arm == arm_falling ? -1 : 0;
    const int lowest = slope > 0 ? -(frame.height - 1) : 0;
    const int n_lines = frame.width + (slope ? frame.height - 1 : 0);
    constexpr int block = 1024;  // lines whose light stays in the first cache
    const size_t bytes = static_cast<size_t>(block) * (1 + arm_stages) * sizeof(float);
    maybe_malloc_forked_buffers(bytes, 1);
    fork_rows(n_lines, [&](int first, int n) {
        auto* const carried = static_cast<float*>(get_forked_buffer(0, bytes));
        for (int done = 0; done < n; done += block)
            for (const int way : {1, -1})
                run_lines(light, sum, slope, way, lowest + first + done, std::min(block, n - done), kernel, frame,
                          carried, rows);
    });
}

}  // namespace velloran
