// Lens flares: the reader of their files, each element against its formula, and the lights of a picture.
#include "operators/noise/noise_1d.h"
#include "support/user_abort.h"
#include "testing/caught_messages.h"
#include "testing/filter_node.h"
#include "testing/flare_files.h"
#include "testing/row_targets.h"

#include "operators/flares/flare_functions.h"
#include "operators/flares/regions.h"

#include <gtest/gtest.h>

using namespace velloran;
using velloran_tests::FilterFrameRig;
using velloran_tests::FlarePlanes;
using velloran_tests::Flares;
using velloran_tests::HostOfTasks;
using velloran_tests::Messages;
using velloran_tests::Plane;

namespace {

const std::string spot = "spot center 1 radii 0.1 0.2 colors 1 1 1 0 0 0 ";
const std::string polar = "polar_flare center 1 radii 0 1 colors 1 1 1 0 0 0 ";
const std::string rays =
    "rays center 1 color 1 1 1 ray_number 4 jitter_angles 0 start_angle 0 radius_range 1 1 "
    "ray_width 0.1 rand_seed 0 ";

std::string times(int n, const std::string& text) {
    std::string all;
    for (int i = 0; i < n; ++i) all += text;
    return all;
}

}  // namespace

TEST(FlareFiles, ABadDefinitionCostsNothingButItself) {
    const std::string good = " begin Good " + spot + "end";
    const struct {
        std::string bad, message;  // message: without level; empty: it is dropped without a word, or not bad
        int count;
    } cases[] = {
        {"", "", 1},
        {"begin A " + spot + "end", "", 2},
        {"spot center 1", "", 1},  // what stands before a begin is passed over
        {"begin A sun 1 end",
         "Lens flare Lens: A: got 'sun' expected: spot, ring, rays, hexagon, blob, polar_flare, or end", 1},
        {"begin A " + times(39, spot) + "end", "", 2},
        {"begin A " + times(40, spot) + "end", "For Lens: A, spot number exceeded LENS_FLARE_MAX_SPOTS.", 1},
        {"begin A " + times(9, rays) + times(9, polar) + "end", "", 2},
        {"begin A " + times(10, rays) + "end", "For Lens: A, rays number exceeded LENS_FLARE_MAX_RAYS.", 1},
        {"begin A " + times(10, polar) + "end", "For Lens: A, polar number exceeded LENS_FLARE_MAX_POLARS.", 1},
        {"begin A spot center 1 radii " + times(11, "1 ") + "colors " + times(33, "1 ") + "end", "", 2},
        {"begin A spot center 1 radii " + times(12, "1 ") + "colors " + times(36, "1 ") + "end",
         "For Lens: A, number of radii or colors exceeded SPOT_MAX_COLORS.", 1},
        {"begin A polar_flare center 1 radii " + times(12, "1 ") + "colors end",
         "For Lens: A, number of radii or colors exceeded SPOT_MAX_COLORS.", 1},
        {"begin A spot radii 1 colors 1 1 1 end", "In FILE failed reading Lens: A.", 1},
        {"begin A spot center 1 radii 1 2 colors 1 1 1 end", "In FILE failed reading Lens: A.", 1},
        {"begin A spot center 1 radii 1e999 colors 1 1 1 end", "In FILE failed reading Lens: A.", 1},
        {"begin A rays center 1 color 1 1 1 jitter_angles 0 ray_number 4", "In FILE failed reading Lens: A.", 1},
        {"begin A polar_flare center 1 wave_freq 2 start_angle 3 radii 1 colors 1 1 1 end",
         "In FILE failed reading Lens: A.", 1},  // keys out of order
        {"begin A polar_flare center 1 radii 0 1 scale_colors 2 3 1 1 1 0 0 0 end", "In FILE failed reading Lens: A.",
         1},                                                                        // needs the word colors
        {"begin A spot center 1 radii 1 2", "In FILE failed reading Lens: A.", 1},  // no end before the next one
        {"begin " + std::string(200, 'x'), "In FILE failed reading Lens: .", 1},
        {"#ifnot 1\nbegin A " + spot + "end\n#else\n" + good + "\n#endif\n", "", 2},
        {"// begin A sun\n", "", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bad.substr(0, 120));
        const Messages messages;
        const Flares flares(c.bad + good);
        EXPECT_EQ(flares.count, c.count);
        EXPECT_STREQ(flares.flares[flares.count - 1]->name, "Lens: Good");
        std::string message = c.message;
        if (const size_t at = message.find("FILE"); at != std::string::npos) message.replace(at, 4, flares.path());
        EXPECT_EQ(messages.count("8 " + message), c.message.empty() ? 0 : 1);
        EXPECT_LE(messages.count(), 2);  // an overlong word is told by itself
    }
}

