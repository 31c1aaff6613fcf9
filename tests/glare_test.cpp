// Glares: a kernel that is one flare, kept while nothing about it changes, or one flare on each light.
#include "operators/glare/glare_functions.h"

#include "operators/convolve/convolution.h"
#include "testing/caught_messages.h"
#include "testing/filter_node.h"
#include "testing/flare_files.h"

#include <gtest/gtest.h>

using namespace velloran;
using velloran_tests::FilterFrameRig;
using velloran_tests::Flares;
using velloran_tests::Messages;
using velloran_tests::Plane;

namespace {

constexpr int width = 160, height = 96;

// The table holds two glares while this lives.
class GlareTest : public testing::Test {
protected:
    void SetUp() override {
        FlareTable& table = glare_table();
        table.flares[0] = flares.flares[0];
        table.flares[1] = flares.flares[1];
        table.count = 2;
    }
    void TearDown() override {
        FlareTable& table = glare_table();
        table.flares[0] = table.flares[1] = nullptr;
        table.count = 0;
    }
    std::vector<Plane> glare(const std::vector<Plane>& image, double size, double type, double convolve,
                             double rotate = 0) {
        return rig.run(image_glare, 3, 3,
                       {image, 0.25, 0.0, {size, size}, {1, 1, 0.5}, 1.0, type, convolve, rotate, 1.0, 1.0, 1.0, 1.0});
    }
    const Messages messages;
    const Flares flares{
        "begin Disc blob radii 0.25 colors 1 0.5 1 end begin Ray rays color 1 1 1 ray_number 2 "
        "jitter_angles 0 start_angle 0 radius_range 0.3 0.3 ray_width 0.06 rand_seed 1 end",
        false};
    FilterFrameRig rig{width, height};
};

double falloff(double t) {
    t = std::min(t, 1.0);
    return 1 - 2.467401 * t + 2.029356 * t * t - 0.66763139 * t * t * t + 0.10567641 * t * t * t * t;
}

Plane two_lights() {
    Plane plane(width * height);
    plane[30 * width + 50] = 9216;  // 2.0 above the threshold
    plane[60 * width + 120] = 3072;
    return plane;
}

}  // namespace

TEST_F(GlareTest, SpreadsTheFlareOverEachLight) {
    const Plane image = two_lights();
    const std::vector<Plane> out = glare({image}, 1, 0, 1);
    const int kernel = 2 * (20 + 2) + 1;  // a radius of a quarter of half the width, and a margin
    const double gain = 10000.0 / (kernel * kernel);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            double light =
                2 * falloff(std::hypot(x - 50, y - 30) / 20) + 0.5 * falloff(std::hypot(x - 120, y - 60) / 20);
            light *= gain * 4096;
            ASSERT_NEAR(out[0][y * width + x], std::min(light, 32767.0), 16) << x << ' ' << y;
            ASSERT_NEAR(out[1][y * width + x], 0.5 * light, 16);
            ASSERT_NEAR(out[2][y * width + x], 0.5 * light, 16);
        }
}

TEST_F(GlareTest, KeepsTheKernelWhileItsKeyStays) {
    const Plane image = two_lights();
    const std::vector<Plane> first = glare({image}, 1, 0, 1);
    const int built = fft_kernels_built;
    EXPECT_EQ(glare({image}, 1, 0, 1), first);
    EXPECT_EQ(fft_kernels_built, built);
    EXPECT_NE(glare({image}, 0.999, 0, 1), first);
    EXPECT_EQ(fft_kernels_built, built + 1);
    glare({image}, 0.999, 1, 1);
    const std::vector<Plane> level = glare({image}, 0.999, 1, 1);
    EXPECT_EQ(fft_kernels_built, built + 2);
    EXPECT_GT(level[0][30 * width + 60], 0);
    EXPECT_EQ(level[0][40 * width + 50], 0);
    const std::vector<Plane> upright = glare({image}, 0.999, 1, 1, 90);
    EXPECT_EQ(upright[0][30 * width + 60], 0);
    EXPECT_GT(upright[0][40 * width + 50], 0);
}

TEST_F(GlareTest, DrawsOneFlareOnEachLight) {
    Plane image = two_lights();
    image[60 * width + 121] = 3072;
    const std::vector<Plane> out = glare({image}, 1, 0, 0);
    EXPECT_NEAR(out[0][30 * width + 60], std::min(2.0 * 4096 * falloff(0.5), 4096.0), 2);
    EXPECT_NEAR(out[1][30 * width + 60], std::min(0.5 * 2.0 * 4096 * falloff(0.5), 4096.0), 2);
    EXPECT_NEAR(out[0][60 * width + 130], 0.5 * 4096 * falloff(9.5 / 20), 2);
}

TEST_F(GlareTest, TypesOutsideTheTableAndNoTable) {
    const Plane image = two_lights();
    EXPECT_EQ(glare({image}, 1, 5, 1), glare({image}, 1, 0, 1));
    EXPECT_EQ(messages.count("8 lens flare type 5 is out of bounds: 0 - 1."), 1);
    glare_table().count = 0;
    the_frame->failed = false;
    glare({image}, 1, 0, 1);
    EXPECT_TRUE(the_frame->failed);
    EXPECT_EQ(messages.count("8 There is no glare to draw."), 1);
    the_frame->failed = false;
}
