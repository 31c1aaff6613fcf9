// Image functions of sharpening, slopes and embossing, on pictures whose slopes are known.
#include "operators/edges/edge_functions.h"

#include "operators/blur/blur_image.h"
#include "operators/edges/edge_rows.h"
#include "operators/edges/run_distance_rows.h"
#include "testing/engine_rig.h"
#include "testing/filter_node.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>

#include <memory>

using namespace velloran;
using velloran_tests::EngineRig;
using velloran_tests::FilterFrameRig;
using velloran_tests::HostFrame;
using velloran_tests::Plane;
using velloran_tests::plane_of;
using velloran_tests::random_plane;
using velloran_tests::Shape;

namespace {

// A plane that rises by x and y for each sample, around mid grey.
Plane ramp(const FilterFrameRig& rig, double x, double y) {
    return plane_of(rig.width, rig.height,
                    [&](int i, int j) { return 2000 + x * (i - rig.width / 2) + y * (j - rig.height / 2); });
}

FixPixel middle(const FilterFrameRig& rig, const Plane& plane) {
    return plane[rig.height / 2 * rig.width + rig.width / 2];
}

}  // namespace

TEST(Sharpen, IsTheUnsharpMask) {
    FilterFrameRig rig(64, 40);
    const std::vector<Plane> in = {random_plane(64, 40), random_plane(64, 40, 0, 4095, 2),
                                   random_plane(64, 40, 0, 4095, 3)};
    const std::vector<Plane> out = rig.run(image_sharpen, 3, 1, {in, {1.5, 0, -0.5}, 0.5});
    const double scales[] = {1.5, 0, -0.5};
    for (int c = 0; c < 3; ++c) {
        Plane soft(in[c].size());
        const BlurSettings half_an_eighth = {.x_radius = 4 * 4096, .y_radius = 4 * 4096, .subpixel = true};
        blur_image(in[c].data(), soft.data(), half_an_eighth, {64, 40});
        for (size_t i = 0; i < soft.size(); ++i)
            ASSERT_EQ(out[c][i], in[c][i] + std::floor((in[c][i] - soft[i]) * scales[c])) << c;
    }
}

TEST(BandPass, IsTheDifferenceOfTwoBlursAroundGrey) {
    FilterFrameRig rig(64, 40);
    const Plane grey = rig.run(image_band_pass, 1, 1, {std::vector<Plane>{Plane(64 * 40, 3000)}, 0.2, 0.7, 4.0})[0];
    for (const FixPixel v : grey) ASSERT_NEAR(v, 2048, 4);
    const Plane in = random_plane(64, 40);
    Plane fine(in.size()), coarse(in.size());
    const BlurSettings small = {.x_radius = 4096, .y_radius = 2 * 4096, .subpixel = true};
    const BlurSettings large = {.x_radius = 8 * 4096, .y_radius = 8 * 4096, .subpixel = true};
    blur_image(in.data(), fine.data(), small, {64, 40});
    blur_image(in.data(), coarse.data(), large, {64, 40});
    const Plane out = rig.run(image_band_pass, 1, 1, {std::vector<Plane>{in}, {0.125, 0.25}, {1, 1}, 2.0})[0];
    for (size_t i = 0; i < in.size(); ++i) ASSERT_EQ(out[i], 2048 + 2 * (fine[i] - coarse[i]));
}

TEST(Grad, SlopesOfRamps) {
    const double tau = 6.283185307179586;
    for (const int step : {1, 3})
        for (int turn = 0; turn < 16; ++turn) {
            FilterFrameRig rig(60 * step, 48 * step, 2, step);
            const double x = 20 * std::cos(tau * turn / 16), y = 20 * std::sin(tau * turn / 16);  // for a sample
            const std::vector<Plane> in = {ramp(rig, x, y)};
            SCOPED_TRACE(turn);
            const std::vector<Plane> grad = rig.run(image_grad, 2, 0, {in, 0.0, 10.0, 0.0});
            EXPECT_NEAR(middle(rig, grad[0]), 10 * x / step, 6);
            EXPECT_NEAR(middle(rig, grad[1]), 10 * y / step, 6);
            EXPECT_NEAR(middle(rig, rig.run(image_edge_detect, 1, 0, {in, 0.25, 10.0, 1.0})[0]), 200.0 / step, 5);
            const int direction = middle(rig, rig.run(image_grad_direction, 1, 0, {in, 0.25, 0.25, 1.0})[0]);
            const int want = (turn * 256 + 1024) % 4096;
            EXPECT_LE(std::min((direction - want + 4096) % 4096, (want - direction + 4096) % 4096), 12);
            const std::vector<Plane> up = {Plane(60 * 48, 0), Plane(60 * 48, 2 * 4096)};
            EXPECT_NEAR(middle(rig, rig.run(image_grad_in_direction, 1, 0, {in, up, 0.0, 0.0})[0]), 2 * y / step, 2);
        }
}

