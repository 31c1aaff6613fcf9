// The blur against a plain model of its arithmetic: boxes by adding up their windows, line by line.
#include "operators/blur/blur_image.h"

#include "hosts/common/host.h"
#include "operators/blur/blur_plan.h"
#include "operators/blur/boxes/box_lines.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"
#include "testing/host_of_tasks.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

using namespace velloran;

namespace {

using Plane = std::vector<FixPixel>;
using Line = std::vector<int32_t>;

struct Setting {
    int width, height;
    double x_pixels, y_pixels;
    int edge, passes;
    bool subpixel, per_field;
    double gain = 1;
};

int digits(int64_t n) {
    int d = 0;
    for (; n; n /= 2) ++d;
    return d;
}

// Sum of the window of radius r around each sample, by adding it up.
Line model_box(const Line& in, int r, int edge) {
    const int n = static_cast<int>(in.size());
    Line out(in.size());
    for (int i = 0; i < n; ++i) {
        uint32_t sum = 0;
        for (int k = i - r; k <= i + r; ++k) {
            const bool inside = k >= 0 && k < n;
            if (inside) sum += static_cast<uint32_t>(in[k]);
            if (!inside && edge) sum += static_cast<uint32_t>(in[k < 0 ? -1 - k : 2 * n - 1 - k]);
        }
        out[i] = static_cast<int32_t>(sum);
    }
    return out;
}

// Blurs each of the lines; scale is what 1.0 is in them, before and after. size: the length that bounds a radius.
void model_lines(std::vector<Line>& lines, int radius, int size, const Setting& s, int* scale) {
    int lo = (radius + 2048) >> 12, hi = lo;
    float fraction = 0;
    if (s.subpixel) {
        lo = radius >> 12;
        hi = ((radius - 1) >> 12) + 1;
        fraction = static_cast<float>(radius - lo * 4096) / 4096;
    }
    const int passes = std::clamp(s.passes, 1, 3);
    int used_lo = 0, used_hi = 0;
    for (int pass = 0; pass < passes; ++pass) {
        const int longest = std::max(size / 2 - 1, 0);
        const int l = std::min((lo - used_lo) / (passes - pass), longest);
        const int h = std::min((hi - used_hi) / (passes - pass), longest);
        used_lo += l;
        used_hi += h;
        const int shift = std::max(0, digits(*scale) + digits(2 * h + 1) - 30);
        *scale = (*scale >> shift) * (2 * h + 1);
        const float lo_weight = static_cast<float>(2 * h + 1) / static_cast<float>(2 * l + 1) * (1 - fraction);
        for (Line& line : lines) {
            for (int32_t& v : line) v >>= shift;
            const Line low = model_box(line, l, s.edge), high = model_box(line, h, s.edge);
            if (l == h) {
                line = low;
                continue;
            }
            for (size_t i = 0; i < line.size(); ++i) {
                const float a = static_cast<float>(low[i]) * lo_weight, b = static_cast<float>(high[i]) * fraction;
                line[i] = static_cast<int32_t>(std::clamp<double>(a + b, INT32_MIN, 2147483520.0));
            }
        }
    }
}

// The accumulators of a blurred plane.
std::vector<int32_t> model_accumulators(const Plane& in, const Setting& s, int* scale) {
    *scale = 4096;
    const int x_radius = static_cast<int>(s.x_pixels * 4096), y_radius = static_cast<int>(s.y_pixels * 4096);
    std::vector<Line> rows(s.height, Line(s.width));
    for (int i = 0; i < s.width * s.height; ++i) rows[i / s.width][i % s.width] = in[i];
    if (x_radius >= 1) model_lines(rows, x_radius, s.width, s, scale);
    const int fields = s.per_field ? 2 : 1;
    std::vector<Line> columns(static_cast<size_t>(s.width) * fields);
    for (int y = 0; y < s.height; ++y)
        for (int x = 0; x < s.width; ++x) columns[x * fields + y % fields].push_back(rows[y][x]);
    if (y_radius / fields > 0) model_lines(columns, y_radius / fields, s.height / fields, s, scale);
    std::vector<int32_t> out(in.size());
    for (int y = 0; y < s.height; ++y)
        for (int x = 0; x < s.width; ++x) out[y * s.width + x] = columns[x * fields + y % fields][y / fields];
    return out;
}

Plane model_blur(const Plane& in, const Setting& s) {
    int scale;
    const std::vector<int32_t> sums = model_accumulators(in, s, &scale);
    const float factor =
        (static_cast<float>(static_cast<int>(s.gain * 4096)) / 4096) / (static_cast<float>(scale) / 4096);
    Plane out(in.size());
    for (size_t i = 0; i < in.size(); ++i)
        out[i] =
            static_cast<FixPixel>(std::clamp(std::trunc(static_cast<float>(sums[i]) * factor), -32767.0f, 32767.0f));
    return out;
}

Plane random_plane(int width, int height, int low, int high, unsigned seed = 1) {
    std::mt19937 rng(seed);
    Plane plane(static_cast<size_t>(width) * height);
    for (FixPixel& v : plane) v = static_cast<FixPixel>(std::uniform_int_distribution<int>(low, high)(rng));
    return plane;
}

BlurSettings settings_of(const Setting& s) {
    return {.x_radius = static_cast<int>(s.x_pixels * 4096),
            .y_radius = static_cast<int>(s.y_pixels * 4096),
            .edge_mode = s.edge,
            .passes = s.passes,
            .subpixel = s.subpixel,
            .gain = static_cast<int>(s.gain * 4096)};
}

FilterFrame frame_of(const Setting& s) { return {.width = s.width, .height = s.height, .fields = s.per_field}; }

Plane blurred(const Plane& in, const Setting& s) {
    Plane out(in.size(), -99);
    blur_image(in.data(), out.data(), settings_of(s), frame_of(s));
    return out;
}

class BlurImage : public testing::Test {
protected:
    void SetUp() override {
        spark_host::use_host(&mine);
        tasks(2);
        reset_abort();
    }
    void TearDown() override { spark_host::use_host(nullptr); }
    void tasks(int n) {
        mine.processors = n;
        set_cpu_count(n, 1);
    }
    spark_host::Host mine;
};

const struct {
    int width, height;
} sizes[] = {{1, 1}, {2, 1}, {1, 7}, {3, 2}, {17, 5}, {33, 31}, {64, 64}, {131, 77}, {20, 150}};

}  // namespace

