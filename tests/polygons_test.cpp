// Coverage of polygons against exact areas, and what is drawn with it; the grid against a finely sampled one.
#include "operators/polygons/coverage_rows.h"
#include "operators/polygons/polygon_buffer.h"
#include "operators/polygons/polygon_functions.h"
#include "operators/polygons/shape_outline.h"
#include "support/memory.h"
#include "testing/caught_messages.h"
#include "testing/filter_node.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>

#include <functional>

using namespace velloran;
using velloran_tests::FilterFrameRig;
using velloran_tests::Plane;

namespace {

constexpr double pi = 3.14159265358979323846;
using Polygon = std::vector<ShapePoint>;
using Coverage = std::vector<float>;

// The part of a polygon where distance(p) is above 0, after Sutherland and Hodgman: its signed area is the integral of
// the winding number, also where the polygon crosses itself.
Polygon clipped(const Polygon& in, const std::function<double(ShapePoint)>& distance) {
    Polygon out;
    for (size_t i = 0; i < in.size(); ++i) {
        const ShapePoint a = in[i], b = in[(i + 1) % in.size()];
        const double da = distance(a), db = distance(b);
        if (da >= 0) out.push_back(a);
        if ((da < 0) != (db < 0))
            out.push_back({a.x + (b.x - a.x) * da / (da - db), a.y + (b.y - a.y) * da / (da - db)});
    }
    return out;
}

double signed_area(const Polygon& p) {
    double twice = 0;
    for (size_t i = 0; i < p.size(); ++i) {
        const ShapePoint a = p[i], b = p[(i + 1) % p.size()];
        twice += a.x * b.y - b.x * a.y;
    }
    return twice / 2;
}

double exact_coverage(const Polygon& polygon, int x, int y) {
    Polygon p = clipped(polygon, [&](ShapePoint q) { return q.x - x; });
    p = clipped(p, [&](ShapePoint q) { return x + 1 - q.x; });
    p = clipped(p, [&](ShapePoint q) { return q.y - y; });
    p = clipped(p, [&](ShapePoint q) { return y + 1 - q.y; });
    // Around the pixel, so that few bits are lost.
    for (ShapePoint& q : p) q = {q.x - x, q.y - y};
    return std::min(std::fabs(signed_area(p)), 1.0);
}

// Drawn in stripes of so many rows.
Coverage draw(const Polygon& polygon, int width, int height, int stripe, int left = 0, int bottom = 0) {
    Coverage out(static_cast<size_t>(width * height), 9.0f);
    PolygonBuffer pb;
    init_polygon_buffer(&pb, width, height, out.data(), true);
    pb.left = left;
    pb.bottom = bottom;
    for (int row = 0; row < height; row += stripe) {
        PolygonBuffer own = clone_polygon_buffer(pb);
        const int end = std::min(row + stripe, height);
        start_polygon(&own);
        for (const ShapePoint p : polygon) add_polygon_point(&own, p.x, p.y, row, end);
        close_polygon(&own, row, end);
        finish_polygon_stripe(&own, row, end);
    }
    free_polygon_buffer(&pb);
    return out;
}

Polygon star(int arms, double inner, double radius, double x, double y) {
    Polygon p;
    for (int i = 0; i < 2 * arms; ++i) {
        const double r = (i & 1 ? inner : 1) * radius;
        p.push_back({x + r * std::cos(pi * i / arms), y + r * std::sin(pi * i / arms)});
    }
    return p;
}

struct Case {
    const char* name;
    Polygon polygon;
};
std::vector<Case> cases() {
    std::vector<Case> all = {
        {"a triangle within a pixel", {{4.2, 3.1}, {4.9, 3.3}, {4.4, 3.8}}},
        {"a pixel", {{4, 3}, {5, 3}, {5, 4}, {4, 4}}},
        {"a sliver across", {{-3, 5.2}, {40, 6.9}, {40, 6.9001}}},
        {"a sliver upwards", {{7.3, -4}, {7.3001, -4}, {7.9, 30}}},
        {"upright", {{2.25, 2.5}, {9.75, 2.5}, {9.75, 12.25}, {2.25, 12.25}}},
        {"clockwise", {{2, 2}, {3, 14}, {17, 9}}},
        {"crossing itself", {{2, 2}, {18, 13}, {18, 2}, {2, 13}}},
        {"wound twice", {{3, 3}, {15, 3}, {15, 12}, {3, 12}, {3, 3}, {15, 3}, {15, 12}, {3, 12}}},
        {"with a hole", {{1, 1}, {19, 1}, {19, 14}, {1, 14}, {1, 1}, {5, 5}, {5, 10}, {12, 10}, {12, 5}, {5, 5}}},
        {"over the left side", {{-9, 2}, {6, 7}, {-5, 15}}},
        {"over the right side", {{14, 2}, {40, 7}, {17, 15}}},
        {"over the lower side", {{3, 4}, {10, -20}, {16, 5}}},
        {"over the upper side", {{3, 11}, {10, 50}, {16, 9}}},
        {"over all sides", {{-1e6, -3e5}, {1e6, -3e5}, {10, 1e6}}},
        {"beside", {{30, 2}, {40, 9}, {33, 12}}},
        {"before", {{-30, 2}, {-10, 9}, {-13, 12}}},
        {"above", {{3, 30}, {9, 33}, {12, 40}}},
        {"level", {{3, 5}, {9, 5}, {14, 5}}},
        {"a point", {{3, 5}}},
        {"a star of 2,000 points", star(1000, 0.6, 7, 10.3, 7.7)},
        {"a star of needles", star(60, 0.01, 9, 10.1, 7.2)},
    };
    std::mt19937 rng(3);
    for (int n = 3; n < 40; n += 4) {
        Polygon p;
        for (int i = 0; i < n; ++i)
            p.push_back(
                {(static_cast<int>(rng() % 4000) - 800) / 100.0, (static_cast<int>(rng() % 3000) - 700) / 100.0});
        all.push_back({"random", p});
    }
    return all;
}

}  // namespace

