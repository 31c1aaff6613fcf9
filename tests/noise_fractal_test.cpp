// Noise by subdivision against a plain model that makes every grid whole; its statistics, and what a crop shows of it.
#include "operators/noise/noise_functions.h"
#include "testing/engine_rig.h"
#include "testing/filter_node.h"
#include "testing/hash_model.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>

using namespace velloran;
using namespace velloran_tests;

namespace {

struct Settings {
    int width, height, step = 1;
    double frequency_x, frequency_y;
    int octaves;
    double shift_x = 0, shift_y = 0;
    int seed = 0;
    double aspect = 1;
    double scale = 1;
    int offset = 2048;
};

// ---- The model: lines of numbered samples, doubled from the lattice to the frame.

struct Line {
    long long first;
    std::vector<int> samples;
    int at(long long number) const { return samples.at(static_cast<size_t>(number - first)); }
    int size() const { return static_cast<int>(samples.size()); }
};

int floor_half(int v) { return v >= 0 ? v / 2 : -((1 - v) / 2); }

// 2 n - 3 samples of n: means between, and each inner one smoothed with its new neighbours.
Line doubled(const Line& line) {
    Line out{2 * line.first + 1, {}};
    for (int i = 0; i + 1 < line.size(); ++i) {
        const size_t k = static_cast<size_t>(i);
        const int mean = floor_half(line.samples[k] + line.samples[k + 1]);
        out.samples.push_back(mean);
        if (i + 2 == line.size()) break;
        const int b = line.samples[k + 1], right = floor_half(b + line.samples[k + 2]);
        out.samples.push_back((mean + 2 * b + right + 1) >> 2);
    }
    return out;
}
Line cut(const Line& line, long long first, int count) {
    Line out{first, {}};
    for (int i = 0; i < count; ++i) out.samples.push_back(line.at(first + i));
    return out;
}

struct Span {
    long long from, to;
    int count() const { return static_cast<int>((to >> 12) - (from >> 12)) + 4; }
    long long first() const { return (from >> 12) - 1; }
    bool doubles(int room) const { return to > from && 2 * count() - 3 <= room; }
};

using Grid = std::vector<Line>;  // rows; the first one has number first_row

struct Numbered {
    long long first_row;
    Grid rows;
};

Grid transposed(const Numbered& grid) {
    Grid columns;
    for (int c = 0; c < grid.rows[0].size(); ++c) {
        columns.push_back({grid.first_row, {}});
        for (const Line& row : grid.rows) columns.back().samples.push_back(row.samples[static_cast<size_t>(c)]);
    }
    return columns;
}
// Rows from columns, which begin with number first_column.
Numbered from_columns(const Grid& columns, long long first_column) {
    Numbered grid{columns[0].first, {}};
    for (int r = 0; r < columns[0].size(); ++r) {
        grid.rows.push_back({first_column, {}});
        for (const Line& column : columns) grid.rows.back().samples.push_back(column.samples[static_cast<size_t>(r)]);
    }
    return grid;
}

int value(uint32_t h, int channel) {
    return channel == 0 ? model_signed13(h) : channel == 1 ? model_signed13(h >> 16) : model_third(h);
}
void add_octave(Numbered& grid, int step, int channel, int seed) {
    for (size_t r = 0; r < grid.rows.size(); ++r) {
        const auto number = static_cast<uint32_t>(grid.first_row + static_cast<long long>(r));
        const uint32_t row_hash = model_hash(static_cast<uint32_t>(seed) ^ static_cast<uint32_t>(step) ^ (number << 4));
        Line& row = grid.rows[r];
        for (int c = 0; c < row.size(); ++c)
            row.samples[static_cast<size_t>(c)] +=
                value(model_hash(row_hash + static_cast<uint32_t>(row.first + c)), channel) >> step;
    }
}

std::vector<int> resampled(const Line& line, const Span& span, int n) {
    std::vector<int> out;
    const long long pitch = (span.to - span.from) * 16 / n;
    for (int i = 0; i < n; ++i) {
        const long long at = span.from * 16 + i * pitch;
        const int a = line.at(at >> 16), d = line.at((at >> 16) + 1) - a;
        out.push_back(a + ((at >> 15 & 1) ? d >> 1 : 0) + ((at >> 14 & 1) ? d >> 2 : 0));
    }
    return out;
}

Plane model(const Settings& s, int channel) {
    const int width = (s.width + s.step - 1) / s.step, height = (s.height + s.step - 1) / s.step;
    const double half =
        static_cast<double>(static_cast<float>(s.height) / static_cast<float>(s.width) * static_cast<float>(s.aspect));
    double fx = std::fabs(s.frequency_x) * 8,
           fy = std::fabs(s.frequency_y) * 8 / static_cast<double>(static_cast<float>(s.aspect));
    bool tall = false;
    for (int o = 0; o < std::min(4, s.octaves); ++o)
        tall = tall || fx * (1 << o) > (width - 4) / 2.0 || fy * (1 << o) > (height - 4) / (2 * half);
    fx = std::min(fx, (s.width - 4) / 2.0);
    fy = std::min(fy, (2 * s.height - 4) / (2 * half));
    // From the middle of the first sample on.
    const auto fixed = [](double v) { return static_cast<long long>(std::floor(v * 4096 + 0.5)); };
    const double dx = 2.0 * s.step / s.width, dy = 2 * half * s.step / s.height;
    const double x0 = -1 + dx / 2 - s.shift_x, y0 = -half + dy / 2 - s.shift_y;
    Span x{fixed(fx * x0), fixed(fx * (x0 + dx * width))}, y{fixed(fy * y0), fixed(fy * (y0 + dy * height))};

    Numbered grid{y.first(), Grid(static_cast<size_t>(y.count()),
                                  Line{x.first(), std::vector<int>(static_cast<size_t>(x.count()))})};
    add_octave(grid, 0, channel, s.seed);
    for (int step = 1;; ++step) {
        const bool in_x = x.doubles(width), in_y = y.doubles(tall ? 2 * height : height);
        if (!in_x && !in_y) break;
        if (in_x) {
            x = {2 * x.from, 2 * x.to};
            for (Line& row : grid.rows) row = cut(doubled(row), x.first(), x.count());
        }
        if (in_y) {
            y = {2 * y.from, 2 * y.to};
            Grid columns = transposed(grid);
            for (Line& column : columns) column = cut(doubled(column), y.first(), y.count());
            grid = from_columns(columns, x.first());
        }
        if (in_x && in_y && step < s.octaves) add_octave(grid, step, channel, s.seed);
    }
    const int scale = static_cast<int>(std::lround(s.scale * 4096));
    for (Line& row : grid.rows)
        for (int& v : row.samples)
            v = scale == 4096 ? (v >> 1) + s.offset : std::clamp((v * (scale >> 1)) >> 12, -32767, 32767);
    for (Line& row : grid.rows) row = doubled(row);
    Grid columns = transposed(grid);
    for (Line& column : columns) column = doubled(column);
    grid = from_columns(columns, grid.rows[0].first);
    x = {2 * x.from, 2 * x.to};
    y = {2 * y.from, 2 * y.to};
    Grid lines;
    for (const Line& row : grid.rows) lines.push_back({0, resampled(row, x, width)});
    Plane plane(static_cast<size_t>(width) * static_cast<size_t>(height));
    const Grid read = transposed({grid.first_row, lines});
    for (size_t c = 0; c < read.size(); ++c) {
        const std::vector<int> column = resampled(read[c], y, height);
        for (size_t r = 0; r < column.size(); ++r)
            plane[r * static_cast<size_t>(width) + c] = static_cast<FixPixel>(column[r]);
    }
    return plane;
}

// ---- The operator

using Arg = FilterFrameRig::Arg;

std::vector<Arg> arguments(const Settings& s) {
    return {Arg{s.frequency_x, s.frequency_y}, Arg{s.octaves + 0.5}, Arg{s.shift_x, s.shift_y}, Arg{s.seed + 0.25},
            Arg{s.scale}};
}

struct AspectScope {
    explicit AspectScope(double aspect) { the_frame->pixel_aspect_ratio = static_cast<float>(aspect); }
    ~AspectScope() { the_frame->pixel_aspect_ratio = 1; }
};

std::vector<Plane> render(const Settings& s, PixelFun function, int channels, int tasks = 2) {
    const AspectScope aspect(s.aspect);
    FilterFrameRig rig(s.width, s.height, tasks, s.step);
    return rig.run(function, channels, 0, arguments(s));
}

// Numbers that are samples, so that the model starts from the same ones.
const Settings settings[] = {
    {.width = 96, .height = 54, .frequency_x = 0.5, .frequency_y = 0.5, .octaves = 4},
    {.width = 97,
     .height = 61,
     .frequency_x = 0.25,
     .frequency_y = 1.5,
     .octaves = 9,
     .shift_x = 0.375,
     .shift_y = -2.25,
     .seed = 77},
    {.width = 64,
     .height = 64,
     .frequency_x = -0.75,
     .frequency_y = 0.125,
     .octaves = 2,
     .shift_x = 100,
     .seed = -3,
     .aspect = 2},
    {.width = 80, .height = 45, .frequency_x = 4, .frequency_y = 4, .octaves = 3, .seed = 12345},
    {.width = 80, .height = 45, .frequency_x = 30, .frequency_y = 50, .octaves = 2, .seed = 5},
    {.width = 60, .height = 33, .frequency_x = 0, .frequency_y = 1, .octaves = 3},
    {.width = 40, .height = 30, .frequency_x = 0, .frequency_y = 0, .octaves = 3},
    {.width = 120, .height = 90, .step = 3, .frequency_x = 0.5, .frequency_y = 0.625, .octaves = 5, .shift_y = 0.5},
    {.width = 121, .height = 77, .step = 2, .frequency_x = 12, .frequency_y = 6, .octaves = 4, .aspect = 0.75},
    {.width = 33, .height = 5, .frequency_x = 0.5, .frequency_y = 0.5, .octaves = 3},
    {.width = 700, .height = 40, .frequency_x = 0.25, .frequency_y = 0.25, .octaves = 6},
};

}  // namespace