TEST_F(BlurImage, EqualsTheModel) {
    const struct {
        double x, y;
    } radii[] = {{0.4, 0.4}, {1, 0}, {0, 1.5}, {2.3, 7}, {16, 3}, {21, 22}, {24, 25}, {40.25, 61.5}, {500, 900}};
    for (const auto& size : sizes) {
        const Plane in = random_plane(size.width, size.height, -400, 4500);
        for (const auto& r : radii)
            for (int choice = 0; choice < 24; ++choice) {
                const Setting s = {size.width,        size.height,      r.x, r.y, choice & 1, 1 + choice / 8,
                                   (choice & 2) != 0, (choice & 4) != 0};
                ASSERT_EQ(blurred(in, s), model_blur(in, s))
                    << s.width << "x" << s.height << " radii " << s.x_pixels << ", " << s.y_pixels << " edge " << s.edge
                    << " passes " << s.passes << " subpixel " << s.subpixel << " fields " << s.per_field;
            }
    }
}

// What a task keeps of a line goes round on long ones; radii next to each other share among the passes in other ways.
TEST_F(BlurImage, LongLinesEqualTheModel) {
    const struct { int width, height; } long_sizes[] = {{1409, 19}, {67, 1300}};
    for (const auto& size : long_sizes) {
        const Plane in = random_plane(size.width, size.height, -32768, 32767);
        for (const double r : {5.0, 6.0, 7.0, 91.0, 399.0, 400.0, 401.0, 432.0, 2000.0})
            for (const int passes : {2, 3}) {
                const Setting s = {size.width, size.height, r, r, 1, passes, false, false};
                const Plane want = model_blur(in, s);
                velloran_tests::for_each_row_target([&](int64_t) {
                    ASSERT_EQ(blurred(in, s), want) << s.width << "x" << s.height << " " << r << " " << passes;
                });
            }
    }
    // The lowest sample is one below what is held, and a gain may be larger than all that was summed.
    const Setting plain = {67, 130, 4, 4, 1, 3, false, false, 1.5}, steep = {67, 130, 1, 1, 1, 3, false, false, 200000};
    for (const int v : {-32768, 32767}) {
        const Plane flat(67 * 130, static_cast<FixPixel>(v));
        velloran_tests::for_each_row_target([&](int64_t) {
            EXPECT_EQ(blurred(flat, plain), model_blur(flat, plain)) << v;
            EXPECT_EQ(blurred(flat, steep), model_blur(flat, steep)) << v;
        });
    }
}

