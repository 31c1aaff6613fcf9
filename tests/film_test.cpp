// Film: the reader of stocks, curves, the tones of a film against their formulas, and grain against its model.
#include "operators/blur/blur_image.h"
#include "operators/film/film_functions.h"
#include "operators/film/film_image_rows.h"
#include "operators/film/grain_amounts.h"
#include "support/abort.h"
#include "support/hash.h"
#include "support/memory.h"
#include "testing/caught_messages.h"
#include "testing/film_texts.h"
#include "testing/filter_node.h"
#include "testing/row_targets.h"
#include "texts/text_reader.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <csetjmp>

using namespace velloran;
using velloran_tests::FilmTexts;
using velloran_tests::FilmTextsInUse;
using velloran_tests::FilterFrameRig;
using velloran_tests::Messages;
using velloran_tests::Plane;

namespace {

const std::string shipped_text = [] {
    std::ifstream file(FILM_TYPES);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}();

std::string points(int n) {
    std::string all;
    for (int i = 0; i < n; ++i) all += std::to_string(i) + " 1 ";
    return all;
}

const std::string a_print = " begin P print_film end P ";

}  // namespace

// Whatever is wrong with a stock is told once, it keeps what was read, and the next one is read.
TEST(FilmFiles, ABadStockKeepsWhatItHas) {
    const std::string curve = "color_curves log lin rgb 0 1 2 3 1 2 3 4 end_color_curves ";
    const struct {
        std::string bad, message;  // message: without level; empty: nothing is wrong
        int points;                // of its blue curve
    } cases[] = {
        {"begin A " + curve + "end A", "", 2},
        {"begin A end B", "end B does not match begin A \n", 0},
        {"begin A " + curve + "gamma 2 end A", "film type A: got 'gamma' expected: gamma, grain_amp, or grain_blur", 2},
        {"begin A grain [ 1 2 3 end A", "Missing ] after grain", 0},
        {"begin A grain [ 1 x 3 ] end A", "Expected number after grain, got x", 0},
        {"begin A grain end A", "Expected number after grain, got end", 0},
        {"begin A grain 1e999 end A", "Expected number after grain, got one that is too large", 0},
        {"begin A color_curves log2 stop rgb end_color_curves end A", "Unknown curve type stop in A \n", 0},
        {"begin A color_curves log stops green 1 2", "in A, first curve green should be 'rgb' or 'red'", 0},
        {"begin A color_curves log lin rgb 0 1 2 3 1 x", "expected a number but got x", 1},
        {"begin A color_curves log lin rgb 0 1 2 end_color_curves", "expected a number but got end_color_curves", 0},
        {"begin A color_curves log lin rgb 0 1 2 3 1 1e999 2 3", "expected a number but got one that is too large", 1},
        {"begin A color_curves log lin red 0 1 green 0 1 1 2 yellow", "expected a number or blue but got yellow", 0},
        {"begin A color_curves log lin red 0 green 0 1 blue 1 2 end_color_curves", "expected a number but got green",
         0},
        {"begin A color_curves log lin red 0 1 green 0 1 blue 1 2 3 4 end_color_curves end A", "", 2},
        {"begin A color_curves log lin red 0 1 green 0 1 blue " + points(20) + "end_color_curves end A", "", 20},
        {"begin A color_curves log lin red 0 1 green 0 1 blue " + points(21) + "end_color_curves end A",
         "exceeded MAX_CURVE_POINTS", 20},
        {"begin A color_curves log lin rgb 0 1 1 1 1 1 1 1 1 2 2 2 end_color_curves end A",
         "film type A: the curve's point at 1 does not lie behind the one at 1", 2},
        {"begin A exposure_compensation 1 2 end A", "exposure_compensation expected a number, but got 'end'", 0},
        {"begin A normal_gray_exposure 1e999 end A", "normal_gray_exposure expected a number, but it is too large", 0},
        {"begin A grain", "Expected number after grain, got begin", 0},  // the next one has begun
        {"words before the first begin 1 2 end begin A // begin X\n end A", "", 0},
        {"begin A " + std::string(200, 'x') + " end A", "film type A: got '' expected: gamma, grain_amp, or grain_blur",
         0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bad.substr(0, 100));
        const Messages messages;
        const FilmTexts films(c.bad + " begin Good grain 2 end Good" + a_print);
        const int at = c.bad.find("words") == 0 ? 2 : 1;  // "end begin" does begin a stock, which ends otherwise
        if (at == 1) {
            ASSERT_EQ(films.negatives.count, 3);
            EXPECT_STREQ(films.negatives.types[1].name, "Neg: A");
            EXPECT_EQ(films.negatives.types[1].point_count[2], c.points);
            EXPECT_EQ(messages.count("8 " + c.message), c.message.empty() ? 0 : 1);
        }
        const FilmType& good = films.negatives.types[films.negatives.count - 1];
        EXPECT_STREQ(good.name, "Neg: Good");
        EXPECT_EQ(good.grain[2], 2);
    }
}

