// Film: curves, the tones of a film against their formulas, and all of a film together.
#include "operators/blur/blur_image.h"
#include "operators/film/film_functions.h"
#include "operators/film/film_image_rows.h"
#include "operators/film/grain_amounts.h"
#include "support/hash.h"
#include "testing/caught_messages.h"
#include "testing/film_texts.h"
#include "testing/filter_node.h"
#include "testing/plane_statistics.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>
#include <fstream>

using namespace velloran;
using velloran_tests::FilmTextsInUse;
using velloran_tests::FilterFrameRig;
using velloran_tests::Messages;
using velloran_tests::noise_spread;
using velloran_tests::Plane;
using velloran_tests::spread;

namespace {

const std::string shipped_text = [] {
    std::ifstream file(FILM_TYPES);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}();

}  // namespace

namespace {

// The spline by its second derivatives, which are 0 at the ends.
struct Spline {
    std::vector<double> x, y, bend;
    Spline(const float* xs, const float* ys, int n) : x(xs, xs + n), y(ys, ys + n), bend(static_cast<size_t>(n)) {
        std::vector<double> u(static_cast<size_t>(n));
        for (size_t i = 1; i + 1 < x.size(); ++i) {
            const double sig = (x[i] - x[i - 1]) / (x[i + 1] - x[i - 1]), p = sig * bend[i - 1] + 2;
            const double turn = (y[i + 1] - y[i]) / (x[i + 1] - x[i]) - (y[i] - y[i - 1]) / (x[i] - x[i - 1]);
            bend[i] = (sig - 1) / p;
            u[i] = (6 * turn / (x[i + 1] - x[i - 1]) - sig * u[i - 1]) / p;
        }
        if (n > 1) bend.back() = 0;
        for (size_t i = x.size() - 1; i-- > 0;) bend[i] = bend[i] * bend[i + 1] + u[i];
    }
    double at(double v) const {
        if (x.size() < 2) return v;
        v = std::clamp(v, x.front(), x.back());
        size_t i = 0;
        while (i + 2 < x.size() && x[i + 1] <= v) ++i;
        const double h = x[i + 1] - x[i], a = (x[i + 1] - v) / h, b = 1 - a;
        return a * y[i] + b * y[i + 1] + ((a * a * a - a) * bend[i] + (b * b * b - b) * bend[i + 1]) * h * h / 6;
    }
};

}  // namespace

TEST(FilmCurves, AreNaturalSplinesThatDoNotTurnBack) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> unit(0, 1);
    int mended = 0;
    for (int turn = 0; turn < 400; ++turn) {
        const int n = 2 + static_cast<int>(rng() % 19), kind = turn % 4;  // rising, falling, even rising, any
        float x[MAX_CURVE_POINTS], y[MAX_CURVE_POINTS];
        for (int i = 0; i < n; ++i) {
            x[i] = (i ? x[i - 1] : -3.0f) + 0.1f + (kind == 2 ? 0.0f : unit(rng));
            const float step = kind == 2 ? 0.5f + 0.2f * unit(rng) : unit(rng) * unit(rng) * (rng() % 3 ? 1.0f : 0.0f);
            y[i] = kind == 3 ? unit(rng) : (i ? y[i - 1] : 2.0f) + (kind == 1 ? -step : step);
        }
        const FilmCurve curve = make_film_curve(x, y, n);
        const Spline spline(x, y, n);
        double far = 0, before = y[0];
        for (int k = 0; k <= 1000; ++k) {
            const double at = x[0] - 0.2 + (x[n - 1] - x[0] + 0.4) * k / 1000, v = evaluate_film_curve(curve, at);
            far = std::max(far, std::abs(v - spline.at(at)));
            ASSERT_TRUE(kind == 3 || (kind == 1 ? before - v : v - before) >= -1e-12) << "at " << at;
            before = v;
        }
        EXPECT_TRUE(kind < 2 || far < 1e-9) << "the spline was left without need";
        for (int i = 0; i < n; ++i) ASSERT_NEAR(evaluate_film_curve(curve, static_cast<double>(x[i])), y[i], 1e-12);
        mended += far > 1e-6;
    }
    EXPECT_GT(mended, 50);
    EXPECT_EQ(evaluate_film_curve(make_film_curve(nullptr, nullptr, 0), 0.3), 0.3);
}