TEST_F(BlurImage, TasksAndTargetsDoNotShow) {
    const Plane in = random_plane(203, 117, -2000, 9000);
    const Setting settings[] = {{203, 117, 9, 14, 1, 3, false, false},
                                {203, 117, 9.3, 14.7, 0, 3, true, true, 1.7},
                                {203, 117, 300, 300, 1, 2, true, false},
                                {203, 117, 5, 0, 1, 3, false, false, -0.5},
                                {203, 117, 0, 6, 0, 1, false, false}};
    for (const Setting& s : settings) {
        const Plane want = model_blur(in, s);
        for (int n = 1; n <= 8; ++n) {
            tasks(n);
            EXPECT_EQ(blurred(in, s), want) << n << " tasks";
        }
        velloran_tests::for_each_row_target([&](int64_t) { EXPECT_EQ(blurred(in, s), want); });
    }
}

// Large planes are written past the caches, which asks for whole cache lines: planes that begin on one and those that
// do not go different ways. So do radii that are far apart, which no plan has, and those that are not.
TEST_F(BlurImage, StoresPastTheCachesDoNotShow) {
    constexpr int width = 2 * column_lanes, height = 75;
    const float factor = 1.0f / 700;
    const Plane random = random_plane(width, height, -2000, 9000);
    const velloran_tests::HostVector<int32_t> in(random.begin(), random.end());
    struct Case {
        int radius, first_shift, last_shift;
    };
    for (const Case& c : {Case{5, 0, 0}, Case{4, 0, 0}, Case{4, 1, 0}, Case{4, 0, 1}}) {
        const int r = c.radius, first_shift = c.first_shift, last_shift = c.last_shift;
        const BoxLines lines = {
            height, 1, first_shift, 3, {{3, 3, 0, 0, 0}, {r, r, 1, 0, 0}, {r, r, last_shift, 0, 0}}};
        Plane want(in.size());
        for (int x = 0; x < width; ++x) {
            Line line(height);
            for (int y = 0; y < height; ++y) line[y] = in[y * width + x] >> first_shift;
            line = model_box(model_box(line, 3, 1), r, 1);
            for (int32_t& v : line) v >>= 1;
            line = model_box(line, r, 1);
            for (int32_t& v : line) v >>= last_shift;
            for (int y = 0; y < height; ++y)
                want[y * width + x] = static_cast<FixPixel>(
                    std::clamp(std::trunc(static_cast<float>(line[y]) * factor), -32767.0f, 32767.0f));
        }
        velloran_tests::HostVector<int32_t> scratch(box_lines_scratch(lines, column_lanes) / sizeof(int32_t));
        velloran_tests::for_each_row_target([&](int64_t) {
            for (const int beside : {0, 5}) {
                const int pitch = width + beside;
                velloran_tests::HostVector<FixPixel> out(static_cast<size_t>(pitch) * height, -99);
                for (int x = 0; x < width; x += column_lanes) {
                    const BoxSource source = {nullptr, in.data() + x, width};
                    const BoxSink sink = {nullptr, out.data() + beside + x, pitch, factor, 0, 0, true};
                    box_columns_function(lines, source, sink)(lines, source, sink, column_lanes, scratch.data());
                }
                for (int i = 0; i < pitch * height; ++i) {
                    const int x = i % pitch - beside;
                    ASSERT_EQ(out[i], x < 0 ? -99 : want[i / pitch * width + x]) << r << " " << beside << " " << i;
                }
            }
        });
    }
}

