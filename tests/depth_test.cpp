// Depth layers: the slices and their mattes, and scenes of planes at known depths, against sums written out here.
#include "operators/convolve/convolution.h"
#include "operators/defocus/defocus_functions.h"
#include "operators/depth/depth_functions.h"
#include "operators/depth/z_images.h"
#include "operators/depth/z_kernels.h"
#include "operators/depth/z_rows.h"
#include "testing/caught_messages.h"
#include "testing/filter_node.h"

#include <gtest/gtest.h>

using namespace velloran;
using velloran_tests::FilterFrameRig;
using velloran_tests::Messages;
using velloran_tests::Plane;
using velloran_tests::plane_of;
using velloran_tests::random_plane;

namespace {

using Arg = FilterFrameRig::Arg;

// What each sample from 0 to 4096 is worth for each layer, in parts of 1: its sum over the layers, and that of the
// amounts.
struct Worths {
    std::vector<double> sum = std::vector<double>(4097), amount = std::vector<double>(4097);
    explicit Worths(const z_layers& layers) {
        Plane depth, worth(4097);
        for (int z = 0; z <= 4096; ++z) depth.push_back(static_cast<FixPixel>(z));
        for (int i = 0; i < layers.n; ++i) {
            const z_mask mask = mask_of_z_layer(layers, i, false);
            if (mask.last < mask.first) continue;
            z_rows().mask(depth.data(), worth.data(), mask, 4097);
            for (size_t z = 0; z <= 4096; ++z) {
                EXPECT_TRUE(worth[z] == 0 || (static_cast<int>(z) >= mask.first && static_cast<int>(z) <= mask.last));
                sum[z] += worth[z] / 4096.0;
                amount[z] += worth[z] / 4096.0 * static_cast<double>(layers.layers[i].amount);
            }
        }
    }
};

}  // namespace

TEST(ZLayers, MattesAddUpAndAmountsGrowEvenly) {
    const struct {
        int n;
        float focal, depth_of_field, near, far;
    } cases[] = {{12, 0.4f, 0.1f, 1, 1},
                 {1, 0.5f, 0, 1, 1},
                 {2, 0.3f, 0.2f, 1, 0.5f},
                 {30, 0.7f, 0.05f, 0.1f, 2},
                 {12, 0, 0, 0, 1},
                 {12, 1, 0, 1, 0},
                 {7, 0.5f, 1, 1, 1},
                 {1000, 0.6f, 0.01f, 0.01f, 1},
                 {12, -0.5f, 0, 1, 1},
                 {12, 1.7f, 0.1f, 1, 0.3f},
                 {12, 9, 0, 1, 1},
                 {248, -99, 3, 1, 1e-6f},
                 {12, 0.5f, 0.3f, 0, 0},
                 {5, 0.5f, 0, 1e4f, 1},
                 {12, 0.9f, 0.4f, 0.2f, 0.2f}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.n << " " << c.focal << " " << c.near << " " << c.far);
        const z_layers layers = make_z_layers(c.n, false, c.focal, c.depth_of_field, c.near, c.far);
        ASSERT_GT(layers.n, 0);
        const double lo = std::max(c.focal - c.depth_of_field / 2, -2.0f),
                     hi = std::min(c.focal + c.depth_of_field / 2, 3.0f);
        const Worths worths(layers);
        for (size_t z = 0; z <= 4096; ++z) {
            ASSERT_NEAR(worths.sum[z], 1, 1.01 / 4096) << z;
            const double depth = static_cast<double>(z) / 4096, near = static_cast<double>(c.near),
                         far = static_cast<double>(c.far);
            const double want = std::max({(lo - depth) * near, (depth - hi) * far, 0.0});
            const bool told = c.focal > -1 && c.focal < 2 && near + far > 0;
            ASSERT_NEAR(worths.amount[z], told ? want : worths.amount[z], 0.002 * std::max({near, far, 1.0})) << z;
        }
    }
}