namespace {

// Three stocks, each with its axis, and one of a single point.
const std::string model_stocks =
    "begin Log grain 0.01 normal_gray_exposure 0.1 color_curves log10 log10 rgb -1.6 0.2 0.5 0.9 -0.8 0.4 0.75 1.2 0 "
    "0.8 "
    "1.2 1.7 1 1.4 1.7 2.2 end_color_curves end Log "
    "begin Stops normal_gray_exposure -0.3 color_curves stops log10 red -5 0.2 -2 0.5 1 1.2 4 1.5 green -5 0.3 0 1 4 "
    "1.8 "
    "blue -4 0.3 0 1.1 4 2 end_color_curves end Stops "
    "begin Linear normal_gray_exposure 0.05 color_curves lin lin rgb 0 0.1 0.2 0.3 0.3 0.5 0.6 0.8 1.2 1.4 1.5 1.9 "
    "end_color_curves end Linear "
    "begin Point color_curves lin lin red 1 2 green 0 0.1 1 1 blue end_color_curves end Point "
    "begin PLog print_film exposure_compensation -0.7 -0.65 -0.72 normal_gray_exposure 0.05 grain 0.02 color_curves "
    "log "
    "log rgb -1.5 0.1 0.1 0.15 -0.5 0.4 0.35 0.45 0 0.8 0.8 0.8 1 2.5 2.6 2.3 end_color_curves end PLog "
    "begin PStops print_film exposure_compensation -0.5 -0.5 -0.5 color_curves log2 log rgb -5 0.1 0.1 0.1 0 0.8 0.7 "
    "0.9 4 "
    "2.8 2.6 2.5 end_color_curves end PStops "
    "begin PLinear print_film normal_gray_exposure 0.1 color_curves linear log rgb 0 0.1 0.1 0.2 1 1 0.9 0.8 4 2 2.5 "
    "2.2 "
    "end_color_curves end PLinear "
    "begin Slide reversal_film grain 0.03 exposure_compensation 0.1 0 -0.1 color_curves log log rgb -2 2.5 2.6 2.7 "
    "-0.5 "
    "1.4 1.5 1.6 0.4 0.4 0.3 0.5 1 0.1 0.1 0.2 end_color_curves end Slide "
    "begin Bare reversal_film end Bare ";

// The tone as it is written down.
class Model {
public:
    Model(const FilmSettings& settings, const FilmType& negative, const FilmType& print)
        : s(settings), neg(negative), prt(print) {
        curves = has(0) || has(1);
        if (curves && !prt.is_reversal)
            for (int c = 0; c < 3; ++c)
                if ((uses_negative(c) || prt.point_count[c])) balance[c] = 1 / behind_negative(c, 0.5);
        double lo = 1000, hi = -1000;
        for (int c = 0; c < 3; ++c)
            for (const double v : {0.0, 1.0}) {
                lo = std::min(lo, out(c, v));
                hi = std::max(hi, out(c, v));
            }
        if (curves) {
            offset = 0 - lo;
            scale = 1 / (hi - lo);
        }
    }
    double tone(int c, double v) const {
        const double r = ((out(c, v) + offset) * scale + s.offset) * s.scale;
        return v + (r - v) * s.mix;
    }

private:
    bool uses_negative(int c) const { return !prt.is_reversal && neg.point_count[c] > 0; }
    bool has(int which) const {
        for (int c = 0; c < 3; ++c)
            if (which ? prt.point_count[c] > 0 : uses_negative(c)) return true;
        return false;
    }
    static double transmission(const FilmType& type, int c, double e) {
        const double grey = type.normal_gray_exposure;
        const double at = type.x_type == 0   ? std::log10(e) + 0.7 + grey
                          : type.x_type == 1 ? std::log10(e) / 0.301029995 + 2.33 + grey
                                             : grey + e;
        return 1 / std::pow(10, Spline(type.x[c], type.y[c], type.point_count[c]).at(at));
    }
    double behind_negative(int c, double v) const {
        const double base = curves ? 1 / 63.0 : 0, p = std::pow(v, s.master_gamma), e = (base + p) * s.exposure;
        if (uses_negative(c)) return transmission(neg, c, e);
        if (prt.is_reversal) return std::max(base, e);
        if (prt.point_count[c]) return std::max(base, 0.5 - 0.5 * std::pow(e, 0.45454544));
        return std::max(base, p);
    }
    double out(int c, double v) const {
        double d = behind_negative(c, v) * balance[c] * s.print_exposure[c];
        if (prt.point_count[c]) d = transmission(prt, c, d * prt.exposure_compensation[c]);
        return std::pow(std::max(0.0, d), 1.0 / s.gamma[c]);
    }
    const FilmSettings& s;
    const FilmType &neg, &prt;
    bool curves;
    double balance[3] = {1, 1, 1}, offset = 0, scale = 1;
};

std::vector<int> table_of(const FilmSettings& settings, int c) {
    set_film_tables(settings);
    return {film_table(c), film_table(c) + film_table_size};
}

}  // namespace