TEST(FilmFiles, EndsAndEmptyFiles) {
    const struct {
        std::string text, message;
    } cases[] = {
        {"begin A color_curves", "EOF while reading curve type in A"},
        {"begin A color_curves log lin red 0 1", "eof before green was found \n"},
        {"begin A color_curves log lin rgb 0 1", "eof before end_color_curves was found \n"},
        {"begin A grain", "Expected number after grain, got "},
        {"begin A", "film type A: eof before end was found"},
        {"begin A end A", "No print film types found in FILE.\n"},
        {"begin", "No negative film types found in FILE.\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const Messages messages;
        const FilmTexts films(c.text);
        EXPECT_EQ(films.negatives.count, c.text == "begin" ? 1 : 2);
        EXPECT_EQ(films.prints.count, 1);
        std::string message = c.message;
        if (const size_t at = message.find("FILE"); at != std::string::npos) message.replace(at, 4, films.path());
        EXPECT_EQ(messages.count("8 " + message), 1);
    }
    const Messages messages;
    FilmTable a = {}, b = {};
    read_film_types("/nowhere/f.text", &a, &b);
    EXPECT_EQ(messages.count("8 Can't open file /nowhere/f.text\n"), 1);
    EXPECT_EQ(a.count + b.count, 0);
}

TEST(FilmFiles, KeysTablesAndNames) {
    const FilmTexts films(
        "begin one grain [ 1 2 3 ] normal_gray_exposure -0.5 end one begin two_halves reversal_film "
        "exposure_compensation "
        "-1 0 0.30103 grain 2 color_curves stops linear red 1 4 3 5 green 2 6 blue end_color_curves end two_halves "
        "begin " +
        std::string(110, 'n') + " print_film end " + std::string(110, 'n'));
    ASSERT_EQ(films.negatives.count, 2);
    ASSERT_EQ(films.prints.count, 3);
    EXPECT_STREQ(films.negatives.names[0], "Neg Film: None");
    EXPECT_STREQ(films.prints.names[0], "Print Film: None");
    EXPECT_STREQ(films.prints.names[1], "Print: Two Halves");
    EXPECT_TRUE(films.prints.types[0].is_print && !films.prints.types[0].is_reversal);
    EXPECT_EQ(std::string(films.prints.types[2].name), "Print: " + std::string(92, 'n'));
    const FilmType &one = films.negatives.types[1], &two = films.prints.types[1];
    EXPECT_EQ(one.grain[1], 2);
    EXPECT_EQ(one.normal_gray_exposure, -0.5f);
    EXPECT_EQ(one.exposure_compensation[1], 1);
    EXPECT_TRUE(two.is_reversal);
    EXPECT_FLOAT_EQ(two.exposure_compensation[0], 0.1f);
    EXPECT_FLOAT_EQ(two.exposure_compensation[2], 2.0f);
    EXPECT_EQ(two.grain[0] + two.grain[1] + two.grain[2], 6);
    EXPECT_EQ(two.x_type, film_axis_stops);
    EXPECT_EQ(two.y_type, film_axis_linear);
    EXPECT_EQ(two.point_count[0], 2);
    EXPECT_EQ(two.y[0][1], 5);
    EXPECT_EQ(two.point_count[2], 0);
    EXPECT_EQ(&film_type(films.prints, 7), &films.prints.types[0]);
    EXPECT_EQ(&film_type(films.prints, -1), &films.prints.types[0]);
}

namespace {

// The reader tells which file it opens: not ten thousand times.
class Quiet {
public:
    Quiet() : terminal_(dup(1)), null_(open("/dev/null", O_WRONLY)) { dup2(null_, 1); }
    ~Quiet() {
        dup2(terminal_, 1);
        close(terminal_);
        close(null_);
    }
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;

private:
    int terminal_, null_;
};

}  // namespace

// Ten thousand damaged texts: what is read is always fit to be used.
TEST(FilmFiles, DamagedTextsAreOnlyTold) {
    const std::string whole =
        "begin A exposure_compensation -1 0 0.3 normal_gray_exposure 0.1 grain [ 1 2 3 ] color_curves log10 stops red "
        "0 1 "
        "1 2 green 0 1 blue 3 4 5 6 end_color_curves end A begin B print_film grain 1 color_curves lin log rgb 0 1 1 1 "
        "1 2 "
        "3 4 end_color_curves end B // words\n begin C reversal_film end C";
    const char* const pieces[] = {" begin ",
                                  " end ",
                                  "\"",
                                  "[",
                                  "]",
                                  "(",
                                  " 1e39 ",
                                  "-",
                                  " rgb ",
                                  " grain ",
                                  "\n",
                                  "//",
                                  "\0x",
                                  " end_color_curves ",
                                  " color_curves ",
                                  " 1e-40 ",
                                  " print_film "};
    std::mt19937 rng(5);
    const Messages messages;
    const Quiet quiet;
    int damaged = 0;
    for (int turn = 0; turn < 10000; ++turn) {
        std::string text = whole;
        for (unsigned n = rng() % 4 + 1; n > 0; --n) {
            const size_t at = rng() % text.size(), length = rng() % 20;
            switch (rng() % 4) {
                case 0:
                    text.erase(at, length);
                    break;
                case 1:
                    text.insert(at, pieces[rng() % std::size(pieces)]);
                    break;
                case 2:
                    text[at] = static_cast<char>(rng());
                    break;
                default:
                    text.insert(at, text.substr(rng() % text.size(), length));
                    break;
            }
            if (text.empty()) text = " ";
        }
        const FilmTexts films(text);
        damaged += films.negatives.count != 2 || films.prints.count != 3;
        for (const FilmTable* table : {&films.negatives, &films.prints})
            for (int i = 0; i < table->count; ++i)
                for (int c = 0; c < film_colors; ++c) {
                    const FilmType& type = table->types[i];
                    ASSERT_TRUE(std::isfinite(type.grain[c]) && std::isfinite(type.exposure_compensation[c]));
                    ASSERT_LE(type.point_count[c], MAX_CURVE_POINTS);
                    for (int k = 1; k < type.point_count[c]; ++k) ASSERT_LT(type.x[c][k - 1], type.x[c][k]) << text;
                }
    }
    EXPECT_GT(damaged, 1000);
    EXPECT_GT(messages.count(), 1000);
}

namespace {

int allocations, fail_at;
void* failing_block(size_t bytes, size_t alignment) {
    if (allocations++ == fail_at) return nullptr;
    return std::aligned_alloc(alignment, (bytes + alignment - 1) / alignment * alignment);
}

}  // namespace

// A load that ended for want of memory leaves nothing, and the next one is whole.
TEST(FilmFiles, EveryAllocationFailsInTurn) {
    const Messages messages;
    auto* const outer_block = allocate_block;
    allocate_block = failing_block;
    int failed = 0;
    for (fail_at = 0;; ++fail_at) {
        allocations = 0;
        AbortTarget outer;
        arm_abort(outer);
        if (setjmp(_V_jmpbuf)) {
            disarm_abort(outer);
            reset_text_reader();
            ++failed;
            continue;
        }
        {
            static FilmTable tables[2];
            push_abort_cleanup(
                [](void*) {
                    for (FilmTable& t : tables) free_film_table(&t);
                },
                nullptr);
            start_film_table(&tables[0], false);
            start_film_table(&tables[1], true);
            read_film_types(FILM_TYPES, &tables[0], &tables[1]);
            pop_abort_cleanup();
            EXPECT_GE(tables[0].count, 11);
            for (FilmTable& t : tables) free_film_table(&t);
        }
        disarm_abort(outer);
        break;
    }
    allocate_block = outer_block;
    EXPECT_GT(failed, 20);
}

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

constexpr int grain_width = 256, grain_height = 200;

struct GrainCall {
    double image = 0.4, amp = 0.5, midtone = 0.4, darks = 0.3, brights = 0.2, mono = 0, blur = 0, hold = 1, seed = 0;
};

// The grain on an even picture, as three planes of differences.
std::vector<Plane> grain_of(FilterFrameRig& rig, const GrainCall& call, double frame = 0) {
    the_frame->time_globals.frame = static_cast<float>(frame);
    const auto value = static_cast<FixPixel>(call.image * 4096);
    const Plane even(static_cast<size_t>(rig.width) * static_cast<size_t>(rig.height), value);
    std::vector<Plane> out = rig.run(image_grain, 3, 1,
                                     {std::vector<Plane>{even, even, even},
                                      {call.amp, call.amp, call.amp},
                                      {call.midtone, call.midtone, call.midtone},
                                      {call.darks, call.brights},
                                      call.mono,
                                      {call.blur, call.blur, call.blur},
                                      call.hold,
                                      call.seed});
    for (Plane& plane : out)
        for (FixPixel& v : plane) v = static_cast<FixPixel>(v - value);
    return out;
}

double mean(const Plane& plane) {
    double sum = 0;
    for (const FixPixel v : plane) sum += v;
    return sum / static_cast<double>(plane.size());
}
double covariance(const Plane& a, const Plane& b) {
    const double mean_a = mean(a), mean_b = mean(b);
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i) sum += (a[i] - mean_a) * (b[i] - mean_b);
    return sum / static_cast<double>(a.size());
}
double spread(const Plane& plane) { return std::sqrt(covariance(plane, plane)); }
double correlation(const Plane& a, const Plane& b) { return covariance(a, b) / (spread(a) * spread(b)); }
// Of even noise in 256 steps of 16.
const double noise_spread = 16 * std::sqrt((256.0 * 256 - 1) / 12);

}  // namespace