TEST(ZLayers, CountsStepsAndEnds) {
    const auto count = [](int n) { return make_z_layers(n, false, 0.5f, 0, 1, 1).n; };
    EXPECT_EQ(count(1), count(2));
    EXPECT_LE(count(1), 2 * 2 + 2);
    EXPECT_EQ(count(1000), count(248));
    EXPECT_EQ(count(0), count(2));
    // One step lies between slices, and three at most on the side of the smaller amount.
    const auto step_of = [](const z_layers& l, bool far) {
        std::vector<float> centres;
        for (int i = 0; i < l.n; ++i)
            if (far ? l.layers[i].z_centre > l.hi : l.layers[i].z_centre < l.lo)
                centres.push_back(l.layers[i].z_centre);
        return centres[0] - centres[1];
    };
    for (const float far : {1.0f, 0.5f, 0.01f}) {
        const z_layers l = make_z_layers(21, false, 0.4f, 0.1f, 1, far);
        EXPECT_NEAR(step_of(l, false), 0.05, 1e-5) << far;
        EXPECT_NEAR(step_of(l, true), 0.05 * std::min(1 / static_cast<double>(far), 3.0), 1e-5) << far;
    }
    // No layer lies outside of the depths; the range in focus is told.
    const z_layers l = make_z_layers(12, true, 1.5f, 0.2f, 1, 1);
    int focus = 0, extra = 0;
    for (int i = 0; i < l.n; ++i) {
        EXPECT_GE(l.layers[i].z_max, 0);
        EXPECT_LE(l.layers[i].z_min, 4096);
        focus += l.layers[i].near_focus + l.layers[i].far_focus;
        extra += l.layers[i].extra_first;
    }
    EXPECT_EQ(focus, 0);
    EXPECT_EQ(extra, 1);
    EXPECT_FLOAT_EQ(max_focus_distance(0.3f, 0.2f, 2, 1), 0.6f);
    EXPECT_FLOAT_EQ(max_focus_distance(0.3f, 0.2f, 1, 2), 1.2f);
    // Kept while nothing changes.
    const int before = z_layers_built;
    make_z_layers(12, true, 1.5f, 0.2f, 1, 1);
    EXPECT_EQ(z_layers_built, before);
    make_z_layers(12, true, 1.5f, 0.2f, 1, 0.9f);
    EXPECT_EQ(z_layers_built, before + 1);
}

namespace {

constexpr int w = 240, h = 90;

// A three-pass box of a line of the picture, radius divided among the passes, mirrored at its ends.
std::vector<double> soft(std::vector<double> line, int radius) {
    int used = 0;
    for (int pass = 0; pass < 3; ++pass) {
        const int r = (radius - used) / (3 - pass), n = static_cast<int>(line.size());
        used += r;
        std::vector<double> out;
        for (int x = 0; x < n; ++x) {
            double sum = 0;
            for (int k = x - r; k <= x + r; ++k)
                sum += line[static_cast<size_t>(k < 0 ? -1 - k : k >= n ? 2 * n - 1 - k : k)];
            out.push_back(sum / (2 * r + 1));
        }
        line = out;
    }
    return line;
}

// A near bar before a far ground, each of a colour that varies across the frame; all rows are alike.
struct Scene {
    static bool bar(int x) { return x >= 90 && x < 150; }
    static double near(int x) { return 3000 + 400 * std::sin(x * 0.05); }
    static double far(int x) { return 700 + 500 * std::cos(x * 0.04); }
    static constexpr int near_z = 512, far_z = 3584;
    Plane picture = plane_of(w, h, [](int x, int) { return bar(x) ? near(x) : far(x); });
    Plane depth = plane_of(w, h, [](int x, int) { return bar(x) ? near_z : far_z; });
};

// Widths in samples for a distance of 1.0.
std::vector<Plane> z_blurred(FilterFrameRig& rig, const std::vector<Plane>& image, const Plane& depth, double layers,
                             double mode, double focal, double field, double width, double near = 1, double far = 1) {
    const int n = static_cast<int>(image.size()), extra = z_plane_count(n, false) - n;
    return rig.run(image_z_blur, n, extra,
                   {Arg(image),
                    Arg(std::vector<Plane>{depth}),
                    layers,
                    mode,
                    focal,
                    field,
                    {width * 8 / w, width * 8 / w},
                    near,
                    far});
}

}  // namespace

TEST(ZBlur, IsTheIdentityInFocus) {
    FilterFrameRig rig(w, h);
    const std::vector<Plane> in = {random_plane(w, h, -500, 32000), random_plane(w, h, 0, 4095, 2),
                                   random_plane(w, h, 0, 4095, 3)};
    const Plane depth = random_plane(w, h, -100, 4200, 4);
    const struct {
        double layers, mode, focal, field, near, far;
    } cases[] = {{12, 0, 0.3, 0.1, 0, 0}, {12, 1, 0.3, 0.1, 0, 0}, {1, 0, 0.5, 1, 1, 1}, {1000, 0, 0.5, 1.1, 1, 1}};
    for (const auto& c : cases) {
        const std::vector<Plane> out = z_blurred(rig, in, depth, c.layers, c.mode, c.focal, c.field, 30, c.near, c.far);
        for (int e = 0; e < 3; ++e)
            for (size_t i = 0; i < out[0].size(); ++i)
                ASSERT_NEAR(out[static_cast<size_t>(e)][i], in[static_cast<size_t>(e)][i], 1) << c.layers;
    }
}