// Every pair of stocks, so every axis with and without each stage.
TEST(FilmTones, AreTheirFormulas) {
    const velloran_tests::HostOfTasks host(3);
    const FilmTextsInUse films(model_stocks);
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> unit(0, 1);
    int compared = 0;
    for (int n = 0; n < neg_film_types().count; ++n)
        for (int p = 0; p < print_film_types().count; ++p)
            for (const bool plain : {true, false}) {
                FilmSettings s;
                s.negative = n;
                s.print = p;
                if (!plain) {
                    s.mix = 0.7f;
                    s.master_gamma = 0.7f + 2 * unit(rng);
                    s.exposure = 0.3f + 2 * unit(rng);
                    for (int c = 0; c < 3; ++c) s.gamma[c] = 0.6f + 2 * unit(rng);
                    for (int c = 0; c < 3; ++c) s.print_exposure[c] = 0.5f + unit(rng);
                    s.offset = -0.1f + 0.2f * unit(rng);
                    s.scale = 0.8f + 0.5f * unit(rng);
                }
                const FilmType &neg = neg_film_types().types[n], &prt = print_film_types().types[p];
                SCOPED_TRACE(std::string(neg.name) + ", " + prt.name);
                const Model model(s, neg, prt);
                for (int c = 0; c < 3; ++c) {
                    const std::vector<int> table = table_of(s, c);
                    for (int i = 0; i <= 4096; ++i) {
                        const int from = i / 16 * 16;
                        double want = model.tone(c, from / 4096.0);
                        if (i > from) want += (model.tone(c, (from + 16) / 4096.0) - want) * (i - from) / 16;
                        ASSERT_NEAR(table[static_cast<size_t>(i)], std::clamp(want * 4096, -32767.0, 32767.0), 0.501)
                            << "colour " << c << " entry " << i;
                        ++compared;
                        if (i % 64) i += 6;
                    }
                }
            }
    EXPECT_GT(compared, 100000);
}

TEST(FilmTones, WithoutStocksThePicturePasses) {
    const velloran_tests::HostOfTasks host(1);
    const FilmTextsInUse films(model_stocks);
    FilmSettings s;
    s.exposure = 3;  // there is nothing that it could act on
    for (int c = 0; c < 3; ++c) {
        const std::vector<int> table = table_of(s, c);
        for (int i = 0; i <= 4096; ++i) ASSERT_EQ(table[static_cast<size_t>(i)], i);
    }
    s.gamma[1] = s.master_gamma = 2.2f;
    s.print_exposure[1] = 0.5f;
    EXPECT_EQ(table_of(s, 1)[0], 0);
    EXPECT_NEAR(table_of(s, 1)[4096], 4096 * std::pow(0.5, 1 / 2.2), 0.6);
    s.negative = 99;  // unknown: none
    s.print = -3;
    EXPECT_EQ(table_of(s, 0)[4096], 4096);
    s.print = 5;  // a reversal film without curves, whatever the negative
    s.negative = 1;
    FilmSettings slide = s;
    slide.negative = 0;
    EXPECT_EQ(table_of(s, 2), table_of(slide, 2));
    // Numbers that lead nowhere are held to what a sample holds.
    for (const float gamma : {0.0f, -1.0f, 128.0f})
        for (const float light : {0.0f, -2.0f, 1e9f}) {
            FilmSettings odd;
            odd.negative = odd.print = 1;
            odd.master_gamma = odd.gamma[0] = gamma;
            odd.print_exposure[0] = odd.scale = light;
            for (const int v : table_of(odd, 0)) ASSERT_LE(std::abs(v), 32767);
        }
}

