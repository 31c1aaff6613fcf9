// Lenses by convolution: apertures of any shape, measured on points of light.
#include "operators/convolve/convolution.h"
#include "operators/defocus/defocus_functions.h"
#include "testing/filter_node.h"

#include <gtest/gtest.h>

#include <numeric>

using namespace velloran;
using velloran_tests::FilterFrameRig;
using velloran_tests::Plane;
using velloran_tests::plane_of;
using velloran_tests::random_plane;

namespace {

constexpr double pi = 3.14159265358979;
constexpr int w = 160, h = 160, cx = 80, cy = 80;
using Arg = FilterFrameRig::Arg;

// Arguments of a lens; a test changes what it is about. Radii in samples of a frame that is w wide.
struct Lens {
    std::vector<double> radius = {30, 30};
    double sides = 0, pointiness = 0, rotate = 0, gamma = 1, scale = 1, bokeh = 0;
    double freq = 3, amp = 0, seed = 1, edges = 0, show = 0, boost = 0, threshold = 0.5;
};

std::vector<Plane> through(FilterFrameRig& rig, const std::vector<Plane>& image, const Lens& lens) {
    const double unit = 8.0 / w;
    const int n = static_cast<int>(image.size());
    return rig.run(image_defocus_adv, n, 1,
                   {Arg(image),
                    {lens.radius[0] * unit, lens.radius[1] * unit},
                    lens.sides,
                    lens.pointiness,
                    lens.rotate,
                    lens.gamma,
                    lens.scale,
                    lens.bokeh,
                    {lens.freq, lens.freq},
                    lens.amp,
                    lens.seed,
                    lens.edges,
                    lens.show,
                    lens.boost,
                    lens.threshold});
}

Plane point(int value = 32000) {
    return plane_of(w, h, [&](int x, int y) { return x == cx && y == cy ? value : 0; });
}
Plane shown(FilterFrameRig& rig, Lens lens) {
    lens.show = 1;
    return through(rig, {Plane(size_t{w} * h)}, lens)[0];
}
double sum_of(const Plane& p) { return std::accumulate(p.begin(), p.end(), 0.0); }
int at(const Plane& p, double x, double y) {
    return p[static_cast<size_t>(std::lround(cy + y) * w + std::lround(cx + x))];
}

}  // namespace

TEST(DefocusAdv, PolygonsHaveTheDiscsAreaAndTheirCorners) {
    FilterFrameRig rig(w, h);
    for (const int sides : {0, 2, 3, 4, 5, 6, 8, 11})
        for (const double pointiness : {0.0, -0.5, -1.0, 0.2, 0.6, 0.9}) {
            SCOPED_TRACE(testing::Message() << sides << " " << pointiness);
            Lens lens;
            lens.sides = sides;
            lens.pointiness = pointiness;
            // Long arms have no room in the frame but for a smaller lens, and more of them is rim.
            const double r = pointiness > 0.5 ? 15 : 30, held = pointiness > 0.5 ? 0.02 : 0.01;
            lens.radius = {r, r};
            EXPECT_NEAR(sum_of(shown(rig, lens)) / 4095 / (pi * (r + 0.5) * (r + 0.5)), 1, held);
        }
    // A square on its corner, and turned; its corners lie sqrt(pi / 2) radii away.
    Lens square;
    square.sides = 4;
    const double corner = 30.5 * std::sqrt(pi / 2);
    for (const double turn : {0.0, 0.125}) {
        square.rotate = turn;
        const Plane p = shown(rig, square);
        for (int k = 0; k < 4; ++k) {
            const double a = 2 * pi * (turn + 0.25 * k), ux = std::cos(a), uy = std::sin(a);
            EXPECT_GT(at(p, ux * (corner - 4), uy * (corner - 4)), 4000) << turn;
            EXPECT_EQ(at(p, ux * (corner + 2), uy * (corner + 2)), 0) << turn;
            const double b = a + pi / 4, side = corner * std::sqrt(0.5);
            EXPECT_GT(at(p, std::cos(b) * (side - 2), std::sin(b) * (side - 2)), 4000) << turn;
            EXPECT_EQ(at(p, std::cos(b) * (side + 2), std::sin(b) * (side + 2)), 0) << turn;
        }
    }
    // A corner of a triangle is on top; a star's sides are drawn in.
    Lens triangle;
    triangle.sides = 3;
    EXPECT_GT(at(shown(rig, triangle), 0, 40), 4000);
    EXPECT_EQ(at(shown(rig, triangle), 0, -40), 0);
    Lens star;
    star.sides = 5;
    star.pointiness = 0.5;
    EXPECT_EQ(at(shown(rig, star), 0, -28), 0);
    EXPECT_GT(at(shown(rig, star), 0, 28), 4000);
}