TEST(FlareFiles, TablesHaveAnEnd) {
    const std::string one = "begin F " + spot + "end ";
    const Messages messages;
    {
        const Flares full(times(200, one)), more(times(201, one)), none("radii 1 2 end");
        EXPECT_EQ(full.count, 200);
        EXPECT_EQ(more.count, 200);
        EXPECT_EQ(messages.count("8 While loading " + more.path() + ", exceeded max_number 200.\n"), 1);
        EXPECT_EQ(none.count, 0);
    }
    LensFlare* table[1];
    EXPECT_EQ(load_lens_flares_from_file("/nowhere/f.text", table, 1, 1, "Lens:"), 0);
    EXPECT_EQ(messages.count("8 load_lens_flares_from_file: Can't open file /nowhere/f.text\n"), 1);
    FlareTable empty = {}, two = {};
    const Flares flares(times(2, one));
    std::copy(flares.flares, flares.flares + 2, two.flares);
    two.count = 2;
    EXPECT_EQ(flare_of_type(two, 1), flares.flares[1]);
    EXPECT_EQ(flare_of_type(two, 7), flares.flares[0]);
    EXPECT_EQ(flare_of_type(empty, 0), nullptr);
    EXPECT_EQ(messages.count("8 lens flare type 7 is out of bounds: 0 - 1."), 1);
    EXPECT_EQ(messages.count("8 lens flare type 0 is out of bounds: 0 - -1."), 1);
    free_lens_flare(nullptr);
    EXPECT_EQ(messages.count("8 free_lens_flare: given NULL."), 1);
}

TEST(FlareFiles, KeysAndDefaults) {
    const Flares flares(
        "begin A polar_flare center 0.25 repeats 2.9 start_angle 90 rays_p 0 radii 1 2 scale_colors 2 0.5 "
        "colors 1 2 3 4 5 6 polar_flare center 1 wave_brightness 2 radii 1 2 any 1 1 1 1 1 1 end");
    ASSERT_EQ(flares.count, 1);
    const LensFlarePolar &a = *flares.flares[0]->polars[0], &b = *flares.flares[0]->polars[1];
    EXPECT_EQ(a.repeats, 2);
    EXPECT_FLOAT_EQ(a.start_angle, 1.5707964f);
    EXPECT_FLOAT_EQ(a.angle_width, 6.2831853f);
    EXPECT_EQ(a.offset_bright, 1);  // else it would be dark
    EXPECT_EQ(b.offset_bright, 0);
    EXPECT_EQ(a.rays_p, 0);
    EXPECT_EQ(a.colors[0][2], 6);
    EXPECT_EQ(a.colors[1][2], 3);
    const Flares glare("begin G blob radii 1 colors 1 1 1 end", false);
    ASSERT_EQ(glare.count, 1);
    EXPECT_EQ(glare.flares[0]->spots[0]->center, 1);
}

namespace {

// Light of a flare's elements at a place, by their formulas in plain floating point. (x, y) from the element's centre,
// in sizes; unit: samples of a size; 1.0 is white.
double profile(const std::vector<double>& radii, const std::vector<double>& values, double r, double fade) {
    if (r < radii[0]) return r < radii[0] - fade ? 0 : values[0] * (1 - (radii[0] - r) / std::min(fade, radii[0]));
    for (size_t i = 1; i < radii.size(); ++i)
        if (r <= radii[i])
            return values[i - 1] + (values[i] - values[i - 1]) * (r - radii[i - 1]) / (radii[i] - radii[i - 1]);
    return std::max(values.back() * (1 - (r - radii.back()) / fade), 0.0);
}
double falloff(double t) {
    t = std::min(t, 1.0);
    return 1 - 2.467401 * t + 2.029356 * t * t - 0.66763139 * t * t * t + 0.10567641 * t * t * t * t;
}

struct ElementCase {
    const char* text;
    std::function<double(double x, double y, double unit)> red;
    double tolerance;
};

const double pi = 3.14159265358979;

}  // namespace