TEST(FilmTones, TablesAreKeptUntilASettingChanges) {
    const velloran_tests::HostOfTasks host(2);
    const FilmTextsInUse films(model_stocks);
    FilmSettings s;
    s.negative = s.print = 1;
    set_film_tables(s);
    const int made = film_tables_made;
    const std::vector<int> before = table_of(s, 0);
    EXPECT_EQ(film_tables_made, made);
    float* const numbers[] = {&s.mix,    &s.master_gamma, &s.gamma[2], &s.exposure, &s.print_exposure[1],
                              &s.offset, &s.scale};
    int changes = 0;
    for (float* number : numbers) {
        const float old = *number;
        *number = old + 0.25f;
        set_film_tables(s);
        EXPECT_EQ(film_tables_made, made + ++changes);
        *number = old;
    }
    EXPECT_EQ(table_of(s, 0), before);
    s.print = 2;
    EXPECT_NE(table_of(s, 0), before);
}

// What comes along: no tone turns back, grey is grey where colours are not meant to part, black and white are used.
TEST(FilmStocks, ThatComeAlong) {
    const velloran_tests::HostOfTasks host(1);
    const Messages messages;
    const FilmTextsInUse films(shipped_text);
    EXPECT_EQ(messages.count(), 0);
    const FilmTable &negatives = neg_film_types(), &prints = print_film_types();
    EXPECT_GE(negatives.count, 11);
    EXPECT_GE(prints.count, 7);
    const std::set<std::string> parted = {"Print: Faded_print", "Print: Cool_print", "Print: Warm_print",
                                          "Print: Nitrate_print"};
    for (int n = 0; n < negatives.count; ++n)
        for (int p = 0; p < prints.count; ++p) {
            FilmSettings s;
            s.negative = n;
            s.print = p;
            s.master_gamma = s.gamma[0] = s.gamma[1] = s.gamma[2] = 2.2f;
            SCOPED_TRACE(std::string(negatives.names[n]) + ", " + prints.names[p]);
            int low = 32767, high = -32767, grey[3];
            for (int c = 0; c < 3; ++c) {
                const std::vector<int> table = table_of(s, c);
                const bool falls = n && !p;  // seen as it is
                for (size_t i = 1; i < table.size(); ++i)
                    ASSERT_GE(falls ? table[i - 1] - table[i] : table[i] - table[i - 1], 0) << c << " at " << i;
                low = std::min({low, table.front(), table.back()});
                high = std::max({high, table.front(), table.back()});
                grey[c] = table[2048];
            }
            EXPECT_EQ(low, 0);
            EXPECT_EQ(high, 4096);
            if (prints.types[p].is_reversal || parted.count(prints.types[p].name)) continue;
            // By as much as the curves, told in thousandths, differ.
            EXPECT_NEAR(grey[0], grey[1], 8);
            EXPECT_NEAR(grey[2], grey[1], 8);
            EXPECT_TRUE(p == 0 || n == 0 || std::abs(grey[1] - 2048) < 500) << grey[1];
        }
}

namespace {

struct FilmCall {
    std::vector<double> films = {0, 0, 0, 0}, brightness = {0, 0, 0}, amp = {0, 0, 0};
    double soft_focus = 0, width = 0.25, blur = 0;
};
std::vector<Plane> film_of(FilterFrameRig& rig, const std::vector<Plane>& in, const FilmCall& call) {
    const auto numbers = [](const std::vector<double>& v) {
        FilterFrameRig::Arg arg(0.0);
        arg.numbers = v;
        return arg;
    };
    return rig.run(image_film_effect, static_cast<int>(in.size()), 1,
                   {in,
                    numbers(call.films),
                    {2.2, 2.2, 2.2, 2.2},
                    0.25,
                    {1, 0.9, 1.1},
                    {0, 1},
                    numbers(call.brightness),
                    call.soft_focus,
                    {call.width, call.width / 2, call.width},
                    numbers(call.amp),
                    {0.4, 0.4, 0.4, 0},
                    {call.blur, call.blur, call.blur},
                    {1, 2, 0.3, 0.2}});
}
std::vector<Plane> pictures(int width, int height, int n) {
    std::vector<Plane> all;
    for (int c = 0; c < n; ++c)
        all.push_back(velloran_tests::random_plane(width, height, -300, 4800, static_cast<unsigned>(c)));
    return all;
}

}  // namespace