TEST(FractalNoise, IsThatOfTheModel) {
    for (const Settings& s : settings) {
        SCOPED_TRACE(std::to_string(s.width) + " x " + std::to_string(s.height) + " frequency " +
                     std::to_string(s.frequency_x));
        std::vector<Plane> want;
        for (int c = 0; c < 3; ++c) want.push_back(model(s, c));
        for_each_row_target([&](int64_t) {
            ASSERT_EQ(render(s, image_noise, 1)[0], want[0]);
            ASSERT_EQ(render(s, image_noise3, 3), want);
        });
        for (const int tasks : {1, 3, 5, 16}) ASSERT_EQ(render(s, image_noise3, 3, tasks), want) << tasks << " tasks";
    }
}

TEST(FractalNoise, OfTwoElementsIsADisplacement) {
    for (const double scale : {1.0, 0.5, -2.0, 7.9, 100.0, 0.0}) {
        Settings s = {.width = 90,
                      .height = 50,
                      .frequency_x = 0.5,
                      .frequency_y = 0.75,
                      .octaves = 4,
                      .scale = scale,
                      .offset = 0};
        ASSERT_EQ(render(s, image_noise2, 2), (std::vector<Plane>{model(s, 0), model(s, 1)})) << scale;
    }
}

TEST(FractalNoise, ACropIsAPartOfTheWhole) {
    for (const Settings& s : settings) {
        const int width = (s.width + s.step - 1) / s.step, height = (s.height + s.step - 1) / s.step;
        const Plane whole = render(s, image_noise, 1)[0];
        const struct {
            int x, y, w, h;
        } crops[] = {
            {width / 3, height / 4, width / 2, height / 2}, {width - 1, 0, 1, height}, {0, height - 2, width, 2}};
        for (const auto& crop : crops) {
            const AspectScope aspect(s.aspect);
            FilterFrameRig rig(crop.w * s.step, crop.h * s.step, 2, s.step);
            the_frame->render_info.full_ren = {0, 0, s.width, s.height};
            the_frame->temp_raster_info.x = crop.x * s.step;
            the_frame->temp_raster_info.y = crop.y * s.step;
            const Plane part = rig.run(image_noise, 1, 0, arguments(s))[0];
            for (int y = 0; y < crop.h; ++y)
                for (int x = 0; x < crop.w; ++x)
                    ASSERT_EQ(part[static_cast<size_t>(y * crop.w + x)],
                              whole[static_cast<size_t>((y + crop.y) * width + x + crop.x)])
                        << x << ", " << y << " of a frame " << s.width << " wide";
        }
    }
}