TEST(Polygons, CoverageIsTheExactAreaWhereverTheBufferLies) {
    const int width = 21, height = 16;
    for (const Case& c : cases()) {
        SCOPED_TRACE(c.name);
        const Coverage got = draw(c.polygon, width, height, height);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                ASSERT_NEAR(got[static_cast<size_t>(y * width + x)], exact_coverage(c.polygon, x, y), 1e-4)
                    << x << ' ' << y;
        EXPECT_EQ(draw(c.polygon, width, height, 3), got) << "in stripes";
        // A part of the picture holds the very same.
        const int left = 6, bottom = 5, columns = 9, rows = 7;
        const Coverage part = draw(c.polygon, columns, rows, rows, left, bottom);
        for (int y = 0; y < rows; ++y)
            for (int x = 0; x < columns; ++x)
                ASSERT_EQ(part[static_cast<size_t>(y * columns + x)],
                          got[static_cast<size_t>((y + bottom) * width + x + left)]);
        // Far from the origin, to the bits that places there have.
        Polygon far = c.polygon;
        for (ShapePoint& p : far) p = {p.x + 100000, p.y + 3000};
        const Coverage moved = draw(far, width, height, height, 100000, 3000);
        for (size_t i = 0; i < got.size(); ++i) ASSERT_NEAR(moved[i], got[i], 1e-4);
    }
}

TEST(Polygons, TheBufferMayBeItsOwnAndScaled) {
    velloran_tests::Messages messages;
    init_polygon_buffer(nullptr, 3, 3, nullptr, true);
    EXPECT_EQ(messages.count("8 Null ptr in init_polygon_buffer"), 1);
    FilterFrameRig rig(64, 64);
    PolygonBuffer pb;
    init_polygon_buffer(&pb, 40, 30, nullptr, true);
    EXPECT_TRUE(pb.owns_buffer);
    pb.scale = 0.5;
    for (int round = 0; round < 2; ++round) {  // the second begins anew behind the first
        start_polygon(&pb);
        const double x = 20.0 * round;
        for (const ShapePoint p : Polygon{{x + 1, 10}, {x + 11, 10}, {x + 11, 30}, {x + 1, 30}})
            add_polygon_point(&pb, p.x, p.y, 0, 30);
        close_polygon(&pb, 0, 30);
    }
    finish_polygon(&pb);
    double sum = 0;
    for (int i = 0; i < 40 * 30; ++i) sum += static_cast<double>(pb.buffer[i]);
    EXPECT_DOUBLE_EQ(sum, 2 * 5 * 10);
    EXPECT_EQ(pb.buffer[5 * 40], 0.5f);
    free_polygon_buffer(&pb);
    EXPECT_EQ(pb.buffer, nullptr);
}

