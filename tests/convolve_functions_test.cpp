// Convolution by a kernel picture, linear light around it, and hole filling.
#include "operators/convolve/convolve_functions.h"

#include "operators/convolve/convolution.h"
#include "operators/convolve/kernel_picture.h"
#include "operators/tone/gamma_table.h"
#include "operators/tone/highlights.h"
#include "operators/tone/hole_filling.h"
#include "support/abort.h"
#include "testing/caught_messages.h"
#include "testing/filter_node.h"

#include <gtest/gtest.h>

#include <csetjmp>

using namespace velloran;
using velloran_tests::FilterFrameRig;
using velloran_tests::Messages;
using velloran_tests::Plane;
using velloran_tests::plane_of;
using velloran_tests::random_plane;

namespace {

// The arguments of a convolution by a kernel of some planes; a test changes what it is about.
struct Call {
    std::vector<Plane> image, kernel;
    std::vector<double> corner_1 = {0, 0}, corner_2 = {0, 0}, center = {0, 0}, scale = {1, 1};
    double gamma = 1, dest_scale = 1, colors = 0, autocenter = 0;
    std::vector<double> edges = {1, 1};
    double autoscale = 2, threshold = 0, boost = 0, boost_from = 0.8;
};

using Arg = FilterFrameRig::Arg;
Arg numbers(const std::vector<double>& v) {
    Arg arg(0.0);
    arg.numbers = v;
    return arg;
}

std::vector<Plane> convolved(FilterFrameRig& rig, const Call& c) {
    const int n = static_cast<int>(std::max(c.image.size(), c.kernel.size()));
    return rig.run(image_convolve, n, n,
                   {Arg(c.image), Arg(c.kernel), numbers(c.corner_1), numbers(c.corner_2), numbers(c.center),
                    numbers(c.scale), Arg(c.gamma), Arg(c.dest_scale), Arg(c.colors), Arg(c.autocenter),
                    numbers(c.edges), Arg(c.autoscale), Arg(c.threshold), Arg(c.boost), Arg(c.boost_from)});
}

Plane dot(const FilterFrameRig& rig, int x, int y, int value = 4000) {
    return plane_of(rig.width, rig.height, [&](int i, int j) { return i == x && j == y ? value : 0; });
}

}  // namespace

TEST(ConvolveFunction, TheKernelsCentreIsThePicturesMiddle) {
    FilterFrameRig rig(60, 40);
    Call c;
    c.image = {random_plane(60, 40)};
    c.kernel = {dot(rig, 30, 20)};
    EXPECT_EQ(convolved(rig, c)[0], c.image[0]);
    const auto moved = [&](int dx, int dy) {
        return plane_of(60, 40, [&](int x, int y) {
            return c.image[0][std::clamp(y - dy, 0, 39) * 60 + std::clamp(x - dx, 0, 59)];
        });
    };
    c.kernel = {dot(rig, 35, 17)};
    EXPECT_EQ(convolved(rig, c)[0], moved(5, -3));
    c.center = {5, -3};
    EXPECT_EQ(convolved(rig, c)[0], c.image[0]);
    c.center = {0, 0};
    c.autocenter = 1;
    EXPECT_EQ(convolved(rig, c)[0], c.image[0]);
    // Corners cut the rest of the picture away.
    c.autocenter = 0;
    c.kernel = {plane_of(60, 40, [](int x, int y) { return x == 30 && y == 20 ? 4000 : x > 40 ? 1000 : 0; })};
    c.corner_1 = {35, 30};
    c.corner_2 = {20, 10};
    EXPECT_EQ(convolved(rig, c)[0], c.image[0]);
}

TEST(ConvolveFunction, KernelsAreKeptUntilTheirPictureChanges) {
    FilterFrameRig rig(60, 40);
    Call c;
    c.image = {random_plane(60, 40)};
    c.kernel = {random_plane(60, 40, 0, 4095, 9)};
    const int before = fft_kernels_built;
    const Plane first = convolved(rig, c)[0];
    c.image = {random_plane(60, 40, 0, 4095, 3)};
    convolved(rig, c);
    EXPECT_EQ(fft_kernels_built, before + 1);
    c.kernel[0][700] ^= 1;
    convolved(rig, c);
    EXPECT_EQ(fft_kernels_built, before + 2);
    // With corners every sample between them counts, and no other.
    c.corner_1 = {12, 7};
    c.corner_2 = {19, 10};
    convolved(rig, c);
    int built = before + 3;
    for (const auto& [x, y] : {std::pair{12, 7}, {18, 9}, {15, 8}, {16, 7}, {11, 8}, {19, 8}, {13, 6}, {13, 10}}) {
        c.kernel[0][static_cast<size_t>(y) * 60 + static_cast<size_t>(x)] ^= 1;
        convolved(rig, c);
        built += x >= 12 && x < 19 && y >= 7 && y < 10;
        EXPECT_EQ(fft_kernels_built, built) << x << "," << y;
    }
}

