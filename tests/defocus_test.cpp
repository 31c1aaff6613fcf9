// A lens out of focus: the table of the aperture, and what it makes of pictures whose answer is known.
#include "operators/defocus/defocus_functions.h"

#include "operators/defocus/circles_table.h"
#include "operators/defocus/defocus_image.h"
#include "testing/filter_node.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>

using namespace velloran;
using velloran_tests::FilterFrameRig;
using velloran_tests::for_each_row_target;
using velloran_tests::Plane;
using velloran_tests::plane_of;
using velloran_tests::random_plane;

namespace {

constexpr double pi = 3.14159265358979;

// Whether a point lies in a shape with half axes ax and ay, by its sides.
bool inside(int shape, double x, double y, double ax, double ay) {
    x = std::fabs(x) / ax;
    y = std::fabs(y) / ay;
    const double half_root = std::sqrt(0.5), tan_of_eighth = std::sqrt(2.0) - 1;
    switch (shape) {
        case defocus_circle:
            return x * x + y * y <= 1;
        case defocus_hexagon_flat:
            return y <= 1 && x <= 1 - y / 2;
        case defocus_hexagon_point:
            return x <= 1 && y <= 1 - x / 2;
        case defocus_octagon_flat:
            return x <= 1 && y <= 1 && x + y <= 2 * half_root;
        default:
            return x + tan_of_eighth * y <= 1 && y + tan_of_eighth * x <= 1;
    }
}

// The part of each cell within `reach` of the centre that lies in the shape, by points on a grid.
struct Model {
    Model(int shape, double rx, double ry, bool subpixel) {
        const ShapeFactors f = defocus_shape_factors(shape);
        const double ax = rx * static_cast<double>(f.x) + 0.5, ay = ry * static_cast<double>(f.y) + 0.5;
        reach_x = static_cast<int>(ax) + 1;
        reach_y = static_cast<int>(ay) + 1;
        const int points = subpixel ? 32 : 1;
        for (int y = -reach_y; y <= reach_y; ++y)
            for (int x = -reach_x; x <= reach_x; ++x) {
                int n = 0;
                for (int i = 0; i < points; ++i)
                    for (int j = 0; j < points; ++j)
                        n += inside(shape, x - 0.5 + (j + 0.5) / points, y - 0.5 + (i + 0.5) / points, ax, ay);
                weights.push_back(static_cast<double>(n) / (points * points));
            }
    }
    double at(int x, int y) const {
        if (std::abs(x) > reach_x || std::abs(y) > reach_y) return 0;
        return weights[static_cast<size_t>((y + reach_y) * (2 * reach_x + 1) + x + reach_x)];
    }
    // The mean over the aperture, of what of it lies inside.
    std::vector<double> spread(const std::vector<double>& in, int w, int h) const {
        std::vector<double> out;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                double sum = 0, total = 0;
                for (int j = std::max(y - reach_y, 0); j <= std::min(y + reach_y, h - 1); ++j)
                    for (int i = std::max(x - reach_x, 0); i <= std::min(x + reach_x, w - 1); ++i) {
                        sum += at(i - x, j - y) * in[static_cast<size_t>(j * w + i)];
                        total += at(i - x, j - y);
                    }
                out.push_back(sum / total);
            }
        return out;
    }
    std::vector<double> weights;
    int reach_x, reach_y;
};

DefocusSettings disc(double rx, double ry, int shape = 0, bool subpixel = true) {
    return {
        .x_radius = static_cast<float>(rx), .y_radius = static_cast<float>(ry), .shape = shape, .subpixel = subpixel};
}

Plane defocused(Plane plane, const DefocusSettings& settings, const FilterFrame& frame) {
    defocus_image(plane.data(), settings, frame);
    return plane;
}

double area_of_table(const circles_table& t) {
    return static_cast<double>(circles_table_weight(t, t.table_w, t.table_w, t.table_h, t.table_h));
}

}  // namespace