// A direction that is computed for each pixel comes in blocks; it gives what the same direction gives from planes.
TEST(GradInDirection, DirectionsOfEachPixel) {
    for (const Shape shape : {Shape{1013, 9}, Shape{38, 23, 3}, Shape{1, 5}})
        for (const int tasks : {1, 3}) {
            EngineRig rig(tasks, shape);
            const auto slopes = [&](const std::string& direction) {
                EXPECT_TRUE(
                    rig.load_body("d = " + direction + " s = (grad_in_direction Source d 0 0) dest = (+ s 0.5)"));
                EXPECT_EQ(rig.render(), 0);
                return rig.dest;
            };
            // Many lines, so that blocks are narrow.
            const std::string far = "(* (v2 (sin (* x 9)) (cos (+ y (* 30 x)))) 20)";
            const HostFrame of_pixels = slopes(far);
            EXPECT_EQ(slopes("(copy " + far + ")"), of_pixels);
            EXPECT_NE(slopes("[0 0]"), of_pixels);
            // A constant direction: twice the step from row to row, halved by the central difference.
            const HostFrame up = slopes("[0 " + std::to_string(shape.step) + "]");
            const int step = shape.step, phase = (step - 1) / 2, x = shape.width / 2 / step;
            const auto sample = [&](int y) {
                return rig.source(0, std::min(x * step + phase, shape.width - 1), y * step + phase, 1);
            };
            EXPECT_NEAR(up[rig.index(x * step, 2 * step, 1)] >> 4,
                        std::clamp(2048 + (sample(3) - sample(1)) / 2, 0, 4095), 1);
        }
}

TEST(Grad, EndsStandForTheirMissingNeighbours) {
    FilterFrameRig rig(9, 5);
    const std::vector<Plane> grad = rig.run(image_grad, 2, 0, {std::vector<Plane>{ramp(rig, 100, 40)}, 0.0, 1.0, 0.0});
    EXPECT_EQ(grad[0][0], 50);
    EXPECT_EQ(grad[0][1], 100);
    EXPECT_EQ(grad[0][8], 50);
    EXPECT_EQ(grad[1][0], 20);
    EXPECT_EQ(grad[1][9], 40);
    // On fields rows two apart are neighbours; the slope for a row stays.
    the_frame->render_field = 1;
    EXPECT_EQ(rig.run(image_grad, 2, 0, {std::vector<Plane>{ramp(rig, 100, 40)}, 0.0, 1.0, 0.0})[1][2 * 9], 40);
}

TEST(GradForMipmap, ScaleOfCoordinates) {
    FilterFrameRig rig(64, 48);
    // Coordinates in which the frame is 2 wide: 4096 for 32 samples.
    const auto coordinates = [&](double zoom) {
        return std::vector<Plane>{plane_of(64, 48, [&](int x, int) { return zoom * 128 * (x - 32); }),
                                  plane_of(64, 48, [&](int, int y) { return zoom * 128 * (y - 24); })};
    };
    for (const double zoom : {1.0, 0.5, 2.0})
        for (int c = 0; c < 2; ++c)
            EXPECT_NEAR(middle(rig, rig.run(image_grad_for_mipmap, 2, 0, {coordinates(zoom), 1.0, 0.0})[c]),
                        zoom * 4096, 8);
    EXPECT_NEAR(middle(rig, rig.run(image_grad_for_mipmap, 2, 0, {coordinates(0.5), 1.0, 1.0})[0]), 1.5 * 4096, 8);
}

TEST(Emboss, IsLitFromItsSide) {
    FilterFrameRig rig(128, 96);  // 1/64 of the width is 2 samples
    const auto lit = [&](double x, double y, double specular) {
        return middle(rig, rig.run(image_emboss, 3, 0,
                                   {std::vector<Plane>{ramp(rig, x, y)},
                                    0.0,
                                    1.0,
                                    std::vector<Plane>(3, Plane(128 * 96, 2048)),
                                    {1, 0.5, 1},
                                    {0.6, 0},
                                    specular,
                                    10.0,
                                    0.0})[0]);
    };
    // Flat ground looks up; a slope of d has the normal (-d, 0, 1) / sqrt(1 + d * d).
    const auto shade = [](double dx, double dy) {
        return 2048 * std::max(0.0, (-dx * 0.6 + 0.8) / std::sqrt(1 + dx * dx + dy * dy));
    };
    for (const auto& [x, y] : {std::pair<double, double>{0, 0}, {40, 0}, {-40, 0}, {0, 40}, {16, -24}})
        EXPECT_NEAR(lit(x, y, 0), shade(2 * x / 4096, 2 * y / 4096), 2) << x << " " << y;
    const double half = 1.8 / std::sqrt(0.36 + 1.8 * 1.8);
    EXPECT_NEAR(lit(0, 0, 0.25), shade(0, 0) + 1024 * std::pow(half, 10), 3);
    // A fourth channel stays; the light's colour counts.
    const std::vector<Plane> surface(4, Plane(128 * 96, 2000));
    const std::vector<Plane> out =
        rig.run(image_emboss, 4, 0,
                {std::vector<Plane>{Plane(128 * 96, 100)}, 0.0, 1.0, surface, {1, 0.5, 0}, {0, 0}, 0.0, 10.0, 0.0});
    EXPECT_NEAR(middle(rig, out[0]), 2000, 1);
    EXPECT_NEAR(middle(rig, out[1]), 1000, 1);
    EXPECT_EQ(middle(rig, out[2]), 0);
    EXPECT_EQ(middle(rig, out[3]), 2000);
}