// The same place has about the same value at a reduced resolution: the finest octaves are missing there.
TEST(FractalNoise, AReducedResolutionShowsTheSamePattern) {
    Settings s = {.width = 512, .height = 288, .frequency_x = 0.5, .frequency_y = 0.5, .octaves = 3};
    const Plane whole = render(s, image_noise, 1)[0];
    s.step = 4;
    const Plane quarter = render(s, image_noise, 1)[0];
    for (int y = 0; y < 72; ++y)
        for (int x = 0; x < 128; ++x) {
            int sum = 0;
            for (int k = 0; k < 16; ++k) sum += whole[static_cast<size_t>((4 * y + k / 4) * 512 + 4 * x + k % 4)];
            ASSERT_NEAR(quarter[static_cast<size_t>(y * 128 + x)], sum / 16, 60) << x << ", " << y;
        }
}

TEST(FractalNoise, Statistics) {
    struct Moments {
        double mean, deviation;
    };
    const auto moments = [](const Plane& plane) {
        double sum = 0, squares = 0;
        for (const FixPixel v : plane) sum += v, squares += static_cast<double>(v) * v;
        const double n = static_cast<double>(plane.size());
        return Moments{sum / n, std::sqrt(squares / n - sum / n * sum / n)};
    };
    const auto correlation = [&](const Plane& a, const Plane& b) {
        const Moments ma = moments(a), mb = moments(b);
        double sum = 0;
        for (size_t i = 0; i < a.size(); ++i) sum += (a[i] - ma.mean) * (b[i] - mb.mean);
        return sum / static_cast<double>(a.size()) / ma.deviation / mb.deviation;
    };
    Settings s = {.width = 512, .height = 512, .frequency_x = 4, .frequency_y = 4, .octaves = 3};
    const std::vector<Plane> colours = render(s, image_noise3, 3);
    s.seed = 1;
    const std::vector<Plane> others = render(s, image_noise3, 3);
    s.shift_y = 1;
    const std::vector<Plane> elsewhere = render(s, image_noise3, 3);
    for (size_t c = 0; c < 3; ++c) {
        // Even values of the lattice have a deviation of 2365; B-splines leave less than half, halved again.
        EXPECT_NEAR(moments(colours[c]).mean, 2048, 60) << c;
        EXPECT_NEAR(moments(colours[c]).deviation, 590, 90) << c;
        EXPECT_LT(std::fabs(correlation(colours[c], others[c])), 0.06) << "seeds, channel " << c;
        EXPECT_LT(std::fabs(correlation(others[c], elsewhere[c])), 0.06) << "places, channel " << c;
        EXPECT_LT(std::fabs(correlation(colours[c], colours[(c + 1) % 3])), 0.06) << "channels " << c;
    }
}