// What a crop leaves away does not change what is left: the part of the frame around it that a blur takes in, cut off
// at the frame's edges, gives the same samples inside. Frames are small and radii are not, so that boxes come near
// their limit, and parts are narrower than a box.
TEST_F(BlurImage, PartsOfAFrameAreThoseOfTheWhole) {
    std::mt19937 rng(11);
    const auto below = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
    tasks(1);
    int narrow = 0;
    for (int i = 0; i < 4000; ++i) {
        const int w = 1 + below(70), h = 1 + below(50);
        Setting s = {
            w, h, below(8 * 40) / 8.0, below(8 * 40) / 8.0, below(2), 1 + below(3), below(2) == 1, below(3) == 0, 1};
        const Plane in = random_plane(w, h, -400, 4500, static_cast<unsigned>(i));
        const Plane whole = blurred(in, s);
        // The crop, and the area that is needed for it; on fields it begins on a row of the same field.
        const int x0 = below(w), x1 = x0 + 1 + below(std::min(w - x0, 9)), y0 = below(h),
                  y1 = y0 + 1 + below(std::min(h - y0, 9));
        const int reach_x = static_cast<int>(std::ceil(s.x_pixels)),
                  reach_y = static_cast<int>(std::ceil(s.y_pixels)) * (s.per_field ? 2 : 1);
        int left = std::max(x0 - reach_x, 0), right = std::min(x1 + reach_x, w);
        int bottom = std::max(y0 - reach_y, 0), top = std::min(y1 + reach_y, h);
        if (s.per_field) bottom -= bottom & 1;
        narrow += right - left < w && s.x_pixels / s.passes > (right - left) / 2;
        Plane part;
        for (int y = bottom; y < top; ++y) part.insert(part.end(), &in[y * w + left], &in[y * w] + right);
        const FilterFrame frame = {
            .width = right - left, .height = top - bottom, .whole_width = w, .whole_height = h, .fields = s.per_field};
        blur_image(part.data(), part.data(), settings_of(s), frame);
        for (int y = y0; y < y1; ++y)
            for (int x = x0; x < x1; ++x)
                ASSERT_EQ(part[(y - bottom) * frame.width + x - left], whole[y * w + x])
                    << i << ": " << w << "x" << h << " at " << x << "," << y << " of " << left << ".." << right << ", "
                    << bottom << ".." << top << " radii " << s.x_pixels << ", " << s.y_pixels << " passes " << s.passes
                    << " edge " << s.edge << " subpixel " << s.subpixel << " fields " << s.per_field;
    }
    EXPECT_GT(narrow, 100) << "boxes wider than half of a part are what this is about";
}

TEST_F(BlurImage, WorksInPlace) {
    const Setting settings[] = {{90, 70, 9, 14, 1, 3, false, false},
                                {90, 70, 30, 0, 1, 3, true, false},
                                {90, 70, 0, 30, 0, 3, false, true},
                                {90, 70, 0, 0, 0, 3, false, false, 0.5}};
    for (const Setting& s : settings) {
        const Plane in = random_plane(90, 70, 0, 4095);
        Plane plane = in;
        blur_image(plane.data(), plane.data(), settings_of(s), frame_of(s));
        EXPECT_EQ(plane, blurred(in, s)) << s.x_pixels << " " << s.y_pixels;
    }
}

TEST_F(BlurImage, WhatPeopleSee) {
    // A flat picture stays flat with mirrored edges, and darkens towards black ones.
    const Plane flat(101 * 51, 3000);
    const Setting mirrored = {101, 51, 12, 12, 1, 3, false, false}, black = {101, 51, 12, 12, 0, 3, false, false};
    const Plane still = blurred(flat, mirrored), dark = blurred(flat, black);
    for (const FixPixel v : still) ASSERT_NEAR(v, 3000, 1);
    EXPECT_NEAR(dark[25 * 101 + 50], 3000, 1);
    EXPECT_LT(dark[25 * 101], 1560);  // each pass finds half of its window outside, and what it finds is darker already
    EXPECT_GT(dark[25 * 101], 750);

    // A point stays where it was, symmetric, and keeps its sum; 1.0 before and after.
    Plane point(101 * 51);
    point[25 * 101 + 50] = 32767;
    const Plane spread = blurred(point, {101, 51, 6, 6, 1, 3, true, false});
    int sum = 0;
    for (int y = 0; y < 51; ++y)
        for (int x = 0; x < 101; ++x) {
            sum += spread[y * 101 + x];
            ASSERT_EQ(spread[y * 101 + x], spread[y * 101 + 100 - x]);
            ASSERT_EQ(spread[y * 101 + x], spread[(50 - y) * 101 + x]);
        }
    EXPECT_GT(spread[25 * 101 + 50], spread[25 * 101 + 51]);
    EXPECT_NEAR(sum, 32767 - 13 * 13 / 2, 13 * 13 / 2);  // each sample is truncated

    // 0.4 of a pixel: rounded to nothing, or 0.6 of the picture and 0.4 of a box of three.
    const Plane in = {0, 0, 4000, 0, 0};
    EXPECT_EQ(blurred(in, {5, 1, 0.4, 0, 1, 1, false, false}), in);
    const Plane mixed = blurred(in, {5, 1, 0.4, 0, 1, 1, true, false});
    EXPECT_NEAR(mixed[2], 0.6 * 4000 + 0.4 * 4000 / 3, 2);
    EXPECT_NEAR(mixed[1], 0.4 * 4000 / 3, 2);
    EXPECT_EQ(mixed[0], 0);

    // Gain 0 clears; over-range stays over range, and is held to 16 bits.
    EXPECT_EQ(blurred(in, {5, 1, 3, 0, 1, 3, false, false, 0}), Plane(5, 0));
    const Plane bright(64 * 64, 8000);
    for (const FixPixel v : blurred(bright, mirrored.width ? Setting{64, 64, 4, 4, 1, 3, false, false} : mirrored))
        ASSERT_NEAR(v, 8000, 2);
    EXPECT_EQ(blurred(bright, {64, 64, 4, 4, 1, 3, false, false, 6})[100], 32767);
    EXPECT_EQ(blurred(bright, {64, 64, 0, 0, 1, 3, false, false, -6})[100], -32767);
}

