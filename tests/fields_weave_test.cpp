// Fields taken apart and woven together, sample by sample against the rows that they should have.
#include "testing/numbered_clip.h"
#include "tests/render/panel.h"

using namespace test_render;
using velloran_tests::numbered_sample;
using velloran_tests::NumberedClip;

namespace {

struct Effect : TextPlugin {
    Effect(const std::string& value, int width, int height, int tasks = 3)
        : TextPlugin("(def_effect Test (Source Back) ()\n dest = " + value + "\n)\n") {
        host.format = {width, height, SPARK_DEPTH_12};
        host.processors = tasks;
        host.total_frames = 6;
        inputs = {source.clip(6), back.clip(6, 1)};
        EXPECT_TRUE(start());
    }
    std::vector<unsigned> samples(int frame = 0) { return significant(render(frame), SPARK_DEPTH_12); }
    NumberedClip source, back;
};

// Row y of one field of a frame at column x: itself, or the mean of the rows around it.
int field_sample(int frame, int clip, int field, int height, int x, int y, int c) {
    if ((y & 1) == field || height < 2) return numbered_sample(frame, x, y, c, clip);
    const int below = y > 0 ? y - 1 : y + 1, above = y + 1 < height ? y + 1 : below;
    return (numbered_sample(frame, x, below, c, clip) + numbered_sample(frame, x, above, c, clip)) >> 1;
}

template <class Want>
void expect_picture(const std::vector<unsigned>& got, int width, int height, Want want) {
    ASSERT_EQ(got.size(), static_cast<size_t>(width * height * 3));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < 3; ++c)
                ASSERT_EQ(static_cast<int>(got[static_cast<size_t>((y * width + x) * 3 + c)]), want(x, y, c))
                    << x << ", " << y << ", " << c;
}

TEST(FieldsWeave, ExtractFieldFillsTheOtherRows) {
    for (const auto& [width, height] : {std::pair{13, 1}, {13, 2}, {9, 7}, {1100, 12}})
        for (const int field : {0, 1}) {
            SCOPED_TRACE(std::to_string(height) + " rows, field " + std::to_string(field));
            Effect effect("(extract_field Source " + std::to_string(field) + ")", width, height);
            expect_picture(effect.samples(2), width, height,
                           [&, h = height](int x, int y, int c) { return field_sample(2, 0, field, h, x, y, c); });
        }
}

TEST(FieldsWeave, InterlaceGetFramesTakesEachFieldFromItsFrame) {
    constexpr int width = 1030, height = 9;
    for (int bits = 0; bits < 16; ++bits) {
        const int field0 = bits & 1, field1 = bits >> 1 & 1, reversed = bits >> 2 & 1, dominance = bits >> 3;
        char call[80];
        std::snprintf(call, sizeof call, "(interlace_get_frames Source 3 %d Back -2 %d %d %d)", field0, field1,
                      reversed, dominance);
        SCOPED_TRACE(call);
        const int first = field0 ^ reversed ^ dominance, second = field1 ^ reversed ^ dominance;
        Effect effect(call, width, height);
        expect_picture(effect.samples(), width, height, [&](int x, int y, int c) {
            return (y & 1) == first ? numbered_sample(3, x, y, c) : field_sample(0, 1, second, height, x, y, c);
        });
    }
}

TEST(FieldsWeave, OneFrameForBothFieldsIsFetchedOnce) {
    Effect once("(interlace_get_frames Source 4 0 Source 4 1 0 0)", 8, 6),
        twice("(interlace_get_frames Source 4 1 Source 2 0 0 0)", 8, 6),
        ends("(interlace_get_frames Source 40 0 Source 5 1 0 0)", 8, 6);
    for (const auto& [effect, asked] : {std::pair{&once, std::vector{1, 4}}, {&twice, {1, 4, 2}}, {&ends, {1, 5}}}) {
        EXPECT_FALSE(effect->samples(1).empty());
        EXPECT_EQ(effect->source.asked, asked);
    }
}

// Also in a crop, whose rows keep their parity, and of what is one value all over.
TEST(FieldsWeave, InterlaceTakesRowsInTurn) {
    constexpr int width = 10, height = 11;
    for (const int dominance : {0, 1})
        for (const bool cropped : {false, true}) {
            Effect effect("(v3 (interlace (element_of Source 0) (element_of Back 0) " + std::to_string(dominance) +
                              ") (interlace 0.25 0.75 " + std::to_string(dominance) + ") (interlace Back Source 0))",
                          width, height);
            if (cropped) Panel(effect).crop(2, 3, 9, 8);
            const std::vector<unsigned> got = effect.samples(5);
            ASSERT_FALSE(got.empty());
            for (int y = cropped ? 3 : 0; y < (cropped ? 8 : height); ++y)
                for (int x = 2; x < 9; ++x) {
                    const bool first = (y & 1) == dominance;
                    const size_t at = static_cast<size_t>((y * width + x) * 3);
                    EXPECT_EQ(static_cast<int>(got[at]), numbered_sample(5, x, y, 0, first ? 0 : 1));
                    EXPECT_EQ(got[at + 1], first ? 1024u : 3072u);
                    EXPECT_EQ(static_cast<int>(got[at + 2]), numbered_sample(5, x, y, 0, y & 1 ? 0 : 1));
                }
        }
}

}  // namespace
