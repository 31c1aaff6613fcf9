// Glows and glints on lights whose spread is known.
#include "operators/glow/glow_functions.h"

#include "operators/blur/blur_image.h"
#include "testing/filter_node.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>

using namespace velloran;
using velloran_tests::FilterFrameRig;
using velloran_tests::Plane;
using velloran_tests::random_plane;

namespace {

int held(double v) { return static_cast<int>(std::clamp(std::trunc(v), -32767.0, 32767.0)); }

// One light of a value in a black plane.
Plane light_at(int width, int height, int x, int y, int value) {
    Plane plane(static_cast<size_t>(width * height));
    plane[y * width + x] = static_cast<FixPixel>(value);
    return plane;
}

}  // namespace

TEST(Glow, IsSoftThresholdBlurAndSum) {
    FilterFrameRig rig(64, 40);
    const std::vector<Plane> in = {random_plane(64, 40), random_plane(64, 40, 0, 4095, 2),
                                   random_plane(64, 40, -2000, 4095, 3)};
    const double thresholds[] = {0.5, 0.25, 0.75}, widths[] = {0.5, 0.25, 0}, brightness[] = {1.5, 1, 4},
                 sources[] = {1, 1, 1};
    const std::vector<Plane> out =
        rig.run(image_glow, 3, 3, {in, {0.5, 0.25, 0.75}, {1, 0.5}, {0.5, 0.25, 0}, {1.5, 1, 4}, 1.0, 1.0});
    for (int c = 0; c < 3; ++c) {
        Plane light(in[c].size());
        for (size_t i = 0; i < light.size(); ++i) {
            int64_t above = 0, positive = 0;
            for (int k = 0; k < 3; ++k) {
                above += std::max<int64_t>(in[k][i] - static_cast<int64_t>(thresholds[k] * 4096), 0);
                positive += std::max<int64_t>(in[k][i], 0);
            }
            const int64_t part = positive > 0 ? above * 4096 / positive : 0;
            light[i] = static_cast<FixPixel>((in[c][i] * part) >> 12);
        }
        const int32_t radius = static_cast<int32_t>(widths[c] * 8 * 4096);
        const BlurSettings blur = {.x_radius = radius,
                                   .y_radius = radius / 2,
                                   .subpixel = true,
                                   .gain = static_cast<int32_t>(brightness[c] * 4096)};
        blur_image(light.data(), light.data(), blur, {64, 40});
        for (size_t i = 0; i < light.size(); ++i) ASSERT_EQ(out[c][i], held(in[c][i] * sources[c] + light[i])) << c;
    }
}

TEST(Glow, OneGreyImageGlowsInThreeColors) {
    FilterFrameRig rig(80, 20);
    const std::vector<Plane> in = {light_at(80, 20, 40, 10, 30000)};
    const std::vector<Plane> out = rig.run(image_glow, 3, 3, {in, 0.5, {1, 1}, {0.1, 0.2, 0.4}, {1, 1, 0}, 0.25, 0.0});
    EXPECT_GT(out[0][10 * 80 + 41], out[1][10 * 80 + 41]);
    EXPECT_EQ(out[0][10 * 80 + 45], 0);
    EXPECT_EQ(out[2][10 * 80 + 40], 7500);  // the source alone
    EXPECT_EQ(out[2][10 * 80 + 41], 0);
}