TEST(EdgedetectSimple, MarksStepsToAnyOfEightNeighbors) {
    for (const Shape shape : {Shape{41, 23}, Shape{1, 1}, Shape{1, 9}, Shape{9, 1}, Shape{2, 2}})
        for (const double threshold : {-1.0, 0.0, 0.25, 0.75, 20.0}) {
            FilterFrameRig rig(shape.width, shape.height, 3);
            std::vector<Plane> in;
            for (unsigned c = 0; c < 3; ++c)
                in.push_back(random_plane(rig.width, rig.height, 0, c == 1 ? 20 : 3200, c));
            in[0][0] = -32767;  // differences of more than a sample counts
            in[0].back() = 32767;
            const Plane out = rig.run(image_edgedetect_simple, 1, 3, {in, threshold})[0];
            for (int y = 0; y < rig.height; ++y)
                for (int x = 0; x < rig.width; ++x) {
                    int most = 0;
                    for (const Plane& plane : in)
                        for (int j = std::max(y - 1, 0); j <= std::min(y + 1, rig.height - 1); ++j)
                            for (int i = std::max(x - 1, 0); i <= std::min(x + 1, rig.width - 1); ++i)
                                most = std::max(most, std::abs(plane[j * rig.width + i] - plane[y * rig.width + x]));
                    ASSERT_EQ(out[y * rig.width + x], most > threshold * 4096 ? 4096 : 0) << x << ' ' << y;
                }
        }
}

// The nearest pixel of the other kind, looked for everywhere.
TEST(EdgeDist, IsTheNearestOfAllPixels) {
    std::mt19937 rng(2);
    for (const Shape shape : {Shape{53, 37}, Shape{60, 40, 2}, Shape{1, 30}, Shape{30, 1}, Shape{1, 1}})
        for (const unsigned rarity : {2u, 30u, 400u})
            for (const float pixel_height : {1.0f, 1.5f}) {
                FilterFrameRig rig(shape.width, shape.height, 3, shape.step);
                the_frame->pixel_aspect_ratio = pixel_height;
                Plane matte(static_cast<size_t>(rig.width) * static_cast<size_t>(rig.height));
                // Blots in which the other kind is rare too.
                for (size_t i = 0; i < matte.size(); ++i) {
                    const bool blot = (i / 17) % 5 == 0, odd = rng() % rarity == 0;
                    matte[i] = static_cast<FixPixel>(blot != odd ? 2048 + rng() % 9000 : 2047 - rng() % 9000);
                }
                const Plane out = rig.run(image_edge_dist, 1, 1, {std::vector<Plane>{matte}, 3.0})[0];
                the_frame->pixel_aspect_ratio = 1;
                for (int y = 0; y < rig.height; ++y)
                    for (int x = 0; x < rig.width; ++x) {
                        double least = 1e30;
                        for (int j = 0; j < rig.height; ++j)
                            for (int i = 0; i < rig.width; ++i)
                                if ((matte[j * rig.width + i] >= 2048) != (matte[y * rig.width + x] >= 2048))
                                    least =
                                        std::min(least, std::hypot(i - x, (j - y) * static_cast<double>(pixel_height)));
                        const double units = (least - 0.5) * shape.step * 2 / shape.width * 3;
                        ASSERT_NEAR(out[y * rig.width + x], std::min(4096 * units, 32767.0),
                                    0.51 + 1e-6 * 4096 * units * (least < 1e30))
                            << x << ' ' << y;
                    }
            }
}