TEST(Grain, IsAsStrongAsItsModel) {
    FilterFrameRig rig(grain_width, grain_height);
    for (const double midtone : {0.0, 0.25, 0.4, 1.0})
        for (const double image : {-0.3, 0.0, 0.1, 0.25, 0.4, 0.7, 1.0, 1.6})
            for (const double amp : {0.25, 1.0}) {
                const GrainCall call = {.image = image, .amp = amp, .midtone = midtone};
                const auto s = [](double u) { return u + u * u - u * u * u; };
                // Samples of 64 levels each are alike.
                const double t = std::clamp(std::floor(image * 64), 0.0, 64.0) / 64;
                const double want =
                    t < midtone ? 0.3 + 0.7 * s(t / midtone) : 0.2 + 0.8 * s((1 - t) / std::max(1 - midtone, 0.0001));
                const std::vector<Plane> out = grain_of(rig, call);
                for (const Plane& plane : out) {
                    EXPECT_NEAR(spread(plane), want * amp * noise_spread, 0.03 * want * amp * noise_spread)
                        << image << " with the midtone " << midtone;
                    EXPECT_NEAR(mean(plane), 0, 0.02 * amp * noise_spread + 1);
                }
            }
}

TEST(Grain, FramesFieldsAndChannelsAreApart) {
    FilterFrameRig rig(grain_width, grain_height);
    const GrainCall call;
    const std::vector<Plane> now = grain_of(rig, call, 7), next = grain_of(rig, call, 8);
    for (size_t c = 0; c < 3; ++c) {
        EXPECT_LT(std::abs(correlation(now[c], next[c])), 0.02);
        EXPECT_LT(std::abs(correlation(now[c], now[(c + 1) % 3])), 0.02);
    }
    const std::vector<Plane> mono = grain_of(rig, {.mono = 1}, 7);
    EXPECT_EQ(mono[0], mono[1]);
    EXPECT_EQ(mono[2], mono[1]);
    EXPECT_EQ(mono[1], now[1]);
    EXPECT_LT(std::abs(correlation(now[0], grain_of(rig, {.seed = 3}, 7)[0])), 0.02);
    const std::vector<Plane> fields = grain_of(rig, {.hold = 0}, 7);
    EXPECT_LT(std::abs(correlation(fields[0], now[0])), 0.55);  // one field of both is alike
    EXPECT_GT(std::abs(correlation(fields[0], now[0])), 0.45);
    EXPECT_EQ(grain_of(rig, call, 7.5), now);  // a second field of the same frame
}

