// Taking a cadence away and laying it over, as a host sees it: the button, what it leaves on the panel, how many frames
// come out, and that each is the picture it should be.
#include "testing/telecine.h"
#include "tests/render/panel.h"
#include "tests/render/shipped_plugin.h"

#include <numeric>

using namespace test_render;
using velloran_tests::telecine_pictures;
using velloran_tests::TelecineClip;

namespace {

constexpr const char* pattern_params =
    "  field_dominance = 0 (ignore popup even odd)\n  pattern_length = 0 (min 0 max 16 int ignore)\n"
    "  pattern_phase = 0 (min 0 max 100 int ignore)\n  pattern_1 = 0 (min -9 max 99 int ignore)\n"
    "  pattern_2 = 0 (min -9 max 99 int ignore)\n  pattern_3 = 0 (min -9 max 99 int ignore)\n"
    "  pattern_4 = 0 (min -9 max 99 int ignore)\n";

struct FieldPlugin : TextPlugin {
    FieldPlugin(const std::string& called, const std::string& value, const TelecineClip& of, int clip_frames)
        : TextPlugin("(def_effect Fields (Source) ()\n  find_pattern = 0 (set_hold_level)\n" +
                         std::string(pattern_params) + "  dest = " + value + "\n)\n",
                     called),
          film(of) {
        host.calling_env = SPARK_ENV_DESKTOP;
        host.format = {film.width, film.height, SPARK_DEPTH_12};
        host.processors = 2;
        host.total_frames = clip_frames;
        inputs = {generated_clip(clip_frames, [this](int frame, const FrameFormat&, void* dest) {
            if (frame == missing) return false;
            film.write(frame, static_cast<uint16_t*>(dest));
            return true;
        })};
    }
    bool begin() {
        if (!start()) return false;
        panel = std::make_unique<Panel>(*this);
        // A render of its own would be of the frame in hand.
        set_control_value(panel->at(number_redraw), 0, 1);
        for (const DescribedParam& param : describe(*plugin).params) numbers[param.name] = param.numbers[0];
        return true;
    }
    int value(const std::string& param) { return static_cast<int>(panel->value(numbers.at(param))); }
    std::vector<int> holds() {
        std::vector<int> all;
        for (int i = 1; i <= value("pattern_length"); ++i) all.push_back(value("pattern_" + std::to_string(i)));
        return all;
    }
    void set(const std::string& param, int v) {
        panel->set(numbers.at(param), static_cast<float>(v), SPARK_ACTION_PRESS);
    }
    void set_pattern(const std::vector<int>& holds, int phase, int dominance) {
        set("pattern_length", static_cast<int>(holds.size()));
        for (size_t i = 0; i < holds.size(); ++i) set("pattern_" + std::to_string(i + 1), holds[i]);
        set("pattern_phase", phase);
        set("field_dominance", dominance);
    }
    // The frame made behind a press of the button.
    std::vector<unsigned> find(int frame) {
        use_host(&host);
        host.frame = frame;
        panel->push(numbers.at("find_pattern"));
        return samples(frame);
    }
    std::vector<unsigned> samples(int frame) { return significant(render(frame), SPARK_DEPTH_12); }
    int frames_out() { return process_start(*plugin, 0); }

