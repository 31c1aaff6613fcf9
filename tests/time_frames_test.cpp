// Frames of other times: which frames a text gets, at which pixels, mixed how, and how often the host is asked. The
// frames carry their number in every pixel; what they should give is worked out pixel by pixel.
#include "testing/numbered_clip.h"
#include "tests/render/panel.h"

#include <set>

using namespace test_render;
using velloran_tests::numbered_sample;
using velloran_tests::NumberedClip;

namespace {

constexpr int width = 21, height = 14, frames = 12;

// x of the language at column i, 12 fraction bits.
int x_at(int i) {
    const int step = static_cast<int>(static_cast<float>(8192.0 / width) * 4096 + 0.5f);
    return (i * step + step / 2 - 0xfff800) >> 12;
}

struct Effect : TextPlugin {
    explicit Effect(const std::string& value, int tasks = 2)
        : TextPlugin("(def_effect Test (Source Back) ()\n dest = " + value + "\n)\n") {
        host.format = {width, height, SPARK_DEPTH_12};
        host.processors = tasks;
        host.total_frames = frames;
        inputs = {source.clip(frames), back.clip(frames, 1)};
    }
    std::vector<unsigned> samples(int frame) {
        source.asked.clear();
        back.asked.clear();
        std::vector<unsigned> all = significant(render(frame), SPARK_DEPTH_12);
        // The host's own read of the frame in hand comes first.
        if (!source.asked.empty()) source.asked.erase(source.asked.begin());
        return all;
    }
    NumberedClip source, back;
};

// What a pixel shows at time t (frames, 12 fraction bits).
int shown(int t, bool mixed, int x, int y, int c) {
    t = std::clamp(t, 0, (frames - 1) * 4096);
    const int first = numbered_sample(t / 4096, x, y, c), fraction = t % 4096;
    if (!mixed || fraction == 0) return first;
    const int second = numbered_sample(t / 4096 + 1, x, y, c);
    return first + (((second - first) * fraction) >> 12);
}

struct TimeCase {
    const char* call;
    bool mixed;
    int (*time)(int x, int y);
    size_t fetches;
};
const TimeCase time_cases[] = {
    {"(time_warp Source 2 0)", false, [](int, int) { return 2 * 4096; }, 1},
    {"(time_warp Source 2 1)", true, [](int, int) { return 2 * 4096; }, 1},
    {"(time_warp Source 2.9 0)", false, [](int, int) { return 2 * 4096; }, 1},
    {"(time_warp Source 2.5 1)", true, [](int, int) { return 5 * 2048; }, 2},
    {"(time_warp Source 2.5 -1)", false, [](int, int) { return 2 * 4096; }, 1},
    {"(time_warp Source -3 1)", true, [](int, int) { return 0; }, 1},
    {"(time_warp Source 100.5 1)", true, [](int, int) { return 11 * 4096; }, 1},
    {"(get_frame Source (- (get_frame_number) 1) 0)", false, [](int, int) { return 4 * 4096; }, 1},
    {"(get_frame Source 7.25 1)", true, [](int, int) { return 29 * 1024; }, 2},
    {"(time_warp Source (+ 1 (* x 2)) 0)", false, [](int x, int) { return 4096 + 2 * x_at(x); }, 3},
    {"(time_warp Source (+ 1 (* x 2)) 1)", true, [](int x, int) { return 4096 + 2 * x_at(x); }, 4},
    // Beyond both ends of the clip the ends are asked for, once: 0 and 11, and 9 and 10 for the column between.
    {"(time_warp Source (* x 100) 1)", true, [](int x, int) { return 100 * x_at(x); }, 4},
    // Only frames that some pixel wants: 1, 2 and 9, 10.
    {"(time_warp Source (if> x 0 9.5 1.25) 1)", true, [](int x, int) { return x_at(x) > 0 ? 19 * 2048 : 5 * 1024; }, 4},
};

TEST(TimeFrames, EachPixelHasTheFrameOfItsTime) {
    for (const TimeCase& c : time_cases)
        for (const int tasks : {1, 3}) {
            SCOPED_TRACE(std::string(c.call) + " on " + std::to_string(tasks) + " tasks");
            Effect effect(c.call, tasks);
            ASSERT_TRUE(effect.start());
            const std::vector<unsigned> got = effect.samples(5);
            ASSERT_EQ(got.size(), size_t{width * height * 3});
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    for (int k = 0; k < 3; ++k)
                        ASSERT_EQ(static_cast<int>(got[static_cast<size_t>((y * width + x) * 3 + k)]),
                                  shown(c.time(x, y), c.mixed, x, y, k))
                            << x << ", " << y;
            EXPECT_EQ(effect.source.asked.size(), c.fetches);
            const std::set<int> different(effect.source.asked.begin(), effect.source.asked.end());
            EXPECT_EQ(different.size(), c.fetches) << "a frame was fetched twice";
        }
}

// On fields each field has a time of its own, half a frame apart, and the finished one stays as it is.
TEST(TimeFrames, FieldsHaveTheirOwnTimes) {
    for (const int mode : {1, 2}) {
        Effect effect("(time_warp Source (+ (get_frame_number) 0.25) 1)");
        ASSERT_TRUE(effect.start());
        set_control_value(Panel(effect).at(number_fields), 0, static_cast<float>(mode));
        const std::vector<unsigned> got = effect.samples(5);
        ASSERT_FALSE(got.empty());
        for (int y = 0; y < height; ++y) {
            const bool first = (y & 1) == mode - 1;
            const int t = 5 * 4096 + (first ? 1024 : 3072);
            for (int x = 0; x < width; ++x)
                ASSERT_EQ(static_cast<int>(got[static_cast<size_t>((y * width + x) * 3)]), shown(t, true, x, y, 0))
                    << "mode " << mode << " row " << y;
        }
    }
}

TEST(TimeFrames, WhatCannotBeFetchedFailsTheFrameWithItsReason) {
    const struct {
        const char* call;
        int environment;
        float api;
        int missing;
        const char* message;  // null: the frame is made
    } cases[] = {
        {"(get_frame Source 7 0)", SPARK_ENV_BATCH, 4.039f, -1, nullptr},
        {"(get_frame Source 7 0)", SPARK_ENV_BATCH, 4.018f, -1, "sparkGetFrame is not supported in Batch."},
        {"(get_frame Source 7 0)", SPARK_ENV_DESKTOP, 4.018f, -1, nullptr},
        {"(get_frame Source 7 0)", SPARK_ENV_BATCH, 4.039f, 7, "The host gives no frame 7 of input 1."},
        {"(time_warp Source (+ 6 x) 1)", SPARK_ENV_BATCH, 4.039f, 7, "The host gives no frame 7 of input 1."},
        {"(interlace_get_frames Back 1 0 Source 7 1 0 0)", SPARK_ENV_BATCH, 4.039f, 7, "no frame 7 of input 1."},
        {"(get_frame (* Source 0.5) 7 0)", SPARK_ENV_BATCH, 4.039f, -1, "time_warp: first arg must be a clip."},
        {"(interlace_get_frames Source 1 0 (+ x Back) 2 1 0 0)", SPARK_ENV_BATCH, 4.039f, -1,
         "get_interlaced_frame: clip args are not both clips."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.call);
        Effect effect(c.call);
        effect.host.calling_env = c.environment;
        effect.host.api_version = c.api;
        effect.source.missing = c.missing;
        ASSERT_TRUE(effect.start());
        testing::internal::CaptureStderr();
        const bool made = !effect.samples(3).empty();
        const std::string told = testing::internal::GetCapturedStderr();
        EXPECT_EQ(made, c.message == nullptr);
        if (c.message) {
            EXPECT_NE(told.find(c.message), std::string::npos) << told;
        }
    }
}

// An effect that remembers does not look behind the beginning of its run; one that only looks is free to.
TEST(TimeFrames, FeedbackLimitsHowFarBackIsLooked) {
    Effect free("(get_frame Source 2 0)");
    Effect remembering("(+ (get_frame Source (- (get_frame_number) 4) 0) (* 0.25 (get_prev_dest 0)))");
    ASSERT_TRUE(free.start());
    free.samples(6);
    EXPECT_EQ(free.source.asked, std::vector<int>{2});
    ASSERT_TRUE(remembering.start());
    for (const auto& [frame, asked] : {std::pair{6, 6}, {7, 6}, {8, 6}, {9, 6}, {10, 6}, {11, 7}, {3, 3}}) {
        remembering.samples(frame);
        EXPECT_EQ(remembering.source.asked, std::vector<int>{asked}) << "at frame " << frame;
    }
}

}  // namespace