TEST(CoverageRows, EveryTargetMatchesPlain) {
    std::mt19937 rng(5);
    std::vector<float> areas(300);
    for (int i = 40; i < 260; i += 1 + static_cast<int>(rng() % 40))
        areas[static_cast<size_t>(i)] = static_cast<float>(static_cast<int>(rng() % 9) - 4) * 0.25f;
    const auto results = [&] {
        std::vector<float> row = areas;
        Plane out[2] = {Plane(300), Plane(300)};
        FixPixel* const planes[] = {out[0].data(), out[1].data()};
        const int32_t colors[] = {-9000, 4096};
        coverage_rows().finish_painted(row.data() + 3, 290, planes, colors, 2);
        coverage_rows().finish(row.data() + 3, 290);
        for (const double column : {0.0, 1000.0})
            coverage_rows().add_slope(row.data() + 260, 37, column, column - 0.3, 0.021, 0.125, -1.0f);
        for (const Plane& plane : out) row.insert(row.end(), plane.begin(), plane.end());
        return row;
    };
    const auto want = velloran_tests::on_plain_target(results);
    float sum = 0;
    for (size_t i = 3; i < 293; ++i) {
        sum += areas[i];
        const float coverage = std::min(std::fabs(sum), 1.0f);
        if (i < 260) {
            ASSERT_EQ(want[i], coverage);
        }
        ASSERT_EQ(want[300 + i - 3], static_cast<float>((static_cast<int>(coverage * 4096) * -9000) >> 12));
        ASSERT_EQ(want[600 + i - 3], coverage * 4096);
    }
    velloran_tests::for_each_row_target([&](int64_t) { EXPECT_EQ(results(), want); });
}

namespace {

// Arguments of draw_shape with size 0.5 in the middle, unless told.
struct Shown {
    double type = 0, points = 5, pointiness = 0, roundness = 0, swirl = 0, rotate = 0, turn = 0;
    double center_x = 0, center_y = 0, size_x = 0.5, size_y = 0.5;
    std::vector<double> color = {1};
};
std::vector<Plane> show(FilterFrameRig& rig, const Shown& s) {
    FilterFrameRig::Arg color(0.0);
    color.numbers = s.color;
    return rig.run(image_draw_shape, static_cast<int>(s.color.size()), 0,
                   {s.type,
                    {s.center_x, s.center_y},
                    {s.size_x, s.size_y},
                    s.points,
                    s.pointiness,
                    s.roundness,
                    s.swirl,
                    {s.rotate, s.turn},
                    color});
}
// In samples.
double area_of(const Plane& plane) {
    double sum = 0;
    for (const FixPixel v : plane) sum += v;
    return sum / 4096;
}

}  // namespace