TEST_F(BlurImage, LeavesAccumulatorsForOthers) {
    const Setting s = {61, 43, 300, 7.5, 0, 3, true, false};
    const Plane in = random_plane(61, 43, 0, 4095);
    blur_into_long_image(in.data(), settings_of(s), frame_of(s));
    int scale;
    std::vector<int32_t> want = model_accumulators(in, s, &scale);
    EXPECT_EQ(long_image_scale, scale);
    EXPECT_EQ(std::vector<int32_t>(long_image, long_image + want.size()), want);

    scale_long_image(2048);
    EXPECT_EQ(long_image_scale, 2048);
    for (size_t i = 0; i < want.size(); ++i)
        ASSERT_NEAR(long_image[i], static_cast<double>(want[i]) * 2048 / scale, 1) << i;
    scale_long_image(0);
    EXPECT_EQ(std::count(long_image, long_image + want.size(), 0), static_cast<long>(want.size()));

    // Without radii the samples themselves.
    blur_into_long_image(in.data(), {}, frame_of(s));
    EXPECT_EQ(long_image_scale, 4096);
    EXPECT_TRUE(std::equal(in.begin(), in.end(), long_image));
}

TEST_F(BlurImage, StopsWhenTheUserAborts) {
    const Plane in = random_plane(300, 200, 0, 4095);
    mine.pen.pressure = 1;
    static double now;
    now = 0;
    double (*const clock)() = abort_clock;
    abort_clock = [] { return now += 0.7; };  // each look at the pen is a little later
    reset_abort();
    const Plane out = blurred(in, {300, 200, 20, 20, 1, 3, false, false});
    EXPECT_TRUE(render_aborted_p());
    EXPECT_NE(out, model_blur(in, {300, 200, 20, 20, 1, 3, false, false}));
    abort_clock = clock;
    mine.pen.pressure = 0;
    reset_abort();
    EXPECT_EQ(blurred(in, {300, 200, 20, 20, 1, 3, false, false}),
              model_blur(in, {300, 200, 20, 20, 1, 3, false, false}));
}

TEST(BlurPlan, SplitsRadii) {
    const struct {
        int radius, passes, size;
        int32_t want[3];
    } rows[] = {{7, 3, 100, {2, 2, 3}}, {8, 3, 100, {2, 3, 3}},  {1, 3, 100, {0, 0, 1}}, {400, 3, 61, {29, 29, 29}},
                {5, 2, 100, {2, 3, 0}}, {-3, 3, 100, {0, 0, 0}}, {9, 3, 1, {0, 0, 0}},   {9, 1, 100, {9, 0, 0}}};
    for (const auto& row : rows) {
        int32_t got[3] = {};
        split_radius(row.radius, row.passes, row.size, got);
        EXPECT_TRUE(std::equal(got, got + 3, row.want)) << row.radius << " in " << row.passes;
    }
}

TEST_F(BlurImage, Helpers) {
    int shift;
    int32_t weight;
    set_shift_and_weight_for_divide(&shift, &weight, 4096, 4096 * 27);
    EXPECT_EQ(shift, 17);
    EXPECT_EQ(weight, (4096 << 17) / (4096 * 27));
    set_shift_and_weight_for_divide(&shift, &weight, 1, 0x7fffffff);
    EXPECT_EQ(weight, 1);

    // How many of the samples that two boxes of radius 1 and 2 add up lie inside a line of six.
    int32_t a[6], b[6];
    const int32_t radii[] = {1, 2};
    fill_edge_weight_table(a, b, radii, 2, 6);
    const int32_t first[] = {2, 3, 3, 3, 3, 2};
    for (int i = 0; i < 6; ++i) {
        int want = 0;
        for (int k = std::max(i - 2, 0); k <= std::min(i + 2, 5); ++k) want += first[k];
        EXPECT_EQ(a[i], want) << i;
    }
}