TEST(DefocusAdv, RimAndGrainKeepTheEnergy) {
    FilterFrameRig rig(w, h);
    for (const double bokeh : {-1.0, 0.0, 2.0})
        for (const double amp : {0.0, 0.8}) {
            Lens lens;
            lens.bokeh = bokeh;
            lens.amp = amp;
            lens.radius = {12, 12};
            const Plane out = through(rig, {point()}, lens)[0];
            EXPECT_NEAR(sum_of(out) / 32000, 1, 0.01) << bokeh << " " << amp;
            if (amp == 0) {
                EXPECT_EQ(at(out, 0, 11) > at(out, 0, 2) * 1.5, bokeh > 1);
            }
            if (bokeh < 0 && amp == 0) {
                EXPECT_LT(at(out, 0, 11), at(out, 0, 2) / 2);
            }
        }
    Lens lens;
    lens.amp = 0.8;
    const Plane first = shown(rig, lens);
    EXPECT_EQ(shown(rig, lens), first);
    const auto [low, high] = std::minmax({at(first, 5, 5), at(first, -9, 3), at(first, 0, -14), at(first, 12, 12)});
    EXPECT_GT(high - low, 300);
    lens.seed = 2;
    EXPECT_NE(shown(rig, lens), first);
}

TEST(DefocusAdv, FlatPicturesEdgesAndRadii) {
    FilterFrameRig rig(w, h);
    const std::vector<Plane> flat = {Plane(size_t{w} * h, 3000)};
    for (const double gamma : {1.0, 2.2})
        for (const double r : {0.0, 0.3, 1.0, 25.0, 5000.0})
            for (const double edges : {0, 1, 2, 3}) {
                Lens lens;
                lens.radius = {r, r / 2};
                lens.sides = 6;
                lens.edges = edges;
                lens.gamma = gamma;
                const Plane out = through(rig, flat, lens)[0];
                ASSERT_NEAR(at(out, 0, 0), 3000, 1) << r;
                if (edges > 0) {
                    EXPECT_NEAR(out[0], 3000, 2) << r << " " << edges << " " << gamma;
                }
                if (edges == 0 && r == 25 && gamma == 1) {  // half of it is outside
                    EXPECT_NEAR(out[cx], 1500, 80);
                }
            }
    // Nothing is spread: the picture itself.
    Lens none;
    none.radius = {0, 0};
    const Plane in = random_plane(w, h);
    EXPECT_EQ(through(rig, {in}, none)[0], in);
}

// A boosted light has the energy of the sample that it became: 1.0 becomes 1 + boost * (1 - threshold), in between
// by the way above the threshold.
TEST(DefocusAdv, BoostedLightsSpreadTheirEnergy) {
    FilterFrameRig rig(w, h);
    for (const int value : {1000, 3072, 4096}) {
        Lens lens;
        lens.radius = {4, 4};
        lens.boost = 4;
        const double above = std::max(value / 4096.0 - 0.5, 0.0) / 0.5;
        const double boosted = value + 4096 * 4 * 0.5 * above;
        EXPECT_NEAR(sum_of(through(rig, {point(value)}, lens)[0]) / boosted, 1, 60 / boosted)
            << value;  // each sample of the disc loses less than a unit
    }
}

// On fields a row of the one in hand sees nothing of the other, and smooth pictures are spread as on frames.
TEST(DefocusAdv, FieldsAreSpreadApart) {
    FilterFrameRig rig(w, h);
    const Plane one = plane_of(w, h, [](int x, int y) { return 2000 + 6 * y + 3 * x; });
    Lens lens;
    lens.sides = 5;
    lens.edges = 1;
    lens.radius = {9, 14};
    const Plane frame = through(rig, {one}, lens)[0];
    for (const int field : {1, 2}) {
        the_frame->render_field = field;
        Plane other = random_plane(w, h);
        for (int y = field & 1; y < h; y += 2)
            std::copy_n(&one[static_cast<size_t>(y * w)], w, &other[static_cast<size_t>(y * w)]);
        const Plane got = through(rig, {one}, lens)[0], same = through(rig, {other}, lens)[0];
        for (int y = field & 1; y < h; y += 2)
            for (int x = 0; x < w; ++x) {
                const auto at = static_cast<size_t>(y * w + x);
                ASSERT_EQ(got[at], same[at]) << field << " " << x << " " << y;
                if (y > 20 && y < h - 20) {
                    ASSERT_NEAR(got[at], frame[at], 3) << field << " " << x << " " << y;
                }
            }
    }
}