// Tables, then the glow, then grain of the stocks' strength; alpha is left alone.
TEST(FilmEffect, IsTonesGlowAndGrain) {
    constexpr int width = 96, height = 50;
    const FilmTextsInUse films(model_stocks);
    FilterFrameRig rig(width, height, 2);
    const std::vector<Plane> in = pictures(width, height, 4);
    for (const double soft_focus : {0.0, 0.4, 1.0}) {
        const double brightness[] = {1, 0.5, 0}, amp[] = {0, 2, 3};
        const std::vector<Plane> out = film_of(
            rig, in, {.films = {1, 1, 0, 0.1}, .brightness = {1, 0.5, 0}, .amp = {0, 2, 3}, .soft_focus = soft_focus});
        EXPECT_EQ(out[3], in[3]);
        for (int c = 0; c < 3; ++c) {
            Plane want = in[static_cast<size_t>(c)];
            const int softness = width / 8 * 410;
            blur_image(want.data(), want.data(), {.x_radius = softness, .y_radius = softness, .subpixel = true},
                       {width, height});
            for (FixPixel& v : want) v = film_table(c)[std::clamp<int>(v, 0, 4096)];
            if (brightness[c] > 0) {
                Plane glow = want;
                const int radius = static_cast<int>(width / 8 * (c == 1 ? 0.125 : 0.25) * 4096);
                blur_image(glow.data(), glow.data(),
                           {.x_radius = radius,
                            .y_radius = radius,
                            .subpixel = true,
                            .gain = static_cast<int>(brightness[c] * 4096)},
                           {width, height});
                const double keep = 1 - static_cast<int>(soft_focus * 4096 + 0.5) / 4096.0 * brightness[c];
                for (size_t i = 0; i < want.size(); ++i)
                    want[i] = static_cast<FixPixel>(std::floor(want[i] * std::ceil(keep * 4096) / 4096) + glow[i]);
            }
            Plane grain = out[static_cast<size_t>(c)];
            double wanted = 0;
            for (size_t i = 0; i < grain.size(); ++i) {
                grain[i] = static_cast<FixPixel>(grain[i] - want[i]);
                // Of this negative and this print: 0.01 + 0.02 + 0.02, four times.
                float level[grain_levels];
                fill_grain_amounts(level, 0.4f, 0.3f, 0.2f, static_cast<float>(0.2 * amp[c]));
                const double one = static_cast<double>(level[std::clamp(want[i] >> 6, 0, 64)]) * noise_spread;
                wanted += one * one / static_cast<double>(grain.size());
            }
            if (amp[c] == 0) {
                EXPECT_EQ(grain, Plane(grain.size(), 0)) << soft_focus;
            } else {
                EXPECT_NEAR(spread(grain) / std::sqrt(wanted), 1, 0.03) << "colour " << c;
            }
        }
    }
    // A slide has no negative, so its own grain counts twice: 0.06 four times.
    const std::vector<Plane> grey(3, Plane(static_cast<size_t>(width * height), 1638));
    const std::vector<Plane> plain = film_of(rig, grey, {.films = {1, 4, 0, 0}}),
                             slide = film_of(rig, grey, {.films = {1, 4, 0, 0}, .amp = {1, 1, 1}});
    Plane grain = slide[1];
    for (size_t i = 0; i < grain.size(); ++i) grain[i] = static_cast<FixPixel>(grain[i] - plain[1][i]);
    float level[grain_levels];
    fill_grain_amounts(level, 0.4f, 0.3f, 0.2f, 0.24f);
    EXPECT_NEAR(spread(grain), static_cast<double>(level[plain[1][0] >> 6]) * noise_spread, 0.03 * spread(grain));
}