TEST(DrawShape, HasTheAreaOfItsShape) {
    const double rim = 60;  // radius in samples: size 0.5 of a frame 240 wide
    const struct {
        const char* name;
        Shown shown;
        double area;  // of a radius of 1
    } shapes[] = {
        {"triangle", {.points = 3}, 1.5 * std::sin(2 * pi / 3)},
        {"as few corners as can be", {.points = -7}, 1.5 * std::sin(2 * pi / 3)},
        {"square, turned", {.points = 4, .rotate = 0.1, .turn = 0.03}, 2},
        {"hexagon, swirled about itself", {.points = 6, .rotate = 0.4}, 3 * std::sin(pi / 3)},
        {"star", {.type = 1, .points = 5, .pointiness = 1}, 5 * 0.5 * std::sin(pi / 5)},
        {"star without points", {.type = 1, .points = 8, .pointiness = -3}, 8 * std::sin(pi / 8)},
        {"circle of a triangle", {.points = 3, .roundness = 1}, pi},
        {"circle of a star", {.type = 1, .points = 9, .pointiness = 3, .roundness = 1}, pi},
        {"ellipse", {.points = 7, .roundness = 1, .size_y = 0.25}, pi / 2},
        {"mirrored", {.points = 4, .size_x = -0.5}, 2},
        {"no size", {.size_x = 0}, 0},
        {"beyond the frame", {.center_x = 9}, 0},
        // Polar area of the wave between the radii: the mean of its square.
        {"half round star is between",
         {.type = 1, .points = 400, .pointiness = 1, .roundness = 0},
         400 * 0.5 * std::sin(pi / 400)},
    };
    for (const int step : {1, 2}) {
        FilterFrameRig rig(240, 160, 2, step);
        for (const auto& s : shapes) {
            SCOPED_TRACE(s.name);
            // A circle's chords take at most 1/64 of a sample off; each sample truncates.
            const double radius = rim / step, most = 2 * pi * radius * (1.0 / 64 + 2.0 / 4096) + 0.5;
            EXPECT_NEAR(area_of(show(rig, s.shown)[0]), s.area * radius * radius, most);
        }
    }
}

TEST(DrawShape, LiesWhereItIsTold) {
    FilterFrameRig rig(200, 100);
    // A square on its corner around the corner of pixel (150, 75), 25 samples to its own corners.
    const Plane square = show(rig, {.points = 4, .center_x = 0.5, .center_y = 0.25, .size_x = 0.25, .size_y = 0.25})[0];
    const auto at = [&](int x, int y) { return square[static_cast<size_t>(y * 200 + x)]; };
    for (const auto& [x, y, want] : {std::array{150, 98, 4096},
                                     {150, 99, 2048},
                                     {150, 49, 0},
                                     {173, 75, 4096},
                                     {174, 75, 2048},
                                     {175, 75, 0},
                                     {125, 75, 2048},
                                     {150, 50, 2048},
                                     {138, 90, 0}})
        EXPECT_EQ(at(x, y), want) << x << ' ' << y;
    // The first corner is at the top, and a quarter of a turn leads it to the left.
    const Plane up = show(rig, {.points = 3, .size_x = 0.4, .size_y = 0.4})[0];
    EXPECT_GT(up[85 * 200 + 100], 0);
    EXPECT_EQ(up[20 * 200 + 100], 0);
    const Plane left = show(rig, {.points = 3, .rotate = 0.25, .size_x = 0.4, .size_y = 0.4})[0];
    EXPECT_GT(left[50 * 200 + 65], 0);
    EXPECT_EQ(left[50 * 200 + 130], 0);
    // Turned within its size, or as it lies.
    const Shown flat = {.points = 4, .size_x = 0.4, .size_y = 0.1};
    Shown within = flat, whole = flat;
    within.rotate = 0.25;
    whole.turn = 0.25;
    EXPECT_EQ(show(rig, within)[0][50 * 200 + 130], 4096);
    EXPECT_EQ(show(rig, whole)[0][50 * 200 + 130], 0);
    EXPECT_EQ(show(rig, whole)[0][80 * 200 + 100], 4096);
    // Each channel has its colour, alpha too; what a plane cannot hold stays at its end.
    const std::vector<Plane> colors = show(rig, {.roundness = 1, .color = {0.5, -1, 100, 1}});
    EXPECT_EQ(colors[0][50 * 200 + 100], 2048);
    EXPECT_EQ(colors[1][50 * 200 + 100], -4096);
    EXPECT_EQ(colors[2][50 * 200 + 100], 32767);
    EXPECT_EQ(colors[3][50 * 200 + 100], 4096);
    EXPECT_EQ(colors[3][0], 0);
}