TEST(Defocus, EveryShapeHasTheAreaOfTheDisc) {
    for (int shape = 0; shape < defocus_shapes; ++shape)
        for (const bool subpixel : {false, true})
            for (const double r : {8.0, 30.3, 100.0}) {
                ASSERT_TRUE(
                    set_circles_table(static_cast<float>(r), static_cast<float>(r), 0, subpixel, 900, 900, shape));
                const double tolerance = subpixel || r > 50 ? 0.01 : 0.05;
                EXPECT_NEAR(area_of_table(get_circles_table()) / (pi * (r + 0.5) * (r + 0.5)), 1, tolerance)
                    << shape << " " << subpixel << " " << r;
            }
    // A soft edge leaves the area as it is.
    ASSERT_TRUE(set_circles_table(20, 20, 6, 1, 900, 900, 0));
    EXPECT_NEAR(area_of_table(get_circles_table()) / (pi * 20.5 * 20.5), 1, 0.02);
    EXPECT_LT(get_circles_table().row_span[20], 3000);
    EXPECT_GT(get_circles_table().row_span[22], 200);
}

TEST(Defocus, TablesAreKeptWhileNothingChanges) {
    const auto made = [](float rx, float blur, int subpixel, int max_w, int shape) {
        const int before = circles_tables_built;
        set_circles_table(rx, 5, blur, subpixel, max_w, 100, shape);
        return circles_tables_built - before;
    };
    made(7, 0, 1, 100, 0);
    EXPECT_EQ(made(7, 0, 1, 100, 0), 0);
    EXPECT_EQ(made(7.5, 0, 1, 100, 0), 1);
    EXPECT_EQ(made(7.5, 1, 1, 100, 0), 1);
    EXPECT_EQ(made(7.5, 1, 0, 100, 0), 1);
    EXPECT_EQ(made(7.5, 1, 0, 12, 0), 1);
    EXPECT_LE(get_circles_table().table_w, 6);
    EXPECT_EQ(made(7.5, 1, 0, 12, 3), 1);
    testing::internal::CaptureStdout();
    EXPECT_FALSE(set_circles_table(7, 5, 0, 1, 100, 100, 9));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "WARNING: Unknown defocus shape type: 9! \n");
    EXPECT_EQ(made(7.5, 1, 0, 12, 3), 1);
}

// The mean of a random picture over apertures of every kind, at the edges too, against the plain sum.
TEST(Defocus, IsTheMeanOverTheAperture) {
    const struct {
        double rx, ry;
        int shape;
        bool subpixel;
    } cases[] = {{0.3, 0.3, 0, true}, {1, 1, 0, true},     {3.4, 3.4, 0, true}, {3, 3, 0, false},     {9, 4, 1, true},
                 {6, 11, 2, true},    {8.5, 8.5, 3, true}, {8.5, 8.5, 4, true}, {10, 0, 0, true},     {0, 6.2, 0, true},
                 {7, 7, 1, false},    {5, 5, 4, false},    {14, 14, 0, true},   {12.5, 12.5, 2, true}};
    const int w = 61, h = 37;
    const Plane in = random_plane(w, h, -4000, 32000);
    const std::vector<double> exact(in.begin(), in.end());
    FilterFrameRig rig(w, h);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.rx << " " << c.ry << " " << c.shape << " " << c.subpixel);
        const std::vector<double> want = Model(c.shape, c.rx, c.ry, c.subpixel).spread(exact, w, h);
        const Plane out = defocused(in, disc(c.rx, c.ry, c.shape, c.subpixel), {w, h});
        // Weights are on 16 lines within a row: a rim cell may be off by some hundredths of a random sample.
        const double cells = (2 * c.rx + 1) * (2 * c.ry + 1), tolerance = c.subpixel ? 40 + 2500 / cells : 1;
        double most = 0, sum = 0;
        for (size_t i = 0; i < want.size(); ++i) {
            most = std::max(most, std::fabs(out[i] - want[i]));
            sum += std::fabs(out[i] - want[i]);
        }
        EXPECT_LE(most, tolerance);
        EXPECT_LE(sum / static_cast<double>(want.size()), c.subpixel ? tolerance / 4 : 0.6);
    }
}