TEST(FlareElements, AreTheirFormulas) {
    constexpr int width = 200, height = 120;
    const ElementCase cases[] = {
        {"ring center 1 radii 0.1 0.25 0.4 colors 0.2 1 1 0.9 1 1 0.4 1 1",
         [](double x, double y, double unit) {
             return profile({0.1, 0.25, 0.4}, {0.2, 0.9, 0.4}, std::hypot(x, y), 1.5 / unit);
         },
         2},
        {"hexagon center 1 radii 0.05 0.3 colors 0.7 1 1 0.3 1 1",
         [](double x, double y, double unit) {
             const double r = std::max(std::abs(x), 0.5 * std::abs(x) + 0.8660254 * std::abs(y));
             return profile({0.05, 0.3}, {0.7, 0.3}, r, 1.5 / unit);
         },
         2},
        {"blob center 1 radii 0.35 colors 0.8 1 1",
         [](double x, double y, double) { return 0.8 * falloff(std::hypot(x, y) / 0.35); }, 2},
        // Two opposite rays to the right and left.
        {"rays center 1 color 0.9 1 1 ray_number 2 jitter_angles 0 start_angle 0 radius_range 0.5 0.5 ray_width 0.1 "
         "rand_seed 0",
         [](double x, double y, double) {
             const double t = std::abs(x) / 0.5, d = std::abs(y) / 0.05;
             return t < 1 && d < 1 ? 0.9 * (1 - t) * (0.5 + 0.5 * std::cos(pi * d)) : 0;
         },
         3},
        // The same, slanting and thin: raised to 1.5 samples to each side and dimmed.
        {"rays center 1 color 1 1 1 ray_number 2 jitter_angles 0 start_angle 30 radius_range 0.5 0.5 ray_width 0.01 "
         "rand_seed 0",
         [](double x, double y, double unit) {
             const double slope = std::tan(pi / 6), t = std::abs(x) / (0.5 * std::cos(pi / 6));
             const double d = std::abs(y - slope * x) / (1.5 / unit * std::sqrt(1 + slope * slope));
             return t < 1 && d < 1 ? 0.005 * unit / 1.5 * (1 - t) * (0.5 + 0.5 * std::cos(pi * d)) : 0;
         },
         8},
        {"polar_flare center 1 radii 0.1 0.2 0.4 colors 0 1 1 1 1 1 0 1 1",
         [](double x, double y, double) {
             return profile({0.1, 0.2, 0.4}, {0, 1, 0}, std::hypot(x, y), 1e-9);
         },
         130},
        {"polar_flare center 1 wave_brightness 0.8 wave_freq 4 wave_phase 0.25 wave_width 0.3 wave_softness 0.5 radii "
         "0.2 "
         "0.5 colors 1 1 1 1 1 1",
         [](double x, double y, double) {
             const double r = std::hypot(x, y), u = std::atan2(y, x) / (2 * pi);
             if (r < 0.21 || r > 0.49) return -1.0;  // a pixel at a sharp edge is part light
             const double k = 0.5 * 0.8 / 0.5;
             return std::clamp(std::cos(2 * pi * (u * 4 - 0.25)) * k + (2 * k + 0.8) * 0.3 - k, 0.0, 0.8);
         },
         90},
        {"polar_flare center 1 start_angle 20 angle_width 120 arc_edge_softness 0.5 radii 0.2 0.5 colors 1 1 1 1 1 1",
         [](double x, double y, double) {
             const double r = std::hypot(x, y), a = std::atan2(y, x) * 180 / pi;
             if (r < 0.21 || r > 0.49) return -1.0;
             const double to_end = std::min(a - 20, 140 - a);
             if (to_end < 0) return to_end > -2 ? -1.0 : 0.0;
             return to_end < 30 ? 0.5 - 0.5 * std::cos(pi * to_end / 30) : 1.0;
         },
         130},
        {"polar_flare center 1 noise_brightness 1 noise_freq 3 noise_octaves 2 rand_seed 5 radii 0.2 0.5 colors 1 1 1 "
         "1 1 1",
         [](double x, double y, double) {
             const double r = std::hypot(x, y);
             double u = std::atan2(y, x) / (2 * pi);
             u -= std::floor(u);
             if (r < 0.21 || r > 0.49) return -1.0;
             return std::clamp(static_cast<double>(fnoise1_wrap(5, static_cast<float>(u), 5, 2)) * 0.5 + 2 - 0.5, 0.0,
                               1.0);
         },
         60},
        // A radius wave stretches the ramp.
        {"polar_flare center 1 r_wave_freq 3 r_wave_min 0.5 r_wave_max 1 radii 0 0.4 colors 1 1 1 0 1 1",
         [](double x, double y, double) {
             const double q = 0.5 + 0.5 * (0.5 + 0.5 * std::cos(3 * std::atan2(y, x)));
             return std::max(1 - std::hypot(x, y) / q / 0.4, 0.0);
         },
         90},
        // A displaced ellipse: brightness falls to its rim, whose distance differs by the angle.
        {"polar_flare center 1 rel_height 0.5 shift_edge 0.5 radii 0 0.5 colors 1 1 1 0 1 1",
         [](double x, double y, double) {
             const double a = std::atan2(y / 0.5, x), b = -std::cos(a + pi);
             const double g = 0.5 * (std::sqrt(b * b - 4 * (0.25 - 1)) - b);
             return std::max(1 - std::hypot(x, y / 0.5) / g / 0.5, 0.0);
         },
         120},
    };
    for (const auto& c : cases)
        for (const double centre : {63.0, 80.37}) {
            SCOPED_TRACE(c.text);
            const HostOfTasks host(3);
            const Flares flares("begin F " + std::string(c.text) + " end");
            ASSERT_EQ(flares.count, 1);
            FlarePlanes out(width, height);
            FlareSettings settings;
            settings.hotspot[0] = centre + 20;
            settings.hotspot[1] = centre - 11.5;
            draw_lens_flare_noclear(out.canvas, *flares.flares[0], settings);
            double worst = 0, light = 0;
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x) {
                    const double unit = width / 2.0, dx = (x - settings.hotspot[0]) / unit,
                                 dy = (y - settings.hotspot[1]) / unit;
                    if (std::hypot(dx, dy) * unit < 3) continue;  // where tables are smaller than a pixel
                    const double want = c.red(dx, dy, unit);
                    if (want < 0) continue;
                    light += want;
                    worst = std::max(worst, std::abs(out.planes[0][y * width + x] - want * 4096));
                }
            EXPECT_LE(worst, c.tolerance);
            EXPECT_GT(light, 5);
        }
}