// A corner a thousandth of a pixel before another lies in another sample.
TEST(ConvolveFunction, KernelsOfWideFramesAreToldApart) {
    FilterFrameRig rig(2400, 4);
    Call c;
    c.image = {random_plane(2400, 4)};
    c.kernel = {plane_of(2400, 4, [](int x, int) { return x == 1999 ? 4000 : x == 2003 ? 2000 : 0; })};
    c.corner_2 = {2010, 4};
    const int before = fft_kernels_built;
    for (const double x : {1999.999, 2000.0}) {
        c.corner_1 = {x, 0};
        convolved(rig, c);
    }
    EXPECT_EQ(fft_kernels_built, before + 2);
}

TEST(ConvolveFunction, ColorsThresholdsAndScale) {
    FilterFrameRig rig(60, 40);
    Call c;
    c.image = {Plane(60 * 40, 1000), Plane(60 * 40, 2000), Plane(60 * 40, 3000)};
    c.kernel = {dot(rig, 30, 20, 4000), dot(rig, 30, 20, 2000), dot(rig, 30, 20, 0)};
    c.autoscale = 0;  // by the largest sum
    c.colors = 1;
    std::vector<Plane> out = convolved(rig, c);
    EXPECT_EQ(out[0][5], 1000);
    EXPECT_EQ(out[1][5], 1000);
    EXPECT_EQ(out[2][5], 0);
    c.colors = 0;
    c.dest_scale = 0.5;
    out = convolved(rig, c);
    EXPECT_EQ(out[0][5], 500);
    EXPECT_EQ(out[2][5], 1500);
    c.dest_scale = 1;
    c.threshold = 0.25;  // 1024: what lies above it of all three, shared out by colour
    const int k = (2000 - 1024 + 3000 - 1024) * 4096 / 6000;
    EXPECT_NEAR(convolved(rig, c)[1][5], (2000 * k) >> 12, 1);
    // A kernel of twice the size is as bright.
    c = {};
    c.image = {Plane(60 * 40, 2000)};
    c.kernel = {plane_of(60, 40, [](int x, int y) { return std::abs(x - 30) < 4 && std::abs(y - 20) < 3 ? 3000 : 0; })};
    for (const double scale : {0.5, 1.0, 2.5}) {
        c.scale = {scale, scale};
        for (const FixPixel v : Plane(convolved(rig, c)[0])) ASSERT_NEAR(v, 2000, 1) << scale;
    }
}

TEST(ConvolveFunction, TooManyChannelsAreFatal) {
    FilterFrameRig rig(20, 10);
    const Messages messages;
    Node node = {}, image = {}, kernel = {};
    node.elnum = image.elnum = 1;
    kernel.elnum = 3;
    Plane plane(200);
    image.images[0] = node.images[0] = plane.data();
    image.image_count = 1;
    image.flags = node_images_valid;
    image.pass_arg = kernel.pass_arg = -1;
    node.args[0] = &image;
    node.args[1] = &kernel;
    AbortTarget outer;
    arm_abort(outer);
    static volatile bool landed;
    landed = false;
    if (setjmp(_V_jmpbuf))
        landed = true;
    else
        image_convolve(&node);
    disarm_abort(outer);
    EXPECT_TRUE(landed);
    EXPECT_EQ(messages.count("9 Convolve internal error: kernel has too many channels (3); dest has 1."), 1);
}

