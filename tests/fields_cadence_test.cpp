// The arithmetic between fields and frames: the start of a clip, both ways, and how many frames there are.
#include "operators/fields/cadence.h"

#include "testing/telecine.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

using namespace velloran;
using namespace velloran_tests;

namespace {

FieldPattern pattern_of(const std::vector<int>& holds, int phase) {
    FieldPattern pattern = {};
    std::copy(holds.begin(), holds.end(), pattern.holds);
    pattern.length = (int)holds.size();
    pattern.phase = phase;
    return pattern;
}

// Each row of the table of special cases: the fields of frame 0 and 1, as frame and parity, the even one first.
TEST(FieldsCadence, TheStartOfAClip) {
    using Fields = std::array<int, 4>;
    const std::optional<Fields> none;
    const struct {
        std::vector<int> pattern;
        int phase, mode;
        std::optional<Fields> first, second;
    } cases[] = {
        {{2, 3}, 0, 0, none, none},
        {{2, 3}, 1, 1, Fields{0, 0, 0, 0}, none},      // field 0 alone
        {{2, 3}, 2, 1, Fields{0, 0, 0, 1}, none},      // fields 0 and 1
        {{3, -2}, 0, 1, Fields{2, 0, 1, 1}, none},     // fields 3 and 4, in order of parity
        {{2, -1, 3}, 0, 1, Fields{1, 0, 1, 0}, none},  // field 2 alone
        {{2, -1, 3}, 2, 1, Fields{0, 0, 0, 1}, none},  // what is cut off comes before all
        {{-2, 3}, 0, 1, Fields{0, 0, 0, 1}, none},     // fields 0 and 1
        {{-2, -3, 1}, 0, 2, Fields{0, 0, 0, 1}, Fields{1, 0, 1, 1}},
        {{-2, 3}, 1, 2, Fields{1, 0, 0, 1}, Fields{0, 0, 0, 0}},
        {{-3}, 0, 1, Fields{0, 0, 0, 1}, none},
        {{}, 5, 0, none, none},
    };
    for (const auto& c : cases) {
        const int length = (int)c.pattern.size();
        SCOPED_TRACE(testing::PrintToString(c.pattern) + " phase " + std::to_string(c.phase));
        for (const int frame : {0, 1, 2, 7}) {
            int got[4] = {-1, -1, -1, -1}, mode = -1;
            const std::optional<Fields> want = frame == 0 ? c.first : frame == 1 ? c.second : none;
            EXPECT_EQ(handle_start_of_clip(frame, c.pattern.data(), length, c.phase, &got[0], &got[1], &got[2], &got[3],
                                           &mode),
                      want.has_value());
            EXPECT_EQ(mode, c.mode);
            EXPECT_EQ(handle_start_of_clip(frame, c.pattern.data(), length, c.phase, nullptr, nullptr, nullptr, nullptr,
                                           nullptr),
                      want.has_value());
            if (want) {
                EXPECT_EQ((Fields{got[0], got[1], got[2], got[3]}), *want);
            }
        }
    }
}

// A film telecined and taken back: each frame comes from fields that show it, at each phase.
TEST(FieldsCadence, BothWaysFitTogether) {
    const std::vector<int> cadences[] = {{2, 3},    {3, 2},       {2}, {2, 3, 3, 2}, {5},
                                         {3, 3, 2}, {1, 2, 2, 3}, {1}, {1, 1, 6}};
    for (const std::vector<int>& holds : cadences)
        for (int phase = 0; phase < holds.back(); ++phase)
            for (const int frames : {1, 2, 7, 30}) {
                SCOPED_TRACE(testing::PrintToString(holds) + " phase " + std::to_string(phase) + " of " +
                             std::to_string(frames));
                const FieldPattern pattern = pattern_of(holds, phase);
                const bool video = holds == std::vector{1};
                // The model: the pictures of the fields in their order.
                std::vector<int> pictures;
                for (int t = 0; t < 2 * frames; ++t) pictures.push_back(video ? t / 2 : 0);
                if (!video) {
                    int picture = phase > 0;
                    size_t at = (size_t)phase;
                    for (size_t i = 0; at < pictures.size(); ++i, ++picture)
                        for (int k = 0; k < holds[i % holds.size()] && at < pictures.size(); ++k)
                            pictures[at++] = picture;
                }
                for (int t = 0; t < 2 * frames; ++t) EXPECT_EQ(frame_of_field(pattern, t), pictures[(size_t)t]) << t;

                const int whole = deinterlaced_frames(pattern, frames);
                for (int d = 0; d < whole; ++d) {
                    const FramePair fields = fields_of_frame(pattern, d, 2 * frames);
                    ASSERT_LT(std::max(fields.first, fields.second), 2 * frames);
                    EXPECT_EQ(pictures[(size_t)fields.first], d);
                    EXPECT_EQ(pictures[(size_t)fields.second], d);
                    const auto shown = std::count(pictures.begin(), pictures.end(), d);
                    EXPECT_EQ(fields.first == fields.second, shown == 1) << "both fields where there are two";
                }
                // All but the last picture are whole; it may be cut off.
                EXPECT_GE(whole, pictures.back());
                EXPECT_LE(whole, pictures.back() + 1);
            }
}

TEST(FieldsCadence, CountsOfFrames) {
    const struct {
        std::vector<int> pattern;
        int phase, frames, whole, telecined;  // from `frames` frames
    } cases[] = {
        {{2, 3}, 0, 30, 24, 37}, {{2, 3}, 0, 5, 4, 6},    {{2, 3}, 1, 30, 25, 36},
        {{3, 2}, 1, 30, 24, 37}, {{1}, 0, 30, 30, 30},    {{2}, 1, 30, 30, 29},
        {{5}, 0, 30, 12, 75},    {{2, 3}, 0, 24, 19, 30}, {{}, 0, 30, 30, 30},
        {{-2}, 0, 30, 30, 30},   {{2, 3}, 0, 0, 0, 0},    {{2, 3}, 0, 400000000, 320000000, 500000000},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.pattern) + " phase " + std::to_string(c.phase));
        EXPECT_EQ(deinterlaced_frames(pattern_of(c.pattern, c.phase), c.frames), c.whole);
        EXPECT_EQ(reinterlaced_frames(pattern_of(c.pattern, c.phase), c.frames), c.telecined);
    }
    EXPECT_EQ(deinterlaced_frames(pattern_of({2, 3}, 0), INT_MAX), INT_MAX) << "nothing that could be counted";
    EXPECT_EQ(frame_of_field(pattern_of({-2, -1}, 0), 40), -1) << "no picture ever begins";
}

// A hold out of order goes on with the picture before, over the end of the period too.
TEST(FieldsCadence, FieldsOutOfOrder) {
    const FieldPattern pattern = pattern_of({2, 1, -1, 2}, 0);
    const int want[] = {0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5};
    for (int t = 0; t < 12; ++t) EXPECT_EQ(frame_of_field(pattern, t), want[t]) << t;
    const FieldPattern at_start = pattern_of({-1, 2, 2}, 0);
    const int then[] = {0, 1, 1, 2, 2, 2, 3, 3, 4, 4};
    for (int t = 0; t < 10; ++t) EXPECT_EQ(frame_of_field(at_start, t), then[t]) << t;
}

}  // namespace