// Of which frame of film the fields of five frames are, by the beginning of the pattern.
TEST(Grain, IsHeldAsFilmOnVideo) {
    for (int hold = 2; hold < 8; ++hold) {
        std::map<uint32_t, int> fields;
        uint32_t before = 0;
        for (int frame = 0; frame < 40; ++frame) {
            const FieldSeeds seeds = grain_field_seeds(hold, frame);
            const int n = (frame - hold) * 2 + 20;
            EXPECT_EQ(seeds.first, static_cast<uint32_t>(n / 5 * 2 + (n % 5 >= 2)));
            EXPECT_EQ(seeds.second, static_cast<uint32_t>((n + 1) / 5 * 2 + ((n + 1) % 5 >= 2)));
            EXPECT_GE(seeds.first, before);
            before = seeds.second;
            ++fields[seeds.first];
            ++fields[seeds.second];
        }
        int twos = 0, threes = 0;
        for (auto at = std::next(fields.begin()); at != std::prev(fields.end()); ++at) {
            twos += at->second == 2;
            threes += at->second == 3;
        }
        EXPECT_EQ(twos + threes, static_cast<int>(fields.size()) - 2);
        EXPECT_LE(std::abs(twos - threes), 1);
    }
    EXPECT_EQ(grain_field_seeds(0, 9).second, 19u);
    EXPECT_EQ(grain_field_seeds(1, 9).second, 18u);
    // Far before the pattern's own beginning it goes on as it is.
    for (int frame = -60; frame < -30; ++frame)
        EXPECT_EQ(grain_field_seeds(2, frame).first + 4, grain_field_seeds(2, frame + 5).first);
    // Which rows the first field has, by the height of the frame, or by what is rendered.
    for (const auto& [height, odd_first] : {std::pair{486, false}, {576, true}, {1080, false}, {487, true}}) {
        FilterFrameRig rig(64, height);
        const Plane both = grain_of(rig, {.hold = 0}, 5)[0], same = grain_of(rig, {.hold = 1}, 5)[0];
        for (int y = 0; y < height; ++y)
            ASSERT_EQ(std::equal(both.begin() + y * 64, both.begin() + y * 64 + 64, same.begin() + y * 64),
                      (y & 1) == odd_first)
                << height << " rows, row " << y;
    }
    FilterFrameRig rig(64, 486);
    const Plane whole = grain_of(rig, {.hold = 0}, 5)[0];
    for (const int field : {2, 1}) {  // even rows first
        the_frame->render_field = field;
        const Plane own = grain_of(rig, {.hold = 0}, field == 2 ? 5 : 5.5)[0];
        for (int y = field == 2 ? 0 : 1; y < 486; y += 2)
            ASSERT_TRUE(std::equal(own.begin() + y * 64, own.begin() + y * 64 + 64, whole.begin() + y * 64)) << y;
    }
}