TEST(DrawShape, IsTheSameOnAnyNumberOfTasksAndForAnyPixels) {
    const Shown shown = {.type = 1, .points = 1000, .pointiness = 1.5, .roundness = 0.3, .swirl = 0.2, .size_x = 0.9};
    std::vector<Plane> want;
    for (int tasks = 1; tasks <= 8; ++tasks) {
        FilterFrameRig rig(320, 200, tasks);
        const std::vector<Plane> got = show(rig, shown);
        if (want.empty()) want = got;
        EXPECT_EQ(got, want) << tasks;
    }
    // Pixels twice as high: half the rows for the same shape.
    FilterFrameRig rig(240, 80);
    the_frame->pixel_aspect_ratio = 2;
    EXPECT_NEAR(area_of(show(rig, {.points = 4})[0]), 2 * 60 * 30, 2);
    the_frame->pixel_aspect_ratio = 1;
}

namespace {

struct Grid {
    double boxes_x = 0, boxes_y = 0, width_x = 0.0625, width_y = 0.03125, center_x = 0, center_y = 0, size_x = 0.25,
           size_y = 0.1875;
    double distance = 1, latitude = 0.25, swing = 0, roll = 0, lens = 0.15, spacing = 0, major = 0;
};
Plane show(FilterFrameRig& rig, const Grid& g) {
    return rig.run(image_draw_grid, 1, 0,
                   {{g.boxes_x, g.boxes_y},
                    {g.width_x, g.width_y},
                    {g.center_x, g.center_y},
                    {g.size_x, g.size_y},
                    g.distance,
                    g.latitude,
                    g.swing,
                    g.roll,
                    g.lens,
                    g.spacing,
                    g.major})[0];
}

// Whether a place of the frame, in coordinates, shows a line: the ray is followed in space. The camera stands at
// distance 1 / k in its own units from the middle, where k is half the width of its view.
bool on_line(const Grid& g, double x, double y) {
    x -= g.center_x;
    y -= g.center_y;
    const double roll = 2 * pi * g.roll, swing = 2 * pi * g.swing, latitude = 2 * pi * g.latitude;
    const double sx = x * std::cos(roll) + y * std::sin(roll), sy = y * std::cos(roll) - x * std::sin(roll);
    // Plane axes X right, Y away, Z up; the picture at distance 1 has half width k, scaled to reach 1 at the middle.
    const double k = std::tan(pi * g.lens), far = g.distance / k;
    const double eye[3] = {0, -far * std::cos(latitude), far * std::sin(latitude)};
    const double ray[3] = {k * sx, std::cos(latitude) + k * sy * std::sin(latitude),
                           -std::sin(latitude) + k * sy * std::cos(latitude)};
    if (ray[2] >= 0) return false;
    const double t = -eye[2] / ray[2], X = eye[0] + t * ray[0], Y = eye[1] + t * ray[1];
    const double u = X * std::cos(swing) + Y * std::sin(swing), v = Y * std::cos(swing) - X * std::sin(swing);
    const auto along = [&](double at, double size, double boxes, double width) {
        const double place = at / size + (static_cast<int>(boxes) & 1 ? 0.5 : 0.0), line = std::floor(place + 0.5);
        const bool major = g.spacing > 0 && std::fmod(std::fabs(line), g.spacing) == 0;
        const double half = (major ? std::max(g.major, width) : width) / size / 2, low = -std::floor(boxes / 2);
        const double margin = std::max(g.spacing > 0 ? g.major : 0, width) / size / 2;
        const bool in = boxes == 0 || (place >= low - margin && place <= low + boxes + margin);
        const bool within = boxes == 0 || (line >= low && line <= low + boxes);
        return std::pair(std::fabs(place - line) <= half && within && in, in);
    };
    const auto a = along(u, g.size_x, g.boxes_x, g.width_x), b = along(v, g.size_y, g.boxes_y, g.width_y);
    return (a.first && b.second) || (b.first && a.second);
}

}  // namespace