// Near things spread over far ones; what lies behind a near thing goes on below its soft edge.
TEST(ZBlur, ANearBarOutOfFocusSpreadsOverTheGround) {
    FilterFrameRig rig(w, h);
    const Scene scene;
    // With 9 slices of an eighth, 1/16 behind its centre from the focus on: the bar lies on a centre.
    for (const double layers : {9.0, 33.0}) {
        const double focal = 3584 / 4096.0 - 0.5 / (layers - 1) * 1.0;
        const double width = 18 / (focal - Scene::near_z / 4096.0);
        const Plane out = z_blurred(rig, {scene.picture}, scene.depth, layers, 0, focal, 0, width, 1, 0)[0];
        std::vector<double> bar, color;
        for (int x = 0; x < w; ++x) {
            bar.push_back(Scene::bar(x));
            color.push_back(Scene::bar(x) ? Scene::near(x) : 0);
        }
        const std::vector<double> matte = soft(bar, 18), light = soft(color, 18);
        double most = 0;
        for (int x = 0; x < w; ++x) {
            const double want = light[static_cast<size_t>(x)] + (1 - matte[static_cast<size_t>(x)]) * Scene::far(x);
            most = std::max(most, std::fabs(out[static_cast<size_t>(40 * w + x)] - want));
        }
        EXPECT_LT(most, 60) << layers;  // of 3000
    }
}

TEST(ZBlur, ASharpBarHidesAGroundOutOfFocus) {
    FilterFrameRig rig(w, h);
    const Scene scene;
    for (const double mode : {0.0, 1.0}) {
        const double focal = mode == 0 ? Scene::near_z / 4096.0 : 0.3;
        const Plane out = z_blurred(rig, {scene.picture}, scene.depth, 33, mode, focal, 0.02, 18 / 0.75, 1, 1)[0];
        std::vector<double> ground;
        for (int x = 0; x < w; ++x) ground.push_back(Scene::far(x));
        const std::vector<double> want = soft(ground, 18);
        for (int x = 0; x < w; ++x) {
            const int v = out[static_cast<size_t>(40 * w + x)];
            if (Scene::bar(x))
                ASSERT_NEAR(v, Scene::near(x), 1) << x;
            else
                ASSERT_NEAR(v, want[static_cast<size_t>(x)], 140) << x;  // next to the bar it is known on one side
        }
    }
}

// A slope through the focus has no seams where slices meet, and a flat colour stays what it is.
TEST(ZBlur, SlopesHaveNoSeams) {
    FilterFrameRig rig(w, h);
    const Plane slope = plane_of(w, h, [](int x, int y) { return (x + y) * 4095.0 / (w + h - 2); });
    for (const double layers : {1.0, 2.0, 5.0, 12.0, 100.0})
        for (const double mode : {0.0, 1.0}) {
            const Plane flat = z_blurred(rig, {Plane(size_t{w} * h, 3000)}, slope, layers, mode, 0.5, 0.1, 60)[0];
            for (const FixPixel v : flat) ASSERT_NEAR(v, 3000, 12) << layers << " " << mode;
        }
}