// A shot of 240 frames: the same bytes on any number of tasks, and of a frame alone.
TEST(FilmEffect, AShotIsTheSameOnAnyTasks) {
    constexpr int width = 48, height = 30, frames = 240;
    const FilmTextsInUse films(shipped_text);
    const std::vector<Plane> in = pictures(width, height, 3);
    // Blurs fork often; a few frames have them.
    const auto call = [](int frame) {
        FilmCall c = {.films = {3, 1, 0, 0}, .amp = {4, 4, 4}, .soft_focus = 0.5};
        if (frame % 20 == 0) c.blur = c.brightness[0] = 0.2;
        return c;
    };
    std::vector<std::vector<Plane>> shots[3];
    const int tasks[] = {1, 2, 5};
    for (size_t t = 0; t < 3; ++t) {
        FilterFrameRig rig(width, height, tasks[t]);
        for (int frame = 0; frame < frames; ++frame) {
            the_frame->time_globals.frame = static_cast<float>(frame);
            shots[t].push_back(film_of(rig, in, call(frame)));
        }
    }
    EXPECT_TRUE(shots[1] == shots[0]);
    EXPECT_TRUE(shots[2] == shots[0]);
    for (const int frame : {1, 100, 239}) {
        const auto at = static_cast<size_t>(frame);
        EXPECT_FALSE(shots[0][at] == shots[0][at - 1]);
        forget_film_tables();
        FilterFrameRig rig(width, height, 2);
        the_frame->time_globals.frame = static_cast<float>(frame);
        EXPECT_TRUE(film_of(rig, in, call(frame)) == shots[0][at]) << frame;
    }
}

TEST(FilmRows, TargetsAreAlike) {
    std::mt19937 rng(2);
    for (const int n : {0, 1, 7, 16, 63, 255, 256, 259, 1031}) {
        const Plane a = velloran_tests::random_plane(n + 3, 1, -32767, 32767),
                    b = velloran_tests::random_plane(n + 3, 1, -32767, 32767, 5);
        const Plane table = velloran_tests::random_plane(65536, 1, -32767, 32767, 7);
        float amounts[grain_levels];
        fill_grain_amounts(amounts, 0.3f, 2.0f, -3.0f, n == 63 ? 100000.0f : 1.5f);
        const int shift = n & 3;
        const GrainRow row = {0xfffffff0u + static_cast<uint32_t>(n), shift};
        GrainKernel kernel;
        ASSERT_TRUE(make_grain_kernel(make_grain_blur(4096 + 900 * shift), &kernel));
        const FixPixel* around[2 * longest_grain_reach + 1];
        for (int k = 0; k <= 2 * kernel.reach; ++k) around[k] = (k % 2 ? a : b).data() + k % 4;
        std::vector<float> line(static_cast<size_t>(n + 2 * kernel.reach));
        const auto run = [&] {
            const FilmImageRows& rows = film_image_rows();
            std::vector<Plane> out(6, a);
            rows.tone(out[0].data() + shift, table.data(), n);
            rows.add_glow(out[1].data() + shift, b.data(), 3000, n);
            rows.make_grain(a.data() + shift, out[2].data() + shift, amounts, row, n);
            rows.add_grain(out[3].data() + shift, amounts, row, n);
            rows.add(out[4].data() + shift, b.data(), n);
            if (n > kernel.reach) rows.add_blurred(out[5].data() + shift, around, kernel, line.data(), n);
            return out;
        };
        std::vector<Plane> want(6, a);
        for (int i = 0; i < n; ++i) {
            const auto at = static_cast<size_t>(i + shift), from = static_cast<size_t>(i);
            const int v = a[at], g = i + shift;
            want[0][at] = table[static_cast<uint16_t>(v)];
            want[1][at] = clip_to_image(((v * 3000) >> 12) + b[from]);
            const int byte =
                static_cast<int>(bit_hash(row.sequence + static_cast<uint32_t>(g / 4 * 4)) >> 8 * (g % 4) & 255);
            const int grain = clip_to_image(
                static_cast<int>(static_cast<float>(byte * 16 - 2048) * amounts[std::clamp(v >> 6, 0, 64)]));
            want[2][at] = static_cast<FixPixel>(grain);
            want[3][at] = clip_to_image(v + grain);
            want[4][at] = clip_to_image(v + b[from]);
        }
        velloran_tests::on_plain_target([&] {
            if (n > kernel.reach) film_image_rows().add_blurred(want[5].data() + shift, around, kernel, line.data(), n);
            return 0;
        });
        velloran_tests::for_each_row_target([&](int64_t) { EXPECT_EQ(run(), want) << n; });
    }
}