TEST(DefocusAdv, KernelsAreKeptWhileNothingChanges) {
    FilterFrameRig rig(w, h);
    Lens lens;
    through(rig, {point()}, lens);
    const auto built = [&] {
        const int before = fft_kernels_built;
        through(rig, {random_plane(w, h)}, lens);
        return fft_kernels_built - before;
    };
    EXPECT_EQ(built(), 0);
    lens.gamma = 2;  // no matter of the kernel
    EXPECT_EQ(built(), 0);
    for (double* v : {&lens.radius[0], &lens.radius[1], &lens.sides, &lens.pointiness, &lens.rotate, &lens.bokeh,
                      &lens.freq, &lens.amp, &lens.seed, &lens.edges}) {
        *v += 1;
        EXPECT_EQ(built(), 1);
        EXPECT_EQ(built(), 0);
    }
}

// On fields each radius along y is of the field's rows; what the frame's picture is, two smooth channels of three show.
TEST(DefocusPrismAdv, FieldsAreSpreadApart) {
    FilterFrameRig rig(w, h);
    const double unit = 8.0 / w;
    const auto prism = [&](const Plane& p) {
        return rig.run(image_defocus_prism_adv, 3, 1,
                       {Arg({p, p, p}),
                        {6 * unit, 10 * unit, 14 * unit},
                        {6 * unit, 10 * unit, 8 * unit},
                        {0, 5 * unit, 0},
                        {0, 5 * unit, 0},
                        0.0,
                        0.0,
                        0.0,
                        1.0,
                        {1, 0.5, 1},
                        0.0,
                        {1, 1, 1, 1},
                        0.0,
                        0.0,
                        {0, 1}});
    };
    const Plane one = plane_of(w, h, [](int x, int y) { return 2000 + 6 * y + 3 * x; });
    const std::vector<Plane> frame = prism(one);
    for (const int field : {1, 2}) {
        the_frame->render_field = field;
        Plane other = random_plane(w, h);
        for (int y = field & 1; y < h; y += 2)
            std::copy_n(&one[static_cast<size_t>(y * w)], w, &other[static_cast<size_t>(y * w)]);
        const std::vector<Plane> got = prism(one), same = prism(other);
        for (size_t c = 0; c < 3; ++c)
            for (int y = field & 1; y < h; y += 2)
                for (int x = 0; x < w; ++x) {
                    const auto i = static_cast<size_t>(y * w + x);
                    ASSERT_EQ(got[c][i], same[c][i]) << c << " " << field << " " << x << " " << y;
                    if (y > 20 && y < h - 20 && x > 20 && x < w - 20) {
                        ASSERT_NEAR(got[c][i], frame[c][i], 4) << c << " " << field << " " << x << " " << y;
                    }
                }
    }
}

TEST(DefocusPrismAdv, EachChannelHasItsRadiusRingAndScale) {
    FilterFrameRig rig(w, h);
    const double unit = 8.0 / w;
    const auto prism = [&](const std::vector<Plane>& image, int n, double show) {
        return rig.run(image_defocus_prism_adv, n, 1,
                       {Arg(image),
                        {10 * unit, 20 * unit, 30 * unit},
                        {10 * unit, 20 * unit, 15 * unit},
                        {0, 10 * unit, 0},
                        {0, 10 * unit, 0},
                        0.0,
                        0.0,
                        0.0,
                        1.0,
                        {1, 0.5, 1},
                        0.0,
                        {0, 0, 0, 0},
                        0.0,
                        show,
                        {0, 1}});
    };
    const std::vector<Plane> out = prism({point(), point(), point()}, 3, 0);
    const double areas[] = {pi * 10.5 * 10.5, pi * (20.5 * 20.5 - 10 * 10), pi * 30.5 * 15.5};
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(sum_of(out[static_cast<size_t>(c)]) / (c == 1 ? 16000 : 32000), 1, 0.07);  // cut to units
    EXPECT_NEAR(at(out[0], 0, 0), 32000 / areas[0], 1);
    EXPECT_EQ(at(out[1], 0, 0), 0);
    EXPECT_NEAR(at(out[1], 15, 0), 16000 / areas[1], 1);
    EXPECT_NEAR(at(out[2], 28, 0), 32000 / areas[2], 1);
    EXPECT_EQ(at(out[2], 0, 18), 0);
    // One channel goes to all four; a picture without a matte is opaque.
    const std::vector<Plane> of_one = prism({point()}, 4, 0);
    EXPECT_NEAR(at(of_one[0], 0, 0), at(out[0], 0, 0), 1);
    EXPECT_NEAR(at(of_one[2], 28, 0), at(out[2], 28, 0), 1);
    EXPECT_NEAR(at(prism({point(), point(), point()}, 4, 0)[3], 0, 0), 4095, 1);
    const std::vector<Plane> aperture = prism({point()}, 3, 1);
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(sum_of(aperture[static_cast<size_t>(c)]) / (c == 1 ? 2047.5 : 4095) / areas[c], 1, 0.01);
}