TEST(ZProcess, LayersWithoutPixelsAreNotSpread) {
    FilterFrameRig rig(w, h);
    struct Count {
        int calls = 0;
        int rows = 0;
    } count;
    const z_operator op = {[](FixPixel*, const z_layer&, int, int, const ZBand& band, const void* settings) {
                               auto* const c = static_cast<Count*>(const_cast<void*>(settings));
                               ++c->calls;
                               c->rows = std::max(c->rows, band.count);
                           },
                           default_skip_layer,
                           [](float, const void*) { return 3; },
                           &count,
                           false,
                           true};
    std::vector<Plane> planes(static_cast<size_t>(z_plane_count(1, false)), Plane(size_t{w} * h));
    std::vector<FixPixel*> pointers;
    for (Plane& p : planes) pointers.push_back(p.data());
    const ZPlanes z = z_planes(pointers.data(), 1, false);
    // Depths of one slice in rows 20 to 29, the rest in focus.
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) z.depth[y * w + x] = y >= 20 && y < 30 ? 4095 : 2048;
    z_process_images(z, 1, {0.5f, 0.1f, 0, 1, 100, z_by_mattes}, op, {w, h});
    EXPECT_GE(count.calls, 2);  // the matte and the channel
    EXPECT_LE(count.calls, 4);  // of the two slices next to the depth
    EXPECT_EQ(count.rows, 16);
    const Messages messages;
    z_process_images(z, 1, {0.5f, 0.1f, 0, 1, 100, 7}, op, {w, h});
    EXPECT_EQ(messages.count("7 bad mode 7\n"), 1);
    EXPECT_EQ(count.rows, 16);
}

TEST(ZGlow, GrowsFromTheMiddleToTheEndsOfTheDepth) {
    FilterFrameRig rig(w, h);
    const auto point = [&](int z, double mode) {
        const Plane light = plane_of(w, h, [](int x, int y) { return x == 60 && y == 45 ? 30000 : 0; });
        const Plane depth = plane_of(w, h, [&](int x, int) { return x < 80 ? z : 0; });
        std::vector<Plane> out = rig.run(image_z_glow, 3, z_plane_count(3, true) - 3,
                                         {Arg({light, light, light}),
                                          Arg(std::vector<Plane>{depth}),
                                          12.0,
                                          mode,
                                          {0.3, 0.3, 0.3},
                                          {0.6, 0.6, 1.2},
                                          {1, 1},
                                          {1, 0.5},
                                          {0, 0.5, 0},
                                          {1, 0.5, 2}});
        for (Plane& p : out) p[45 * w + 60] = static_cast<FixPixel>(p[45 * w + 60] - 30000);
        return out;
    };
    const auto energy = [](const Plane& p) {
        double sum = 0;
        for (const FixPixel v : p) sum += v;
        return sum / 30000;
    };
    EXPECT_NEAR(energy(point(4095, 0)[0]), 1, 0.15);  // cut to units
    EXPECT_NEAR(energy(point(3072, 0)[0]), 0.5, 0.15);
    EXPECT_NEAR(energy(point(2048, 0)[0]), 0, 0.01);
    EXPECT_NEAR(energy(point(0, 0)[0]), 0, 0.01);
    EXPECT_NEAR(energy(point(0, 0)[1]), 0.5, 0.05);
    // In front of what glows behind it, the foreground stays as it is if it is kept apart.
    EXPECT_GT(point(4095, 0)[2][45 * w + 85], 5);
    EXPECT_EQ(point(4095, 1)[2][45 * w + 85], 0);
    EXPECT_EQ(point(4095, 1)[2][45 * w + 70], point(4095, 0)[2][45 * w + 70]);
}

namespace {

// The lens of a defocus by depth; a test changes what it is about. Widths in samples.
struct ZLens {
    double layers = 9, mode = 0, focal = 0.25, field = 0, width = 20;
    std::vector<double> shape = {5, 0, 0, 0};
    double gamma = 1, brightness = 1, edges = 1, near = 1, far = 1;
};

std::vector<Plane> z_defocused(FilterFrameRig& rig, const std::vector<Plane>& image, const Plane& depth,
                               const ZLens& l) {
    const int n = static_cast<int>(image.size());
    return rig.run(image_z_defocus, n, z_plane_count(n, false) - n,
                   {Arg(image),
                    Arg(std::vector<Plane>{depth}),
                    l.layers,
                    l.mode,
                    l.focal,
                    l.field,
                    {l.width * 8 / w, l.width * 8 / w},
                    {l.shape[0], l.shape[1], l.shape[2], l.shape[3]},
                    {0, 0},
                    0.0,
                    1.0,
                    l.gamma,
                    l.brightness,
                    l.edges,
                    {l.near, l.far}});
}

}  // namespace

