// The reader of stocks: what a file may say, damaged files, memory that runs out.
#include "operators/film/film_functions.h"
#include "support/abort.h"
#include "support/memory.h"
#include "testing/caught_messages.h"
#include "testing/film_texts.h"
#include "testing/filter_node.h"
#include "texts/text_reader.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <csetjmp>

using namespace velloran;
using velloran_tests::FilmTexts;
using velloran_tests::Messages;

namespace {

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