TEST(Grain, BlurKeepsSomeOfItsStrength) {
    FilterFrameRig rig(grain_width, grain_height);
    for (const double pixels : {0.25, 0.5, 1.0, 1.75, 3.0}) {
        const double blur = pixels * 8 / grain_width;
        // Boxes along one axis, mixed of the two nearest whole ones.
        const auto box = [](double r) {
            std::vector<double> weights(41);
            const int lo = static_cast<int>(r), hi = static_cast<int>(std::ceil(r));
            for (int i = -20; i <= 20; ++i) {
                const double part = r - lo;
                weights[static_cast<size_t>(i + 20)] =
                    (std::abs(i) <= lo ? (1 - part) / (2 * lo + 1) : 0) + (std::abs(i) <= hi ? part / (2 * hi + 1) : 0);
            }
            return weights;
        };
        const std::vector<double> first = box(pixels), second = box(std::max(pixels - 0.5, 0.0));
        double squares = 0;
        for (int at = -40; at <= 40; ++at) {
            double sum = 0;
            for (int i = -20; i <= 20; ++i)
                if (std::abs(at - i) <= 20)
                    sum += first[static_cast<size_t>(i + 20)] * second[static_cast<size_t>(at - i + 20)];
            squares += sum * sum;
        }
        const double want = 0.5 * noise_spread * squares * (0.8 * pixels + 1);
        EXPECT_NEAR(spread(grain_of(rig, {.blur = blur})[1]), want, 0.05 * want) << pixels;
    }
}