// A wall at one depth is what the lens makes of it alone; the centre of a slice lies 5/16 behind the focus.
TEST(ZDefocus, AWallIsSpreadByTheLens) {
    FilterFrameRig rig(w, h);
    const std::vector<Plane> image = {random_plane(w, h), random_plane(w, h, 0, 4095, 2),
                                      random_plane(w, h, 0, 4095, 3)};
    for (const double gamma : {1.0, 2.2}) {
        ZLens l;
        l.gamma = gamma;
        const std::vector<Plane> out = z_defocused(rig, image, Plane(size_t{w} * h, 2304), l);
        const double radius = 20 * 5 / 16.0 * 8 / w;
        const std::vector<Plane> want = rig.run(
            image_defocus_adv, 3, 1,
            {Arg(image), {radius, radius}, 5.0, 0.0, 0.0, gamma, 1.0, 0.0, {0, 0}, 0.0, 1.0, 1.0, 0.0, 0.0, 1.0});
        for (size_t c = 0; c < 3; ++c)
            for (size_t i = 0; i < out[0].size(); ++i) ASSERT_NEAR(out[c][i], want[c][i], 3) << gamma;
    }
}

TEST(ZDefocus, BrightnessIsThatOfAllDepths) {
    FilterFrameRig rig(w, h);
    const Plane slope = plane_of(w, h, [](int x, int) { return x * 4095.0 / (w - 1); });
    for (const double gamma : {1.0, 2.2})
        for (const double brightness : {0.5, 1.0, 2.0}) {
            ZLens l;
            l.gamma = gamma;
            l.brightness = brightness;
            const Plane out = z_defocused(rig, {Plane(size_t{w} * h, 2000)}, slope, l)[0];
            for (const FixPixel v : out) ASSERT_NEAR(v, 2000 * brightness, 12 * brightness) << gamma;
        }
}

TEST(ZDefocus, KernelsOfLayersAreKept) {
    FilterFrameRig rig(w, h);
    const Plane slope = plane_of(w, h, [](int x, int) { return x * 4095.0 / (w - 1); });
    ZLens l;
    z_defocused(rig, {random_plane(w, h)}, slope, l);
    const auto built = [&] {
        const int before = fft_kernels_built;
        z_defocused(rig, {random_plane(w, h, 0, 4095, 9)}, slope, l);
        return fft_kernels_built - before;
    };
    EXPECT_EQ(built(), 0);
    l.brightness = 2;
    EXPECT_EQ(built(), 0);
    l.width = 22;
    EXPECT_GT(built(), 4);
    EXPECT_EQ(built(), 0);
}

// Also those of many layers, as long as there is room for them.
TEST(ZDefocus, KernelsOfManyLayersAreKeptWithinALimit) {
    FilterFrameRig rig(64, 24);
    const Plane slope = plane_of(64, 24, [](int x, int) { return x * 4095.0 / 63; });
    ZLens l;
    l.layers = 80;
    l.focal = 0;
    l.width = 30;
    const auto built = [&] {
        const int before = fft_kernels_built;
        z_defocused(rig, {random_plane(64, 24)}, slope, l);
        return fft_kernels_built - before;
    };
    EXPECT_GT(built(), 70);
    EXPECT_EQ(built(), 0);
    const size_t limit = most_z_kernel_bytes;
    most_z_kernel_bytes = 400000;
    built();
    const int anew = built();
    EXPECT_GT(anew, 10);
    EXPECT_LT(anew, 70);
    most_z_kernel_bytes = limit;
    built();
    EXPECT_EQ(built(), 0);
}