TEST(Defocus, FlatStaysFlatAndPointsBecomeTheAperture) {
    const int w = 130, h = 110;
    FilterFrameRig rig(w, h);
    for (const double gamma : {1.0, 0.45, 2.2})
        for (const double r : {0.3, 1.0, 17.2, 1e5}) {
            DefocusSettings s = disc(r, r * 1.2, 2);
            s.gamma = static_cast<float>(gamma);
            for (const int level : {5, 900, 4095})
                for (const FixPixel v :
                     defocused(Plane(static_cast<size_t>(w * h), static_cast<FixPixel>(level)), s, {w, h}))
                    ASSERT_NEAR(v, level, 1) << gamma << " " << r;
        }
    Plane point(static_cast<size_t>(w * h));
    point[55 * 130 + 60] = 32000;
    for (int shape = 0; shape < defocus_shapes; ++shape) {
        const Plane out = defocused(point, disc(12, 12, shape), {w, h});
        const double full = 32000 / (pi * 12.5 * 12.5);
        double energy = 0, lit = 0;
        for (const FixPixel v : out) {
            energy += v;
            lit += v / full;
        }
        EXPECT_NEAR(energy / 32000, 1, 0.01) << shape;
        EXPECT_NEAR(lit / (pi * 12.5 * 12.5), 1, 0.01) << shape;
        // A hard rim: nothing between full and none but one cell's width of it.
        int between = 0;
        for (const FixPixel v : out) between += v > 3 && v < full - 3;
        EXPECT_LT(between, 130) << shape;
        EXPECT_NEAR(out[55 * 130 + 60], full, 1) << shape;
    }
}

// Large apertures go another way, to the same picture.
TEST(Defocus, TransformsGiveTheSameSums) {
    const int wide = 300, high = 200;
    FilterFrameRig rig(wide, high);
    const Plane in = random_plane(wide, high, -3000, 32000);
    for (const double r : {14.0, 61.3, 97.0}) {
        const int most = most_defocus_taps;
        most_defocus_taps = 1 << 30;
        const Plane want = defocused(in, disc(r, r * 0.9, 2), {wide, high});
        most_defocus_taps = 0;
        const Plane out = defocused(in, disc(r, r * 0.9, 2), {wide, high});
        most_defocus_taps = most;
        for (size_t i = 0; i < out.size(); ++i) ASSERT_NEAR(out[i], want[i], 1) << r;
        ASSERT_TRUE(set_circles_table(24, 24, 0, 1, 900, 900, 2));
    }
}

// The gamma of a defocus is that of the picture's curve: below 1 highlights count for more.
TEST(Defocus, HighlightsSpreadMoreForAGammaBelowOne) {
    const int w = 60, h = 60;
    FilterFrameRig rig(w, h);
    const Plane in = plane_of(w, h, [](int x, int y) { return std::hypot(x - 30, y - 30) < 4 ? 4000 : 400; });
    const std::vector<double> exact(in.begin(), in.end());
    int middle[3], i = 0;
    for (const double gamma : {1 / 2.2, 1.0, 2.2}) {
        std::vector<double> linear;
        for (const double v : exact) linear.push_back(std::pow(v / 4096, 1 / gamma));
        DefocusSettings s = disc(10, 10);
        s.gamma = static_cast<float>(gamma);
        s.final_value = 0.5f;
        const Plane out = defocused(in, s, {w, h});
        const std::vector<double> want = Model(0, 10, 10, true).spread(linear, w, h);
        for (size_t k = 0; k < want.size(); ++k) ASSERT_NEAR(out[k], 2048 * std::pow(want[k], gamma), 8) << gamma;
        middle[i++] = out[30 * 60 + 30];
    }
    EXPECT_GT(middle[0], middle[1] + 50);
    EXPECT_GT(middle[1], middle[2] + 50);
}

