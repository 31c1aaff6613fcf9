// The row functions of blur_warp: lines of pixels that are followed together, against each alone.
#include "operators/warps/smear_rows.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>

#include <random>

using namespace velloran;
using namespace velloran_tests;

namespace {

// Lines of neighbours that have the same course are followed together, in stretches; each alone is its own model.
TEST(WarpsSmear, NeighboursSmearAsEachAlone) {
    std::mt19937 rng(3);
    constexpr int width = 150, height = 40, n = 200;
    for (int i = 0; i < 48; ++i) {
        const int elements = 1 + i % 4;
        const auto draw = [&](int most) { return static_cast<int>(rng() % static_cast<unsigned>(most)); };
        SmearPlan plan = {};
        plan.row_samples = static_cast<uint32_t>((width + 2) * elements);
        plan.width = width;
        plan.height = height;
        for (AxisWrap* const wrap : {&plan.x_wrap, &plan.y_wrap}) {
            wrap->on = draw(3) == 0;
            wrap->mirrored = draw(2) == 0;
            wrap->period = (wrap == &plan.x_wrap ? width : height) << fix_bits;
            wrap->inverse_period = 1.0f / static_cast<float>(wrap->period);
        }
        plan.subpixel = draw(2);
        plan.skip = draw(2);
        plan.most_steps = 16384;
        plan.start_weight = draw(2) ? 4096 : 1000;
        plan.end_weight = 8192 - plan.start_weight;
        plan.gain = 1.25f;
        plan.outside_counts = draw(2);
        plan.outside[1] = 700;
        std::vector<int16_t> data(plan.row_samples * (height + 2) + 8);
        for (int16_t& v : data) v = static_cast<int16_t>(draw(65535) - 32767);
        plan.data = data.data();
        // A line of pixels that begins before the picture and ends behind it, often below or above it; now and then
        // the movement changes.
        std::vector<int32_t> from_x, from_y, to_x, to_y;
        const int dx = draw(60 * 4096) - 30 * 4096, dy = draw(30 * 4096) - 15 * 4096,
                  y = draw(2 * height * 4096) - height * 2048;
        for (int k = 0, more = 0; k < n; ++k) {
            if (draw(60) == 0) more = draw(3) * 5000;
            from_x.push_back((k - 20) * 4096 + 700);
            to_x.push_back(from_x.back() + dx + more);
            from_y.push_back(y);
            to_y.push_back(y + dy);
        }
        std::vector<FixPixel> want[4];
        const auto smear = [&](int first, int count, std::vector<FixPixel>* planes) {
            FixPixel* at[4] = {};
            for (int c = 0; c < elements; ++c) at[c] = planes[c].data() + first;
            smear_rows().smear[elements - 1](plan, &from_x[static_cast<size_t>(first)],
                                             &from_y[static_cast<size_t>(first)], &to_x[static_cast<size_t>(first)],
                                             &to_y[static_cast<size_t>(first)], at, count);
        };
        on_plain_target([&] {
            for (auto& plane : want) plane.assign(n, 0);
            for (int k = 0; k < n; ++k) smear(k, 1, want);
        });
        for_each_row_target([&](int64_t) {
            std::vector<FixPixel> planes[4];
            for (auto& plane : planes) plane.assign(n + 1, 77);
            smear(0, n, planes);
            for (int c = 0; c < elements; ++c) {
                EXPECT_EQ(planes[c].back(), 77);
                planes[c].pop_back();
                ASSERT_EQ(planes[c], want[c]) << "case " << i << " channel " << c;
            }
        });
    }
}

}  // namespace