TEST(ConvolveImages, PowersAndHighlightsComeBack) {
    FilterFrameRig rig(60, 40);
    Call c;
    c.image = {plane_of(60, 40, [](int x, int y) { return (x + 60 * y) * 4095.0 / 2399; })};
    c.kernel = {dot(rig, 30, 20)};
    c.gamma = 2.2;
    Plane out = convolved(rig, c)[0];
    for (size_t i = 0; i < out.size(); ++i) ASSERT_NEAR(out[i], c.image[0][i], 8);
    // Spread in linear light, a bright point weighs more than its number says.
    c.kernel = {plane_of(60, 40, [](int x, int y) { return y == 20 && std::abs(x - 30) < 2 ? 4000 : 0; })};
    c.image = {dot(rig, 30, 20)};
    EXPECT_NEAR(convolved(rig, c)[0][20 * 60 + 30], 4000 * std::pow(1 / 3.0, 1 / 2.2), 6);
    // Highlights: what stands above the threshold is raised, 1.0 by the boost times what there is room for.
    c.gamma = 1;
    c.boost = 3;
    c.boost_from = 0.5;
    const double v = (4000 / 4096.0 - 0.5) / 0.5;
    EXPECT_NEAR(convolved(rig, c)[0][20 * 60 + 30], (4000 + 4096 * 3 * 0.5 * v) / 3, 2);
    Plane bright = {4095, 32767};
    FixPixel* planes[] = {bright.data()};
    boost_highlights(planes, 1, 100, 0.1f, 1, 2);
    EXPECT_NEAR(bright[0], 32766, 28671 / 3686 + 1);  // 1/4096 under 1.0
    EXPECT_EQ(bright[1], 32766);
    EXPECT_FLOAT_EQ(boost_highlights_maxval(100, 0.1f), 32766 / 4096.0f);
    EXPECT_FLOAT_EQ(boost_highlights_maxval(2, 1.5f), 4095 / 4096.0f);
}

TEST(ConvolveImages, WithoutARecordIsFatal) {
    FilterFrameRig rig(20, 10);
    const Messages messages;
    AbortTarget outer;
    arm_abort(outer);
    static volatile bool landed;
    landed = false;
    const ConvolveParams params = {1, 0, 0, 1, nullptr};
    if (setjmp(_V_jmpbuf))
        landed = true;
    else
        convolve_images(nullptr, nullptr, 0, 0, &params);
    disarm_abort(outer);
    EXPECT_TRUE(landed);
    EXPECT_EQ(messages.count("8 convolve_images: params->fft_info not set!\n"), 1);
}

TEST(HoleFilling, ContentSpreadsIntoItsGaps) {
    FilterFrameRig rig(90, 60);
    // Two flat halves with a hole in each; black where the matte is.
    const Plane matte =
        plane_of(90, 60, [](int x, int y) { return std::abs(x % 45 - 22) < 6 && std::abs(y - 30) < 6 ? 0 : 4096; });
    const Plane in = plane_of(90, 60, [&](int x, int y) { return matte[y * 90 + x] ? (x < 45 ? 1000 : 3000) : 0; });
    Plane out(in.size()), work(in.size());
    enlarge_edges_step1(40, 5, -4, 90, 60);
    const FixPixel* source[] = {in.data()};
    FixPixel* dest[] = {out.data()};
    enlarge_edges_step2(source, dest, 1, matte.data(), work.data(), 90, 60);
    for (size_t i = 0; i < in.size(); ++i)
        if (matte[i]) {
            ASSERT_EQ(out[i], in[i]);
        }
    EXPECT_NEAR(out[30 * 90 + 22], 1000, 120);
    EXPECT_NEAR(out[30 * 90 + 67], 3000, 120);
    // Far from all content there is nothing to fill with, and nothing is made up.
    const Plane corner = plane_of(90, 60, [](int x, int y) { return x < 9 && y < 9 ? 4096 : 0; });
    const Plane bright = plane_of(90, 60, [&](int x, int y) { return corner[y * 90 + x] ? 32767 : 0; });
    const FixPixel* lit[] = {bright.data()};
    for (const float power : {-1.0f, -4.0f, -9.0f}) {
        enlarge_edges_step1(30, 5, power, 90, 60);
        enlarge_edges_step2(lit, dest, 1, corner.data(), work.data(), 90, 60);
        for (int y = 0; y < 60; ++y)
            for (int x = 0; x < 90; ++x) {
                if (x > 24 || y > 24) {
                    ASSERT_EQ(out[y * 90 + x], 0) << x << "," << y << " power " << power;
                } else if (x < 12 && y < 12) {
                    ASSERT_NEAR(out[y * 90 + x], 32767, 40) << x << "," << y << " power " << power;
                }
            }
    }
    const Messages messages;
    enlarge_edges_step1(40, 5, 2, 90, 60);
    EXPECT_EQ(messages.count("8 diffuse_into_holes: power (2) must be < 0\n"), 1);
}