    TelecineClip film;
    int missing = -1;
    std::unique_ptr<Panel> panel;
    std::map<std::string, int> numbers;
};

// The picture as a film frame.
std::vector<unsigned> picture(const TelecineClip& clip, int n) {
    std::vector<unsigned> samples;
    for (int y = 0; y < clip.height; ++y)
        for (int x = 0; x < clip.width; ++x)
            for (int c = 0; c < 3; ++c) samples.push_back(static_cast<unsigned>(clip.film(n, x, y, c)));
    return samples;
}

TEST(FieldsDeinterlace, TheButtonFindsThePatternAndTheFramesComeBack) {
    for (const auto& [holds, phase] :
         {std::pair{std::vector{2, 3}, 0}, {{2, 3}, 2}, {{2, 3, 3, 2}, 0}, {{3, 3, 2}, 0}, {{5}, 0}})
        for (const int dominance : {0, 1}) {
            SCOPED_TRACE(testing::PrintToString(holds) + " phase " + std::to_string(phase) + " dominance " +
                         std::to_string(dominance));
            TelecineClip clip;
            clip.dominance = dominance;
            clip.pictures = telecine_pictures(holds, phase, 60);
            FieldPlugin effect("DeinterlaceAuto", "(auto_deinterlace Source 20 1)", clip, 30);
            ASSERT_TRUE(effect.begin());
            EXPECT_EQ(effect.frames_out(), 30) << "before there is a pattern";
            EXPECT_EQ(effect.find(0), picture(clip, 0));
            EXPECT_EQ(effect.holds().size(), holds.size());
            EXPECT_EQ(effect.value("field_dominance"), dominance);
            const int frames = effect.frames_out(), pictures = clip.pictures.back() + 1;
            // The last one may have lost a field.
            EXPECT_GE(frames, pictures - 1);
            if (phase == 0) {
                EXPECT_EQ(frames, 60 * static_cast<int>(holds.size()) / std::accumulate(holds.begin(), holds.end(), 0));
            }
            for (const int frame : {0, frames - 1, 1, frames / 2, 2, 3})
                EXPECT_EQ(effect.samples(frame), picture(clip, frame));
            EXPECT_TRUE(effect.samples(frames).empty()) << "a frame behind the last one";
        }
}

// From a frame in the middle, where few are left; in a crop and at a lower resolution, which change nothing.
TEST(FieldsDeinterlace, DetectionLooksAtWholeFramesFromTheFrameInHand) {
    TelecineClip clip;
    clip.pictures = telecine_pictures({2, 3}, 1, 60);
    for (const int way : {0, 1, 2, 3}) {
        SCOPED_TRACE("way " + std::to_string(way));
        FieldPlugin effect("DeinterlaceAuto", "(auto_deinterlace Source 20 1)", clip, 30);
        ASSERT_TRUE(effect.begin());
        if (way == 1) effect.panel->crop(10, 9, 20, 12);
        if (way == 2) set_control_value(effect.panel->at(number_res), 0, 2);
        EXPECT_FALSE(effect.find(way == 3 ? 17 : 4).empty());
        EXPECT_EQ(effect.holds(), (std::vector{2, 3}));
        EXPECT_EQ(effect.value("pattern_phase"), 1);
        if (way == 0 || way == 3) {
            EXPECT_EQ(effect.samples(20), picture(clip, 20));
        }
    }
}

TEST(FieldsDeinterlace, ReinterlaceLaysThePatternOver) {
    for (const auto& [holds, phase] :
         {std::pair{std::vector{2, 3}, 0}, {{3, 2}, 1}, {{2, 3, 3, 2}, 0}, {{1}, 0}, {{4}, 3}})
        for (const int dominance : {0, 1}) {
            SCOPED_TRACE(testing::PrintToString(holds) + " phase " + std::to_string(phase));
            TelecineClip telecined;
            telecined.dominance = dominance;
            telecined.pictures = telecine_pictures(holds, phase, 200);
            if (holds == std::vector{1})
                for (size_t t = 0; t < 200; ++t) telecined.pictures[t] = static_cast<int>(t / 2);
            TelecineClip film;
            for (int t = 0; t < 48; ++t) film.pictures.push_back(t / 2);
            FieldPlugin effect("Reinterlace", "(auto_reinterlace Source)", film, 24);
            ASSERT_TRUE(effect.begin());
            effect.set_pattern(holds, phase, dominance);
            const int frames = effect.frames_out();
            const auto end = std::find(telecined.pictures.begin(), telecined.pictures.end(), 24);
            EXPECT_EQ(frames, (end - telecined.pictures.begin()) / 2);
            for (const int frame : {frames - 1, 0, 1, 2, 3, 4, 7}) {
                std::vector<unsigned> want;
                for (int y = 0; y < film.height; ++y)
                    for (int x = 0; x < film.width; ++x)
                        for (int c = 0; c < 3; ++c)
                            want.push_back(static_cast<unsigned>(telecined.sample(frame, x, y, c)));
                EXPECT_EQ(effect.samples(frame), want) << "frame " << frame << " of " << frames;
            }
            EXPECT_TRUE(effect.samples(frames).empty());
        }
}

TEST(FieldsDeinterlace, WhatCannotBeDoneIsSaid) {
    TelecineClip clip, black;
    clip.pictures = black.pictures = telecine_pictures({2, 3}, 0, 40);
    black.contrast = 0;
    const struct {
        const char *plugin, *call;
        std::vector<int> pattern;
        bool find;
        const TelecineClip& clip;
        int missing;
        bool made;
        const char* message;
    } cases[] = {
        {"Deinterlace",
         "(auto_deinterlace Source 20 0)",
         {},
         false,
         clip,
         -1,
         false,
         "Can't deinterlace with zero-length pattern."},
        {"Deinterlace", "(auto_deinterlace Source 20 0)", {-2, -3}, false, clip, -1, false, "zero-length pattern."},
        {"Deinterlace",
         "(auto_deinterlace (* Source 0.5) 20 0)",
         {2, 3},
         false,
         clip,
         -1,
         false,
         "time_warp: first arg must be a clip."},
        {"DeinterlaceAuto", "(auto_deinterlace Source 15 0)", {2, 3}, true, black, -1, false, "No pattern found!"},
        {"DeinterlaceAuto", "(auto_deinterlace Source 15 0)", {2, 3}, true, clip, 9, false, "no frame 9 of input 1."},
        {"Reinterlace", "(auto_reinterlace Source)", {}, false, clip, -1, true, "No pattern, can't reinterlace."},
        {"Reinterlace", "(auto_reinterlace Source)", {-2, -3}, false, clip, -1, false, "Illegal pattern."},
        {"Reinterlace", "(auto_reinterlace (* Source 0.5))", {2}, false, clip, -1, false, "first arg must be a clip."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.call) + " " + c.message);
        FieldPlugin effect(c.plugin, c.call, c.clip, 20);
        ASSERT_TRUE(effect.begin());
        effect.set_pattern(c.pattern, 0, 0);
        effect.missing = c.missing;
        testing::internal::CaptureStderr();
        const std::vector<unsigned> got = c.find ? effect.find(0) : effect.samples(0);
        const std::string told = testing::internal::GetCapturedStderr();
        EXPECT_EQ(!got.empty(), c.made);
        EXPECT_NE(told.find(c.message), std::string::npos) << told;
        // What a search that did not come to its end would have found is not on the panel.
        if (c.missing >= 0) {
            EXPECT_EQ(effect.holds(), c.pattern);
        }
        if (c.made) {
            EXPECT_EQ(effect.samples(3),
                      significant(clip_bytes(*effect.inputs[0], 3, effect.host.format), SPARK_DEPTH_12));
        }
    }
}

// Plug-ins of other names drop and add nothing, whatever their params are called.
TEST(FieldsDeinterlace, OnlyPluginsOfTheirNamesChangeTheNumberOfFrames) {
    TelecineClip clip;
    clip.pictures = telecine_pictures({2, 3}, 0, 60);
    for (const auto& [plugin, frames] :
         {std::pair{"Deinterlace", 24}, {"DeinterlaceAuto", 24}, {"Reinterlace", 37}, {"blur", 30}}) {
        FieldPlugin effect(plugin, "(auto_deinterlace Source 20 0)", clip, 30);
        ASSERT_TRUE(effect.begin());
        effect.set_pattern({2, 3}, 0, 0);
        EXPECT_EQ(effect.frames_out(), frames) << plugin;
    }
}

}  // namespace