// On fields a row of the one in hand sees nothing of the other's, neither of its picture nor of its depth, and smooth
// scenes are spread as on frames.
TEST(Depth, FieldsAreSpreadApart) {
    FilterFrameRig rig(w, h);
    const Plane picture = plane_of(w, h, [](int x, int y) { return 1000 + 6 * y + 3 * x; });
    const Plane depth = plane_of(w, h, [](int x, int) { return x * 4095.0 / (w - 1); });
    ZLens l;
    l.width = 12;
    const auto blurred = [&](const Plane& image, const Plane& z) {
        return z_blurred(rig, {image}, z, 9, 0, 0.25, 0, 12)[0];
    };
    const auto defocused = [&](const Plane& image, const Plane& z) { return z_defocused(rig, {image}, z, l)[0]; };
    const auto glowing = [&](const Plane& image, const Plane& z) {
        return rig.run(image_z_glow, 3, z_plane_count(3, true) - 3,
                       {Arg({image, image, image}),
                        Arg(std::vector<Plane>{z}),
                        9.0,
                        0.0,
                        {0.3, 0.3, 0.3},
                        {0.3, 0.3, 0.3},
                        {1, 1},
                        {1, 1},
                        {0.5, 0.5, 0.5},
                        {0.5, 0.5, 0.5}})[0];
    };
    const Plane bar = plane_of(w, h, [](int x, int y) { return x >= 72 && x < 84 && y >= 40 && y < 52 ? 4000 : 0; });
    const auto convolved = [&](const Plane& image, const Plane& z) {
        return rig.run(image_z_convolve, 1, z_plane_count(1, false),
                       {Arg(std::vector<Plane>{image}),
                        Arg(std::vector<Plane>{bar}),
                        Arg(std::vector<Plane>{z}),
                        {9, 0, 0.5, 0.1},
                        {1, 1},
                        {1, 1},
                        {72, 40, 84, 52},
                        {0, 0},
                        1.0,
                        1.0,
                        0.0,
                        {1, 1},
                        0.0,
                        0.0,
                        {0, 0, 0}})[0];
    };
    const auto through_all = [&](const Plane& image, const Plane& z) {
        return std::vector<Plane>{blurred(image, z), defocused(image, z), glowing(image, z), convolved(image, z)};
    };
    const std::vector<Plane> frames = through_all(picture, depth);
    for (const int field : {1, 2}) {
        the_frame->render_field = field;
        Plane other_picture = random_plane(w, h), other_depth = random_plane(w, h, 0, 4095, 3);
        for (int y = field & 1; y < h; y += 2)
            for (int x = 0; x < w; ++x) {
                const auto at = static_cast<size_t>(y * w + x);
                other_picture[at] = picture[at];
                other_depth[at] = depth[at];
            }
        const std::vector<Plane> got = through_all(picture, depth), same = through_all(other_picture, other_depth);
        for (size_t k = 0; k < frames.size(); ++k)
            for (int y = field & 1; y < h; y += 2)
                for (int x = 0; x < w; ++x) {
                    const auto at = static_cast<size_t>(y * w + x);
                    ASSERT_EQ(got[k][at], same[k][at]) << k << " " << field << " " << x << " " << y;
                    if (y > 20 && y < h - 20) {
                        ASSERT_NEAR(got[k][at], frames[k][at], 12) << k << " " << field << " " << x << " " << y;
                    }
                }
    }
}

TEST(ZConvolve, KernelsGrowWithTheDistance) {
    FilterFrameRig rig(w, h);
    // A kernel of a bar, 16 by 2 samples in the picture's middle.
    const Plane kernel =
        plane_of(w, h, [](int x, int y) { return x >= 112 && x < 128 && y >= 44 && y < 46 ? 4000 : 0; });
    const auto run = [&](const std::vector<Plane>& image, int z, double alpha, double threshold) {
        const int n = static_cast<int>(image.size());
        return rig.run(image_z_convolve, n, z_plane_count(n, false) + 1 - n,
                       {Arg(image),
                        Arg(std::vector<Plane>{kernel}),
                        Arg(std::vector<Plane>{Plane(size_t{w} * h, static_cast<FixPixel>(z))}),
                        {9, 0, 0, 0},
                        {1, 1},
                        {1, 1},
                        {112, 44, 128, 46},
                        {0, 0},
                        1.0,
                        1.0,
                        0.0,
                        {0, 0},
                        0.0,
                        alpha,
                        {threshold, threshold, threshold}});
    };
    const Plane light = plane_of(w, h, [](int x, int y) { return x == 120 && y == 45 ? 32000 : 0; });
    const auto width_of = [&](int z) {
        const Plane out = run({light}, z, 0, 0)[0];
        int lit = 0;
        double energy = 0;
        for (int x = 0; x < w; ++x) lit += out[static_cast<size_t>(45 * w + x)] > 300;
        for (const FixPixel v : out) energy += v;
        EXPECT_NEAR(energy / 32000, 1, 0.02) << z;
        return lit;
    };
    EXPECT_NEAR(width_of(3840), 15, 2);  // 15/16 of the kernel's size
    EXPECT_NEAR(width_of(1792), 7, 2);
    EXPECT_LE(width_of(0), 2);
    const int before = fft_kernels_built;
    width_of(3840);
    EXPECT_EQ(fft_kernels_built, before);
    const Plane matte = random_plane(w, h);
    EXPECT_EQ(run({light, light, light, matte}, 3840, 0, 0)[3], matte);
    EXPECT_NE(run({light, light, light, matte}, 3840, 1, 0)[3], matte);
    const Plane grey(size_t{w} * h, 2048);
    EXPECT_NEAR(run({grey}, 0, 0, 0.25)[0][45 * w + 120], 1024, 2);
}