namespace {

const char* const all_kinds =
    "begin F ring center 1 radii 0.05 0.2 0.4 colors 0.5 0.4 0.3 0.2 0.4 0.1 0 0 0 hexagon center 0.3 radii 0.1 0.2 "
    "colors 0.3 0.2 0.4 0.2 0.1 0.5 blob center -0.5 radii 0.3 colors 0.3 0.3 0.2 rays center 1 color 0.5 0.4 0.3 "
    "ray_number 19 jitter_angles 0.7 start_angle 5 radius_range 0.3 0.8 ray_width 0.02 rand_seed 9 polar_flare center "
    "0.8 noise_brightness 0.6 noise_freq 9 r_noise_freq 4 r_noise_min 0.5 rotate_to_pivot 1 radii 0 0.3 0.6 colors 0.3 "
    "0.2 0.4 0.3 0.2 0.1 0 0 0 polar_flare center -0.3 start_angle 200 angle_width 90 arc_edge_softness 0.6 radii 0.1 "
    "0.5 colors 0.4 0 0 0 0.4 0 end";

FlareSettings settings_at(double x, double y) {
    FlareSettings settings;
    settings.hotspot[0] = x;
    settings.hotspot[1] = y;
    settings.pivot[0] = 70.25;
    settings.pivot[1] = 40.5;
    settings.gamma = 1.3f;
    settings.saturation = 0.8f;
    settings.rotate = 12;
    return settings;
}

}  // namespace