// Long runs of one kind, over all sorts of columns, on every target.
TEST(EdgeDist, RunsAreMeasuredToTheNearestColumn) {
    std::mt19937 rng(3);
    const auto rows_of = [&](int kind, int i, int n) {
        switch (kind) {
            case 0:
                return 300;
            case 1:
                return 1 + i / 2;
            case 2:
                return rng() % 50 ? 0xffff : static_cast<int>(rng() % 200);
            case 3:
                return 1 + std::abs(i - n / 3) * 3;
            case 4:
                return static_cast<int>(rng() % 900) + 1;
            default:
                return 0xffff;
        }
    };
    for (const int n : {1, 2, 15, 16, 17, 33, 400, 1283})
        for (int kind = 0; kind < 6; ++kind)
            for (int ends = 0; ends < 4; ++ends) {
                const bool before = ends & 1, behind = ends & 2;
                std::vector<uint16_t> rows;
                for (int i = 0; i < n; ++i) rows.push_back(static_cast<uint16_t>(rows_of(kind, i, n)));
                std::vector<float> want;
                for (int x = 0; x < n; ++x) {
                    int64_t least = before ? (x + 1) * (x + 1) : INT64_MAX;
                    if (behind) least = std::min<int64_t>(least, (n - x) * (n - x));
                    for (int k = 0; k < n; ++k)
                        if (rows[k] != 0xffff) least = std::min<int64_t>(least, (x - k) * (x - k) + rows[k] * rows[k]);
                    want.push_back(least == INT64_MAX ? edge_nowhere : static_cast<float>(least));
                }
                velloran_tests::for_each_row_target([&](int64_t) {
                    std::vector<int32_t> scratch(static_cast<size_t>(run_scratch(n)));
                    std::vector<float> got(static_cast<size_t>(n + run_block));
                    run_distance_rows().measure(rows.data(), n, before, behind, scratch.data(), got.data());
                    got.resize(static_cast<size_t>(n));
                    ASSERT_EQ(got, want) << n << ' ' << kind << ' ' << before << behind;
                });
            }
}

TEST(EdgeRows, EveryTargetMatchesPlain) {
    const int n = 77;
    std::mt19937 rng(4);
    std::vector<int32_t> below(n + 3), row(n + 3), above(n + 3);
    for (auto* line : {&below, &row, &above})
        for (int32_t& v : *line) v = static_cast<int32_t>(rng()) >> 3;
    const Plane a = random_plane(n + 3, 1, -32767, 32767, 5), b = random_plane(n + 3, 1, -20, 4200, 6);
    const auto light = std::make_unique<Light>(Light{{0.36f, -0.48f, 0.8f}, {0.2f, -0.3f, 0.93f}, {}});
    for (float& h : light->highlights) h = static_cast<float>(rng() % 3000);
    const auto results = [&] {
        const EdgeRows& rows = edge_rows();
        std::vector<Plane> out;
        for (const int length : {1, 2, 15, 16, 33, n})
            for (const int shift : {0, 1, 3}) {
                const SlopeRow in = {&row[shift], &below[shift], &above[shift], 1e-9f, 3e-9f, length};
                Plane x(n + 8, 99), y(n + 8, 99);
                rows.slopes(in, &x[1], &y[1]);
                out.insert(out.end(), {x, y});
                rows.slope_length(in, &x[1]);
                rows.slope_direction(in, 0.3f, &y[1]);
                out.insert(out.end(), {x, y});
                rows.slope_along(in, length / 3, length - length / 3, &a[shift], &b[shift], &x[1]);
                rows.scaled_difference(&a[shift], &b[shift], &y[1], 2048, 70000, length);
                out.insert(out.end(), {x, y});
                rows.add_difference(&a[shift], &b[shift], &y[1], -9000, length);
                out.push_back(y);
                rows.moved_slope_length(in, 0.1f, -0.2f, &y[1]);
                out.push_back(y);
                std::vector<float> scattered(n + 8), reflected(n + 8);
                rows.shade(in, *light, &scattered[1], &reflected[1]);
                std::vector<uint16_t> counted = {5, 65535, 65534, 0, 1, 2};
                counted.resize(n + 8, 65535);
                const std::vector<uint16_t> beside(counted.rbegin(), counted.rend());
                rows.count_rows(&a[shift], &b[shift], &beside[1], &counted[1], length);
                Plane low(n + 8, 99), high(n + 8, 99);
                rows.extremes(&a[0], &b[shift], &a[shift], &high[1], &low[1], length);
                rows.mark_steps(&b[shift], &high[1], &low[1], 30000, &x[1], length);
                rows.distances(&reflected[1], 70.0f, &y[1], length);
                out.insert(out.end(), {x, y, high, low, Plane(counted.begin(), counted.end())});
                x = a;
                rows.apply_light(&x[shift], &scattered[1], &reflected[1], 0.7f, length);
                out.push_back(x);
            }
        return out;
    };
    const std::vector<Plane> want = velloran_tests::on_plain_target(results);
    velloran_tests::for_each_row_target([&](int64_t) { EXPECT_EQ(results(), want); });
}