TEST(Defocus, RadiiAreHeldToThePictureWithTheirAspect) {
    float rx = 1000, ry = 250;
    hold_aperture(&rx, &ry, 1, 1, true, 200, 160);
    EXPECT_FLOAT_EQ(rx, 98);
    EXPECT_FLOAT_EQ(ry, 24.5f);
    hold_aperture(&rx, &ry, 1, 1, true, 200, 40);
    EXPECT_FLOAT_EQ(ry, 18);
    EXPECT_FLOAT_EQ(rx, 72);
    for (const int w : {1, 2, 3, 5, 200})
        for (const int h : {1, 2, 4}) {
            FilterFrameRig rig(w, h);
            const Plane in = random_plane(w, h);
            const auto [low, high] = std::minmax_element(in.begin(), in.end());
            for (const FixPixel v : defocused(in, disc(900, 300), {w, h})) {
                ASSERT_GE(v, *low);
                ASSERT_LE(v, *high);
            }
        }
}

TEST(Defocus, FieldsAreSpreadApart) {
    const int w = 40, h = 33;
    FilterFrameRig rig(w, h);
    const Plane in = random_plane(w, h);
    const Plane out = defocused(in, disc(6, 6), {w, h, 0, 0, 1, true});
    for (int field = 0; field < 2; ++field) {
        const int rows = (h + 1 - field) / 2;
        Plane half;
        for (int y = field; y < h; y += 2)
            half.insert(half.end(), &in[static_cast<size_t>(y * w)], &in[static_cast<size_t>(y * w + w - 1)] + 1);
        const Plane want = defocused(half, disc(6, 3), {w, rows, w, h / 2});
        for (int y = 0; y < rows; ++y)
            for (int x = 0; x < w; ++x)
                ASSERT_EQ(out[static_cast<size_t>((2 * y + field) * w + x)], want[static_cast<size_t>(y * w + x)]);
    }
}

TEST(Defocus, TargetsTasksAndResolutions) {
    const int w = 333, h = 90;
    const Plane in = random_plane(w, h, -32767, 32767);
    Plane want;
    for (const int tasks : {1, 2, 5}) {
        FilterFrameRig rig(w, h, tasks);
        if (want.empty()) want = defocused(in, disc(31.7, 22, 1), {w, h});
        for_each_row_target([&](int64_t) { EXPECT_EQ(defocused(in, disc(31.7, 22, 1), {w, h}), want) << tasks; });
    }
    // At half the resolution: the same look. Cells of the aperture have no finer rim there than samples.
    const auto picture = [](int size, int step) {
        FilterFrameRig rig(size, size, 2, step);
        const double s = 1.0 / step;
        Plane light = plane_of(rig.width, rig.height, [&](int x, int y) {
            return std::hypot(x - 128 * s + 0.5 - 0.5 * s, y - 128 * s + 0.5 - 0.5 * s) < 24 * s ? 4000 : 200;
        });
        return rig.run(image_defocus, 1, 1, {std::vector<Plane>{light}, {0.5, 0.5}, 0.5, 1.0, 1.0, 2.0})[0];
    };
    const Plane full = picture(256, 1), half = picture(256, 2);
    double sum = 0;
    for (int y = 0; y < 128; ++y)
        for (int x = 0; x < 128; ++x) {
            const size_t at = static_cast<size_t>(2 * y * 256 + 2 * x);
            const double mean = (full[at] + full[at + 1] + full[at + 256] + full[at + 257]) / 4.0;
            const double off = std::fabs(half[static_cast<size_t>(y * 128 + x)] - mean);
            ASSERT_LT(off, 300) << x << " " << y;
            sum += off;
        }
    EXPECT_LT(sum / (128 * 128), 25);
}