// Wherever the light is, tasks, stripes, targets and the part of the picture in hand do not show.
TEST(FlareDrawing, IsTheSameHoweverItIsDivided) {
    constexpr int width = 167, height = 93;
    const Flares flares(all_kinds);
    ASSERT_EQ(flares.count, 1);
    for (const auto& [x, y] : {std::pair{31.0, 60.2}, {-50.3, 120.0}, {260.5, -30.0}, {83.5, 46.5}}) {
        const FlareSettings settings = settings_at(x, y);
        FlarePlanes want(width, height);
        {
            const HostOfTasks host(1);
            velloran_tests::on_plain_target([&] {
                draw_lens_flare_noclear(want.canvas, *flares.flares[0], settings);
                return 0;
            });
        }
        EXPECT_GT(std::count_if(want.planes[0].begin(), want.planes[0].end(), [](int v) { return v > 40; }), 200);
        velloran_tests::for_each_row_target([&](int64_t) {
            for (const int tasks : {1, 2, 8}) {
                const HostOfTasks host(tasks);
                FlarePlanes got(width, height), part(51, 29, 60, 33, width);
                draw_lens_flare_noclear(got.canvas, *flares.flares[0], settings);
                draw_lens_flare_noclear(part.canvas, *flares.flares[0], settings);
                for (int c = 0; c < 3; ++c) {
                    EXPECT_EQ(got.planes[c], want.planes[c]);
                    for (int j = 0; j < 29; ++j)
                        for (int i = 0; i < 51; ++i)
                            ASSERT_EQ(part.planes[c][j * 51 + i], want.planes[c][(j + 33) * width + i + 60]);
                }
            }
        });
    }
}

TEST(FlareDrawing, HalfResolutionShowsTheSameFlare) {
    constexpr int width = 320, height = 180;
    const HostOfTasks host(2);
    const Flares flares(all_kinds);
    FlarePlanes full(width, height), half(width / 2, height / 2);
    FlareSettings settings = settings_at(61, 100.2);
    draw_lens_flare_noclear(full.canvas, *flares.flares[0], settings);
    for (double* place : {settings.hotspot, settings.pivot})
        for (int k = 0; k < 2; ++k) place[k] = (place[k] + 0.5) / 2 - 0.5;
    draw_lens_flare_noclear(half.canvas, *flares.flares[0], settings);
    double sum = 0;
    for (int y = 0; y < height / 2; ++y)
        for (int x = 0; x < width / 2; ++x) {
            const auto at = [&](int i, int j) { return full.planes[0][(2 * y + j) * width + 2 * x + i]; };
            sum += std::abs((at(0, 0) + at(1, 0) + at(0, 1) + at(1, 1)) / 4.0 - half.planes[0][y * width / 2 + x]);
        }
    EXPECT_LT(sum / (width * height / 4), 0.01 * 4096);
}

TEST(FlareDrawing, LightStopsAndElementsAreLeftAway) {
    const HostOfTasks host(2);
    const Messages messages;
    const Flares flares(
        "begin A " + times(12, "blob center 1 radii 3 colors 7 7 7 ") +
        "end begin B hexagon center 1 radii 1 "
        "colors 1 1 1 rays center 1 color 1 1 1 ray_number 1 jitter_angles 0 start_angle 0 radius_range 1 1 "
        "ray_width 1 rand_seed 0 end begin C rays center 1 color 1 1 1 ray_number 3 jitter_angles 0 "
        "start_angle 0 radius_range 0.5 0.5 ray_width 0.1 rand_seed 0 end begin D spot center 1 radii 0.4 "
        "0.2 colors 1 1 1 1 1 1 end");
    ASSERT_EQ(flares.count, 4);
    FlareSettings settings;
    settings.hotspot[0] = settings.hotspot[1] = 20;
    settings.clamp = false;
    FlarePlanes out(41, 41);
    draw_lens_flare_noclear(out.canvas, *flares.flares[0], settings);
    EXPECT_EQ(out.planes[1][20 * 41 + 20], 32767);
    settings.clamp = true;
    draw_lens_flare_noclear(out.canvas, *flares.flares[0], settings);
    EXPECT_EQ(out.planes[1][20 * 41 + 20], 4096);

    FlarePlanes dark(41, 41), two(41, 41);
    draw_lens_flare_noclear(dark.canvas, *flares.flares[1], settings);
    EXPECT_EQ(messages.count("8 lens_flare color_number should be >= 2."), 1);
    for (const FixPixel v : dark.planes[0]) ASSERT_EQ(v, 0);
    draw_lens_flare_noclear(two.canvas, *flares.flares[2], settings);  // of three rays two are drawn
    EXPECT_GT(two.planes[0][20 * 41 + 25], 0);
    EXPECT_GT(two.planes[0][20 * 41 + 15], 0);
    EXPECT_EQ(two.planes[0][30 * 41 + 20], 0);
    draw_lens_flare_noclear(two.canvas, *flares.flares[3], settings);
    draw_lens_flare_noclear(two.canvas, *flares.flares[3], settings);
    EXPECT_EQ(messages.count("7 Flare radii are not in order!"), 1);
}

