// Rows of host frames to lines and back, on every instruction set.
#include "testing/caught_messages.h"
#include "testing/host_of_tasks.h"
#include "testing/ops_formats.h"
#include "testing/row_targets.h"

#include <sys/mman.h>

using namespace velloran;
using namespace velloran_tests;

namespace {

constexpr int32_t poison = 0x5EADBEEF;
constexpr int steps[] = {1, 2, 3, 6, 32};
constexpr int widths[] = {1, 2, 3, 10, 15, 16, 17, 31, 32, 33, 63, 65, 97, 130, 200, 1301};

// Lines with guards, so that a store beyond a range shows.
struct Lines {
    Lines(int width, int shift) : shift_(shift) {
        for (auto& s : samples) s.assign(static_cast<size_t>(width + 64), poison);
        for (int c = 0; c < 4; ++c) at[c] = samples[c].data() + 32 + shift;
    }
    int32_t guard_errors(int count) const {
        int errors = 0;
        for (const auto& s : samples)
            for (size_t i = 0; i < s.size(); ++i) {
                const int column = static_cast<int>(i) - 32 - shift_;
                if ((column < 0 || column >= count) && s[i] != poison) ++errors;
            }
        return errors;
    }
    std::vector<int32_t> samples[4];
    int32_t* at[4];

private:
    int shift_;
};

int ceil_div(int a, int b) { return (a + b - 1) / b; }

}  // namespace

TEST(FormatLines, SourceRowsOnEveryTarget) {
    for_each_row_target([](int64_t) {
        std::mt19937 rng(1);
        const RandomLuts luts(rng);
        for (const FormCase& form : form_cases)
            for (const bool lut : {false, true})
                for (const int step : steps)
                    for (const int width : widths) {
                        SCOPED_TRACE(testing::Message()
                                     << form.name << " lut " << lut << " step " << step << " width " << width);
                        TestFrame frame(form, width, 2, rng, rng() % 8 * static_cast<size_t>(form.element_bytes));
                        rinfo source;
                        fill_host_raster(&source, frame_info(form, width, 2), step, (step - 1) / 2);
                        const int n = ceil_div(width, step);
                        ASSERT_EQ(source.width, n);
                        // In one piece and in two.
                        const int cut = static_cast<int>(rng() % static_cast<unsigned>(n + 1));
                        Lines whole(n, 0), pieces(n, static_cast<int>(rng() % 4));
                        const void* row = source_row_of(source, frame.data(), 0);
                        native_to_fix_line(source, row, whole.at, 0, n, 3, lut);
                        native_to_fix_line(source, row, pieces.at, 0, cut, 3, lut);
                        int32_t* rest[3] = {pieces.at[0] + cut, pieces.at[1] + cut, pieces.at[2] + cut};
                        native_to_fix_line(source, row, rest, cut, n - cut, 3, lut);
                        const int y = step == 1 ? 0 : std::min((step - 1) / 2, 1);
                        for (int i = 0; i < n; ++i)
                            for (int c = 0; c < 3; ++c) {
                                const int x = std::min(i * step + (step - 1) / 2, width - 1);
                                const int expected = expected_sample(form, frame.element(x, y, c), lut);
                                ASSERT_EQ(whole.at[c][i], expected) << "sample " << i << " channel " << c;
                                ASSERT_EQ(pieces.at[c][i], expected) << "sample " << i << " cut at " << cut;
                            }
                        ASSERT_EQ(whole.guard_errors(n), 0);
                        ASSERT_EQ(pieces.guard_errors(n), 0);
                    }
    });
}