// All noises, whole frames of them: neither the number of tasks, nor a crop, nor the frames before show.
TEST(Noise, IsTheSameOnAnyTasksInACropAndAlone) {
    const std::string grey = "(v3 made made made)", two = "(v3 0.5 (+ (element_of made 0) 0.5) (element_of made 1))";
    const struct {
        const char* made;
        std::string dest;
    } noises[] = {{"(warp_noise xy 1 2.5 3)", grey},
                  {"(warp_noise2 xy [1 3] 2 3 1)", two},
                  {"(warp_noise3 xy 2 3 4)", "made"},
                  {"(noise 1 3 [0.1 0.2] 5)", grey},
                  {"(noise2 2 3 [0.1 0.2] 5 1)", two},
                  {"(noise3 [1 2] 3 [0 0] 5)", "made"},
                  {"(static)", grey},
                  {"(static2)", two},
                  {"(static3)", "made"},
                  {"(random (* x y))", grey},
                  {"(spots xy 3 1 2)", grey},
                  {"(voronoi xy 3 0.3 2)", grey},
                  {"(hex_tiles xy [3 4] x)", grey},
                  {"(* (sawtooth_plus_noise 3 (get_time) 3 0.5 0.5 0 3 5) x)", two},
                  {"(simplex_noise (v3 x y 0.3) 1 4 2 0)", grey},
                  {"(simplex_noise xy [1 2] 4 2 1)", grey},
                  {"(perlin_noise xy 1 4 2 1)", grey}};
    for (const auto& noise : noises) {
        SCOPED_TRACE(noise.made);
        const auto render = [&](int tasks, const RasterRect& crop, std::initializer_list<int> frames) {
            EngineRig rig(tasks, {.width = 70, .height = 53, .crop = crop});
            EXPECT_TRUE(rig.load_body(std::string("made = ") + noise.made + " dest = " + noise.dest));
            for (const int frame : frames) {
                rig.set_frame(frame);
                EXPECT_EQ(rig.render(), 0);
            }
            return rig.dest;
        };
        const HostFrame want = render(1, {}, {7});
        EXPECT_GT(std::set<uint16_t>(want.begin(), want.end()).size(), 3u);
        for (const int tasks : {2, 3, 5, 16}) EXPECT_EQ(render(tasks, {}, {7}), want) << tasks << " tasks";
        EXPECT_EQ(render(2, {}, {5, 6, 7}), want) << "in a run";
        const HostFrame part = render(2, {11, 9, 37, 30}, {7});
        for (size_t y = 9; y < 39; ++y)
            for (size_t i = (y * 70 + 11) * 3; i < (y * 70 + 48) * 3; ++i)
                ASSERT_EQ(part[i], want[i]) << "in a crop, row " << y;
    }
}