TEST(Glint, ArmsFadeFromTheLight) {
    constexpr int width = 160, height = 100, x = 70, y = 45, value = 20000;
    FilterFrameRig rig(width, height);
    const std::vector<Plane> in = {light_at(width, height, x, y, value + 2048)};
    const double sizes[] = {1, 0.5, 0.75, 0.25}, bright[] = {1, 0.5, 2, 1};
    const Plane out =
        rig.run(image_glint, 1, 2, {in, 0.5, 0.0, 2.0, 0.5, {1, 0.5, 0.75, 0.25}, {1, 0.5, 2, 1}, 0.0})[0];
    const int steps[4][2] = {{1, 0}, {0, 1}, {1, 1}, {-1, 1}};
    double lit = 0;
    for (int arm = 0; arm < 4; ++arm)
        for (int k = -30; k <= 30; ++k) {
            if (k == 0) continue;
            // Fifty times fainter at the arm's length; a light of a 200th of the width shines as bright as it is.
            const double unit = arm > 1 ? std::sqrt(2.0) : 1, length = sizes[arm] * 2 * width / 8;
            const double want =
                value * 0.5 * bright[arm] * unit * 200 / width * std::exp(-4 * std::abs(k) * unit / length);
            const int got = out[(y + k * steps[arm][1]) * width + x + k * steps[arm][0]];
            EXPECT_NEAR(got, held(want), 2) << "arm " << arm << " at " << k;
            lit += got;
        }
    double all = 0;
    for (int i = -30; i <= 30; ++i)
        for (int j = -30; j <= 30; ++j) all += i || j ? out[(y + j) * width + x + i] : 0;
    EXPECT_EQ(all, lit);  // nothing between the arms
    // Two lights on one arm add up, and the picture itself shows.
    Plane two = in[0];
    two[y * width + x + 10] = value + 2048;
    const Plane sum =
        rig.run(image_glint, 1, 2, {std::vector<Plane>{two}, 0.5, 0.0, 2.0, 0.25, {1, 0, 0, 0}, {1, 0, 0, 0}, 1.0})[0];
    EXPECT_NEAR(sum[y * width + x + 5], 2 * value * 0.25 * 1.25 * std::exp(-0.5), 3);
    EXPECT_EQ(sum[(y + 1) * width + x + 5], 0);
}

TEST(Glint, IsTheSameAtHalfResolution) {
    Plane full(160 * 96), half(80 * 48);
    for (int j = 0; j < 8; ++j)
        for (int i = 0; i < 8; ++i) {
            full[(40 + j) * 160 + 80 + i] = 3000;
            half[(20 + j / 2) * 80 + 40 + i / 2] = 3000;
        }
    const auto run = [](FilterFrameRig& rig, const Plane& in) {
        return rig.run(image_glint, 1, 2,
                       {std::vector<Plane>{in}, 0.25, 0.0, 1.0, 1.0, {1, 1, 1, 1}, {1, 1, 1, 1}, 0.0})[0];
    };
    Plane fine, coarse;
    {
        FilterFrameRig rig(160, 96);
        fine = run(rig, full);
    }
    {
        FilterFrameRig rig(160, 96, 2, 2);
        coarse = run(rig, half);
    }
    for (const int x : {10, 30, 55, 70})
        EXPECT_NEAR(coarse[21 * 80 + x], (fine[42 * 160 + 2 * x] + fine[42 * 160 + 2 * x + 1]) / 2, 120) << x;
}

TEST(RainbowGlint, ColorsLieApart) {
    constexpr int width = 400, height = 60;
    FilterFrameRig rig(width, height);
    const std::vector<Plane> in = {light_at(width, height, 40, 30, 32000)};
    const std::vector<Plane> out = rig.run(
        image_rainbow_glint, 3, 4, {in, 0.1, 0.0, 3.0, {0.5, 0.5, 0.5}, {1, 0, 0, 0}, {1, 0, 0, 0}, {1, 1}, 0.0});
    // All of it swells: the brightest places are at half of each colour's length.
    for (int c = 0; c < 3; ++c) {
        const auto row = out[c].begin() + 30 * width;
        const int brightest = static_cast<int>(std::max_element(row + 41, row + width) - row) - 40;
        EXPECT_NEAR(brightest, 0.5 * 3 * width / 8 * (1.5 - 0.5 * c), 3) << c;
    }
    const std::vector<Plane> white =
        rig.run(image_rainbow_glint, 3, 4, {in, 0.1, 0.0, 3.0, {1, 1, 1}, {1, 1, 1, 1}, {1, 1, 1, 1}, {0, 0}, 0.0});
    EXPECT_EQ(white[0], white[2]);
}