TEST(FormatLines, DestRowsOnEveryTarget) {
    for_each_row_target([](int64_t) {
        std::mt19937 rng(2);
        const RandomLuts luts(rng);
        for (const FormCase& form : form_cases)
            for (const bool lut : {false, true})
                for (const int vlen : {1, 2, 3, 4})
                    for (const int step : steps)
                        for (const int width : widths) {
                            SCOPED_TRACE(testing::Message() << form.name << " lut " << lut << " vlen " << vlen
                                                            << " step " << step << " width " << width);
                            TestFrame frame(form, width, 1, rng, rng() % 8 * static_cast<size_t>(form.element_bytes));
                            TestFrame expected = frame;
                            rinfo dest;
                            fill_host_raster(&dest, frame_info(form, width, 1), 1, 0);
                            // A part of the row that begins and ends anywhere in its blocks, in one piece or two.
                            const int first = static_cast<int>(rng() % static_cast<unsigned>(width));
                            const int count = 1 + static_cast<int>(rng() % static_cast<unsigned>(width - first));
                            const int cut = static_cast<int>(rng() % static_cast<unsigned>(count + 1));
                            Lines lines(width, static_cast<int>(rng() % 4));
                            for (int c = 0; c < 4; ++c)
                                for (int i = 0; i < ceil_div(width, step); ++i)
                                    lines.at[c][i] = random_sample<int32_t>(rng);
                            for (int x = first; x < first + count; ++x)
                                for (int c = 0; c < 3; ++c) {
                                    const int s = lines.at[vlen < 3 ? 0 : c][x / step];
                                    expected.set_element(x, 0, c,
                                                         expected_element(form, expected.element(x, 0, c), s, lut));
                                }
                            const int32_t* in[4];
                            for (const auto& [from, n] : {std::pair(first, cut), std::pair(first + cut, count - cut)}) {
                                for (int c = 0; c < 4; ++c) in[c] = lines.at[c] + from / step;
                                dest_converter(dest, frame.data(), 0, from, n, in, vlen, step, 1, lut);
                            }
                            ASSERT_EQ(frame.bytes(), expected.bytes())
                                << "pixels " << first << " + " << count << " cut at " << cut;
                        }
    });
}

TEST(FormatLines, EndsOfTheRange) {
    const struct {
        FormCase form;
        int native, sample, back;
    } rows[] = {
        {form_cases[0], 255, 4095, 255},       {form_cases[0], 128, 2056, 128},       {form_cases[0], 0, 0, 0},
        {form_cases[1], 0xFFFF, 4095, 0xFFC0}, {form_cases[1], 0x8000, 2050, 0x8000}, {form_cases[1], 0x003F, 0, 0},
        {form_cases[2], 0xFFFF, 4095, 0xFFF0}, {form_cases[2], 0x8010, 2049, 0x8010}, {form_cases[2], 0x000F, 0, 0},
    };
    std::mt19937 rng(3);
    for (const auto& row : rows) {
        TestFrame frame(row.form, 1, 1, rng);
        for (int c = 0; c < 3; ++c) frame.set_element(0, 0, c, row.native);
        rinfo raster;
        fill_host_raster(&raster, frame_info(row.form, 1, 1), 1, 0);
        int32_t samples[3] = {};
        int32_t* const lines[3] = {&samples[0], &samples[1], &samples[2]};
        native_to_fix_line(raster, frame.data(), lines, 0, 1, 3, false);
        EXPECT_EQ(samples[1], row.sample) << row.form.name << " " << row.native;
        for (int c = 0; c < 3; ++c) frame.set_element(0, 0, c, 0);
        dest_converter(raster, frame.data(), 0, 0, 1, lines, 3, 1, 1, false);
        EXPECT_EQ(frame.element(0, 0, 2), row.back) << row.form.name << " " << row.native;
    }
}

TEST(FormatLines, LutsAskedForButNotMadeAreNotUsed) {
    std::mt19937 rng(4);
    for (const FormCase& form : form_cases) {
        TestFrame frame(form, 40, 1, rng), expected = frame;
        rinfo raster;
        fill_host_raster(&raster, frame_info(form, 40, 1), 1, 0);
        Lines lines(40, 0);
        native_to_fix_line(raster, frame.data(), lines.at, 0, 40, 3, true);
        EXPECT_EQ(lines.at[2][39], expected_sample(form, frame.element(39, 0, 2), false));
        dest_converter(raster, frame.data(), 0, 0, 40, lines.at, 3, 1, 1, true);
        EXPECT_EQ(frame.element(39, 0, 2), expected.element(39, 0, 2));
    }
}