TEST(FlareDrawing, ColorsSizesAndPlaces) {
    const HostOfTasks host(1);
    // One disc at the light, one at the pivot and one beyond the light.
    const Flares flares(
        "begin A spot center 1 radii 0 0.1 colors 0.25 0.25 0.25 0.25 0.25 0.25 spot center 0 radii 0 0.1 colors "
        "0.25 0 0 0.25 0 0 spot center 1.5 radii 0 0.1 colors 0 0.5 0 0 0.5 0 end");
    FlareSettings settings;
    settings.hotspot[0] = 60;
    settings.hotspot[1] = 20;
    settings.pivot[0] = 20;
    settings.pivot[1] = 20;
    settings.gamma = 2;
    settings.hotspot_color[2] = 0.5f;
    settings.other_color[0] = 0.5f;
    settings.scale_other_width = 0.5f;
    FlarePlanes out(100, 41);
    draw_lens_flare_noclear(out.canvas, *flares.flares[0], settings);
    const auto at = [&](int x, int c) { return out.planes[c][20 * 100 + x]; };
    EXPECT_NEAR(at(60, 0), 2048, 1);  // the square root of a quarter
    EXPECT_NEAR(at(60, 2), 1024, 1);
    EXPECT_NEAR(at(20, 0), 1024, 1);
    EXPECT_NEAR(at(80, 1), 2896, 2);
    EXPECT_GT(at(64, 0), 0);
    EXPECT_EQ(at(25, 0), 0);  // half as wide
    settings.saturation = 0;
    FlarePlanes grey(100, 41);
    draw_lens_flare_noclear(grey.canvas, *flares.flares[0], settings);
    EXPECT_NEAR(grey.planes[1][20 * 100 + 20], 0.2126 * 1024, 1);
}

TEST(FlareDrawing, StopsBetweenTwoElements) {
    HostOfTasks host(1);
    const Flares flares(
        "begin A spot center 1 radii 0 0.1 colors 1 1 1 1 1 1 spot center 0 radii 0 0.1 colors 1 1 1 1 1 1 end");
    FlareSettings settings;
    settings.hotspot[0] = 60;
    settings.pivot[0] = 20;
    settings.hotspot[1] = settings.pivot[1] = 20;
    static double now;
    now = 0;
    double (*const clock)() = abort_clock;
    abort_clock = [] { return now += 1.2; };  // the pen has been held long enough at the second time of asking
    host.host.pen.pressure = 1;
    reset_abort();
    FlarePlanes stopped(100, 41), whole(100, 41);
    draw_lens_flare_noclear(stopped.canvas, *flares.flares[0], settings);
    EXPECT_TRUE(render_aborted_p());
    host.host.pen.pressure = 0;
    abort_clock = clock;
    reset_abort();
    EXPECT_GT(stopped.planes[0][20 * 100 + 60], 0);
    EXPECT_EQ(stopped.planes[0][20 * 100 + 20], 0);
    draw_lens_flare_noclear(whole.canvas, *flares.flares[0], settings);
    EXPECT_GT(whole.planes[0][20 * 100 + 20], 0);
}