// The short way and the long way are one blur, but for rounding.
TEST(Grain, ASmallBlurIsTheBlurOfAWideOne) {
    constexpr int width = 90, height = 60;
    FilterFrameRig rig(width, height, 3);
    for (const double pixels : {0.1, 0.5, 1.3, 2.5, 4.75, 6.0, 7.5}) {
        const double blur = pixels * 8 / width;
        const int radius = (float_to_fix(static_cast<float>(blur)) * width) >> 3;
        const GrainBlur boxes = make_grain_blur(radius);
        EXPECT_EQ(boxes.second_radius, std::max(radius - 2048, 0));
        EXPECT_NEAR(boxes.gain, 0.8 * radius + 4096, 1);
        Plane want = grain_of(rig, {.amp = 0.9})[2];
        BlurSettings box = {.x_radius = radius, .y_radius = radius, .passes = 1, .subpixel = true};
        for (const int second : {0, 1}) {
            if (second) box.x_radius = box.y_radius = boxes.second_radius;
            if (second) box.gain = boxes.gain;
            blur_image(want.data(), want.data(), box, {width, height});
        }
        const Plane got = grain_of(rig, {.amp = 0.9, .blur = blur})[2];
        for (size_t i = 0; i < got.size(); ++i) ASSERT_NEAR(got[i], want[i], 4 + 2 * pixels) << pixels << " at " << i;
    }
}

// To the last bit, by the hash of its four samples, on every target; the part of the frame in hand does not show.
TEST(Grain, IsTheHashOfItsPlace) {
    constexpr int width = 103, height = 41, left = 13, bottom = 5;
    const Plane picture = velloran_tests::random_plane(width, height, -600, 5000);
    float amounts[grain_levels];
    fill_grain_amounts(amounts, 0.375f, 0.25f, 0.125f, 0.875f);
    Plane want = picture;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            // A frame of odd height has its first field on the odd rows.
            const uint32_t field = 2 * 9 + (~y & 1), seed = 3 * 4096 + 7 * field + width * height * field + 10001;
            const uint32_t h = bit_hash(seed + static_cast<uint32_t>(y * width + x / 4 * 4));
            const int values[] = {static_cast<int>(h & 255) * 16 - 2048, static_cast<int>(h >> 8 & 255) * 16 - 2048,
                                  static_cast<int>(h >> 16 & 255) * 16 - 2048,
                                  static_cast<int>(h >> 20 & 0xff0) - 2048};
            FixPixel& v = want[static_cast<size_t>(y * width + x)];
            v = static_cast<FixPixel>(
                v + static_cast<int>(static_cast<float>(values[x % 4]) * amounts[std::clamp(v >> 6, 0, 64)]));
        }
    const auto run = [&](FilterFrameRig& rig, const Plane& image) {
        the_frame->time_globals.frame = 9;
        return rig.run(image_grain, 3, 1,
                       {std::vector<Plane>{image, image, image},
                        {0.875, 0.875, 0.875},
                        {0.375, 0.375, 0.375},
                        {0.25, 0.125},
                        0.0,
                        {0, 0, 0},
                        0.0,
                        3.0})[1];
    };
    velloran_tests::for_each_row_target([&](int64_t) {
        FilterFrameRig rig(width, height, 3);
        EXPECT_EQ(run(rig, picture), want);
    });
    constexpr int part_width = width - left, part_height = height - bottom;
    Plane part, want_part;
    for (int y = bottom; y < height; ++y) {
        part.insert(part.end(), picture.begin() + y * width + left, picture.begin() + (y + 1) * width);
        want_part.insert(want_part.end(), want.begin() + y * width + left, want.begin() + (y + 1) * width);
    }
    FilterFrameRig rig(part_width, part_height, 2);
    the_frame->render_info.full_ren = {0, 0, width, height};
    the_frame->temp_raster_info.x = left;
    the_frame->temp_raster_info.y = bottom;
    EXPECT_EQ(run(rig, part), want_part);
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