TEST(DrawGrid, IsAFinelySampledPlane) {
    const struct {
        const char* name;
        Grid grid;
        double mean, most;  // differences allowed: lines that run at a slant are weighed by the box of a sample
    } grids[] = {
        {"from above", {}, 40, 300},
        {"boxes", {.boxes_x = 3, .boxes_y = 4}, 40, 300},
        {"major lines",
         {.boxes_x = 12, .boxes_y = 9, .size_x = 0.1, .size_y = 0.1, .spacing = 3, .major = 0.06},
         50,
         300},
        {"farther", {.distance = 2.5, .major = 0.1}, 70, 500},
        {"turned", {.center_x = 0.3, .center_y = -0.1, .swing = 0.06, .roll = 0.05}, 80, 700},
        {"floor", {.width_y = 0.04, .center_y = 0.3, .latitude = 0.06, .lens = 0.2}, 60, 1500},
        {"floor, boxes",
         {.boxes_x = 6, .boxes_y = 5, .latitude = 0.08, .swing = 0.1, .lens = 0.3, .spacing = 2, .major = 0.08},
         60,
         1700},
    };
    const int width = 96, height = 64, fine = 16;
    FilterFrameRig rig(width, height);
    for (const auto& g : grids) {
        SCOPED_TRACE(g.name);
        const Plane got = show(rig, g.grid);
        double sum = 0, most = 0;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                int on = 0;
                for (int k = 0; k < fine * fine; ++k)
                    on += on_line(g.grid, (x + (k % fine + 0.5) / fine) * 2 / width - 1,
                                  ((y + (k / fine + 0.5) / fine) * 2 - height) / width);
                const double off = std::fabs(got[static_cast<size_t>(y * width + x)] - 4096.0 * on / (fine * fine));
                sum += off;
                most = std::max(most, off);
            }
        EXPECT_LT(sum / (width * height), g.mean);
        EXPECT_LT(most, g.most);
    }
}

TEST(DrawGrid, EndsSoftlyAtTheHorizon) {
    FilterFrameRig rig(64, 200);
    // The horizon of a camera that looks down by 0.02 turns lies 0.126 / k above the middle.
    const Grid floor = {.width_x = 0.1, .width_y = 0.1, .size_x = 0.2, .size_y = 0.2, .latitude = 0.02, .lens = 0.15};
    const Plane plane = show(rig, floor);
    const double horizon = 100 + 32 * std::tan(2 * pi * 0.02) / std::tan(pi * 0.15);
    for (int y = 0; y < 200; ++y)
        for (int x = 0; x < 64; ++x) {
            const int v = plane[static_cast<size_t>(y * 64 + x)];
            if (y > horizon + 1) {
                ASSERT_EQ(v, 0);
            }
            // Half of all is line either way: three quarters of both.
            if (y > horizon - 3 && y < horizon - 1) {
                ASSERT_NEAR(v, 0.75 * 4096, 420) << x;
            }
        }
    // From below the plane is a ceiling: the same, upside down.
    Grid ceiling = floor;
    ceiling.latitude = -0.02;
    const Plane above = show(rig, ceiling);
    for (int y = 0; y < 200; ++y)
        ASSERT_NEAR(above[static_cast<size_t>((199 - y) * 64 + 20)], plane[static_cast<size_t>(y * 64 + 20)], 2);
    for (const Grid& odd : {Grid{.size_x = 0, .size_y = -3}, Grid{.distance = 0}, Grid{.latitude = 0}, Grid{.lens = 9},
                            Grid{.width_x = -1, .width_y = 100}, Grid{.spacing = -2, .major = 50}})
        for (const FixPixel v : show(rig, odd)) ASSERT_TRUE(v >= 0 && v <= 4096);
}

TEST(DrawGrid, IsTheSameOnEveryTarget) {
    const auto results = [] {
        FilterFrameRig rig(203, 70);
        return show(rig, Grid{.boxes_x = 40, .latitude = 0.05, .swing = 0.1, .roll = 0.02, .spacing = 5, .major = 0.1});
    };
    const Plane want = velloran_tests::on_plain_target(results);
    velloran_tests::for_each_row_target([&](int64_t) { EXPECT_EQ(results(), want); });
}