TEST(Regions, AreThoseOfAFloodFill) {
    std::mt19937 rng(4);
    for (const int fill : {5, 30, 45, 60, 90}) {
        constexpr int width = 61, height = 47;
        Plane plane(width * height);
        for (FixPixel& v : plane)
            v = static_cast<FixPixel>(static_cast<int>(rng() % 100) < fill ? 1 + rng() % 4000 : -5);
        struct Sum {
            int64_t weight = 0, x = 0, y = 0;
        };
        std::vector<Sum> want;
        std::vector<char> seen(plane.size());
        for (int start = 0; start < width * height; ++start) {
            if (seen[start] || plane[start] <= 0) continue;
            Sum sum;
            std::vector<int> open = {start};
            seen[start] = 1;
            while (!open.empty()) {
                const int at = open.back(), x = at % width, y = at / width;
                open.pop_back();
                sum.weight += plane[at];
                sum.x += int64_t{plane[at]} * x;
                sum.y += int64_t{plane[at]} * y;
                for (int j = std::max(y - 1, 0); j <= std::min(y + 1, height - 1); ++j)
                    for (int i = std::max(x - 1, 0); i <= std::min(x + 1, width - 1); ++i)
                        if (!seen[j * width + i] && plane[j * width + i] > 0) {
                            seen[j * width + i] = 1;
                            open.push_back(j * width + i);
                        }
            }
            want.push_back(sum);
        }
        std::sort(want.begin(), want.end(), [](const Sum& a, const Sum& b) { return a.weight > b.weight; });
        std::vector<LightRegion> got(most_regions);
        const FixPixel* const planes[] = {plane.data()};
        ASSERT_EQ(find_light_regions(planes, 1, width, height, most_regions, got.data()),
                  static_cast<int>(want.size()));
        for (size_t i = 0; i < want.size(); ++i) {
            EXPECT_EQ(got[i].weight, static_cast<double>(want[i].weight) / 4096);
            if (i && want[i].weight == want[i - 1].weight) continue;
            if (i + 1 < want.size() && want[i].weight == want[i + 1].weight) continue;
            EXPECT_DOUBLE_EQ(got[i].x, static_cast<double>(want[i].x) / static_cast<double>(want[i].weight));
            EXPECT_DOUBLE_EQ(got[i].y, static_cast<double>(want[i].y) / static_cast<double>(want[i].weight));
        }
        std::vector<LightRegion> few(3);
        const int n = find_light_regions(planes, 1, width, height, 3, few.data());
        for (int i = 0; i < n; ++i) EXPECT_EQ(few[i].weight, got[i].weight);
    }
}

TEST(LensFlareAuto, LightsTheHeaviestRegions) {
    const Flares flares("begin A spot center 1 radii 0 0.03 colors 1 1 1 1 1 1 end");
    FlareTable& table = lens_flare_table();
    table.flares[0] = flares.flares[0];
    table.count = 1;
    FilterFrameRig rig(100, 60);
    the_frame->render_info.full_ren = {0, 0, 100, 60};
    Plane light(100 * 60);
    light[10 * 100 + 20] = 4096;
    light[10 * 100 + 21] = 2048;  // at 20.33
    light[40 * 100 + 70] = 2048;
    light[50 * 100 + 10] = 100;
    const auto run = [&](double most) {
        return rig.run(image_lens_flare_auto, 3, 0,
                       {std::vector<Plane>{light},
                        0.0,
                        0.0,
                        {0, 0},
                        1.0,
                        1.0,
                        {1, 1},
                        0.0,
                        {1, 1, 1},
                        {1, 1, 1},
                        {1, 1, 1},
                        {3, -2},
                        most,
                        {1, 1, 1, 1}})[0];
    };
    const Plane two = run(2);
    EXPECT_NEAR(two[8 * 100 + 23], (4096 * 4096 + 2048 * 2048) / 6144, 3);
    EXPECT_NEAR(two[38 * 100 + 73], 2048, 3);
    EXPECT_EQ(two[48 * 100 + 13], 0);
    EXPECT_GT(run(3)[48 * 100 + 13], 90);
    // One alone stands at the centre of all light, which is dark here.
    const Plane one = run(1);
    EXPECT_EQ(*std::max_element(one.begin(), one.end()), 0);
    table.flares[0] = nullptr;
    table.count = 0;
}