// Gathers fetch more bytes than an entry has.
TEST(FormatLines, TablesAreNotReadBeyondTheirEnds) {
    constexpr size_t page = 4096, table = 4096;
    auto* const pages =
        static_cast<uint8_t*>(mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(pages, MAP_FAILED);
    ASSERT_EQ(mprotect(pages, page, PROT_NONE), 0);
    ASSERT_EQ(mprotect(pages + 2 * page, page, PROT_NONE), 0);
    output_lut_8 = pages + page;
    for (size_t i = 0; i < table; ++i) output_lut_8[i] = static_cast<uint8_t>(i * 31);
    for_each_row_target([](int64_t) {
        std::mt19937 rng(8);
        const FormCase& form = form_cases[0];
        TestFrame frame(form, 64, 1, rng);
        rinfo dest;
        fill_host_raster(&dest, frame_info(form, 64, 1), 1, 0);
        Lines lines(64, 0);
        for (int i = 0; i < 64; ++i)
            for (int c = 0; c < 4; ++c) lines.at[c][i] = i % 2 ? i / 2 : 4095 - i / 2;
        dest_converter(dest, frame.data(), 0, 0, 64, lines.at, 3, 1, 1, true);
        for (int i = 0; i < 64; ++i) EXPECT_EQ(frame.element(i, 0, 1), output_lut_8[lines.at[1][i]]) << i;
    });
    output_lut_8 = nullptr;
    munmap(pages, 3 * page);
}

TEST(FormatLines, ReadSourceLineFillsOutsideWithBackground) {
    std::mt19937 rng(5);
    for (const FormCase& form : form_cases)
        for (const int step : steps) {
            SCOPED_TRACE(testing::Message() << form.name << " step " << step);
            constexpr int width = 101, height = 35;
            TestFrame frame(form, width, height, rng);
            rinfo source;
            fill_host_raster(&source, frame_info(form, width, height), step, (step - 1) / 2);
            source.background[0] = 1.0f;
            source.background[1] = -0.5f;
            source.background[2] = 0.25f;
            const int background[] = {4096, -2048, 1024};
            for (const int row : {-1, 0, source.height - 1, source.height})
                for (const auto& [first, count] : {std::pair(-7, 300), std::pair(-3, 3), std::pair(source.width, 5),
                                                   std::pair(source.width - 1, 4), std::pair(0, source.width)}) {
                    Lines lines(count, 0);
                    read_source_line(source, frame.data(), row, first, count, lines.at, 3, false);
                    for (int i = 0; i < count; ++i)
                        for (int c = 0; c < 3; ++c) {
                            const int column = first + i;
                            int expected = background[c];
                            if (row >= 0 && row < source.height && column >= 0 && column < source.width)
                                expected =
                                    expected_sample(form,
                                                    frame.element(std::min(column * step + (step - 1) / 2, width - 1),
                                                                  std::min(row * step + (step - 1) / 2, height - 1), c),
                                                    false);
                            ASSERT_EQ(lines.at[c][i], expected) << "row " << row << " column " << column;
                        }
                    ASSERT_EQ(lines.guard_errors(count), 0);
                }
        }
}

TEST(FormatLines, FillAndRepeatRows) {
    std::mt19937 rng(6);
    const RandomLuts luts(rng);
    constexpr int width = 1300, height = 4, first = 5, count = 1201;
    for (const FormCase& form : form_cases)
        for (const bool lut : {false, true}) {
            TestFrame frame(form, width, height, rng), expected = frame;
            rinfo dest;
            fill_host_raster(&dest, frame_info(form, width, height), 1, 0);
            const int32_t colour[3] = {-9, 1234, 70000};
            fill_dest_row(dest, frame.data(), 1, first, count, colour, lut);
            for (int x = first; x < first + count; ++x)
                for (int c = 0; c < 3; ++c)
                    expected.set_element(x, 1, c, expected_element(form, expected.element(x, 1, c), colour[c], lut));
            ASSERT_EQ(frame.bytes(), expected.bytes()) << form.name;
            repeat_dest_row(dest, frame.data(), 1, 2, first, count);
            for (int x = first; x < first + count; ++x)
                for (const int y : {2, 3}) expected.copy_pixel(x, y, x, 1);
            ASSERT_EQ(frame.bytes(), expected.bytes()) << form.name;
        }
}

TEST(FormatLines, Reports) {
    int32_t samples[4] = {};
    int32_t* const lines[4] = {&samples[0], &samples[1], &samples[2], &samples[3]};
    struct Row {
        int depth, vlen, alpha_mode;
        bool source;
        const char* message;
    };
    const Row rows[] = {
        {24, 3, 1, true, "8 No native->fix line conv for ptype 0 =    ?"},
        {25, 4, 1, true, "8 No native->fix line conv for rgb8 to 4"},
        {26, 1, 1, true, "8 No native->fix line conv for rgb10 to 1"},
        {48, 2, 1, true, "8 No native->fix line conv for rgb16 to 2"},
        {64, 3, 1, false, "8 No fix->native converters for pixel type 0 =    ?"},
        {25, 5, 1, false, "8 No fix->native conv for 4 to rgb8"},
        {26, 0, 1, false, "8 No fix->native conv for 4 to rgb10"},
        {48, -1, 1, false, "8 No fix->native conv for 4 to rgb16"},
        {25, 4, 2, false, "8 dest converter: invalid alpha mode 2 for 4 -> rgb8"},
        {26, 4, 3, false, "8 dest converter: invalid alpha mode 3 for 4 -> rgb10"},
        {48, 4, 0, false, "8 dest converter: invalid alpha mode 0 for 4 -> rgb16"},
        {25, 2, 2, false, "8 dest converter: invalid alpha mode 2 for 2 -> rgb8"},
        {26, 2, 3, false, "8 dest converter: invalid alpha mode 3 for 2 -> rgb10"},
        {48, 2, 4, false, "8 dest converter: invalid alpha mode 4 for 2 -> rgb16"},
        {48, 3, 2, false, nullptr},  // no alpha, nothing to say
        {48, 1, 3, false, nullptr},
    };
    std::mt19937 rng(7);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.message ? row.message : "no message");
        const FormCase& form = form_cases[row.depth == SPARK_DEPTH_8 ? 0 : 2];
        TestFrame frame(form, 4, 1, rng);
        const TestFrame before = frame;
        SparkInfoStruct info = frame_info(form, 4, 1);
        info.FrameDepth = row.depth;
        rinfo raster;
        Messages messages;
        fill_host_raster(&raster, info, 1, 0);
        const bool unknown = row.depth == 24 || row.depth == 64;
        EXPECT_EQ(messages.count("8 Unknown spark pixel type " + std::to_string(row.depth) + "\n"), unknown);
        messages.clear();
        the_frame->failed = false;
        for (int line = 0; line < 2; ++line)
            if (row.source)
                native_to_fix_line(raster, frame.data(), lines, 0, 1, row.vlen, false);
            else
                dest_converter(raster, frame.data(), 0, 0, 1, lines, row.vlen, 1, row.alpha_mode, false);
        EXPECT_EQ(messages.count(), row.message ? 1 : 0) << "once a frame";
        EXPECT_EQ(the_frame->failed, row.message != nullptr);
        if (row.message) {
            EXPECT_EQ(messages.count(row.message), 1);
            EXPECT_EQ(frame.bytes(), before.bytes());
        }
    }
}

TEST(FormatLines, AlphaModes) {
    const struct {
        int forced, source_alpha, effect, vlen, mode;
    } rows[] = {{0, 0, 1, 3, 1}, {0, 0, 2, 3, 3}, {0, 1, 2, 3, 2}, {0, 0, 3, 3, 3},
                {2, 0, 1, 3, 3}, {1, 0, 2, 2, 1}, {0, 0, 2, 4, 1}, {3, 1, 2, 4, 1}};
    for (const auto& row : rows) {
        forced_alpha_mode = row.forced;
        source_alpha_p = row.source_alpha;
        EXPECT_EQ(get_dest_alpha_mode(row.effect, row.vlen), row.mode);
    }
    forced_alpha_mode = source_alpha_p = 0;
}
