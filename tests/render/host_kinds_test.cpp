// The library under hosts of every kind that it may meet, through the module that a host loads.
#include "tests/render/text_plugin.h"

#include <sys/resource.h>
#include <unistd.h>

using namespace test_render;

namespace {

const char* const through = "(def_effect Through (Source) ()\n  dest = Source\n)\n";
const char* const two_effects =
    "(def_effect Through (Source) ()\n dest = Source\n)\n"
    "(def_effect Black (Source) ()\n dest = (* Source 0)\n)\n";

struct DepthCase {
    const char* name;
    int depth;
};
const DepthCase depths[] = {{"8", SPARK_DEPTH_8}, {"10", SPARK_DEPTH_10}, {"12", SPARK_DEPTH_12}};

void expect_passes_through(TextPlugin& effect) {
    effect.inputs = {random_clip(3)};
    effect.host.total_frames = 3;
    ASSERT_TRUE(effect.start()) << effect.plugin->failure;
    for (int frame = 0; frame < 3; ++frame) {
        const auto got = effect.render(frame);
        ASSERT_FALSE(got.empty()) << effect.plugin->failure;
        EXPECT_EQ(significant(got, effect.host.format.depth),
                  significant(clip_bytes(*effect.inputs[0], frame, effect.host.format), effect.host.format.depth))
            << "frame " << frame;
    }
}

TEST(HostKinds, EveryKindOfHostGetsItsPictureThrough) {
    struct {
        const char* name;
        void (*set)(Host&);
    } const kinds[] = {
        {"new desktop host", [](Host& h) { h.calling_env = SPARK_ENV_DESKTOP; }},
        {"batch", [](Host& h) { h.calling_env = SPARK_ENV_BATCH; }},
        {"burn", [](Host& h) { h.program_name = "burn"; }},
        {"implicit buffers", [](Host& h) { h.explicit_buffers = false; }},
        {"API below 2.502",
         [](Host& h) {
             h.api_version = 2.4f;
             h.explicit_buffers = false;
         }},
        {"API 4.0", [](Host& h) { h.api_version = 4.0f; }},
        {"five tasks", [](Host& h) { h.processors = 5; }},
        {"two tasks", [](Host& h) { h.processors = 2; }},
    };
    for (const auto& kind : kinds)
        for (const auto& depth : depths)
            for (const auto& [width, height] : {std::pair{37, 23}, std::pair{1, 1}, std::pair{5, 1}, std::pair{1, 7}}) {
                SCOPED_TRACE(std::string(kind.name) + ", depth " + depth.name + ", " + std::to_string(width) + "x" +
                             std::to_string(height));
                TextPlugin effect(through);
                kind.set(effect.host);
                effect.host.format = {width, height, depth.depth};
                expect_passes_through(effect);
            }
}

TEST(HostKinds, TooLittleMemoryIsToldAtInitialiseOnly) {
    TextPlugin effect(
        "(def_effect Feedback (Source) ()\n  a = (copy (sin Source))\n"
        "  dest = (+ (get_curve_val a 0) (blur a 0.1 1 1 0))\n)\n");
    effect.text = "(def_effect Soft (Source) ()\n  dest = (blur Source 0.1 2 1 1)\n)\n";
    effect.host.memory_buffers = 1;
    effect.inputs = {random_clip(1)};
    EXPECT_FALSE(effect.start());
    bool told = false;
    for (const std::string& error : effect.host.errors)
        told |=
            error.find("Not enough memory buffers.  This spark requires 3, but there are only") != std::string::npos;
    EXPECT_TRUE(told);
}

TEST(HostKinds, TwoPluginsAndTwoInstancesKeepApart) {
    TextPlugin first(through, "first"), second("(def_effect Black (Source) ()\n dest = (* Source 0)\n)\n", "second"),
        third(through, "first");
    for (TextPlugin* effect : {&first, &second, &third}) {
        effect->host.format = {16, 8, SPARK_DEPTH_8};
        effect->inputs = {random_clip(1, effect == &third ? 9 : 5)};
        ASSERT_TRUE(effect->start());
    }
    for (int round = 0; round < 3; ++round)
        for (TextPlugin* effect : {&third, &first, &second}) {
            use_host(&effect->host);
            const auto got = effect->render();
            const auto want = effect == &second ? std::vector<unsigned char>(16 * 8 * 3, 0)
                                                : clip_bytes(*effect->inputs[0], 0, effect->host.format);
            EXPECT_EQ(got, want);
        }
}

TEST(HostKinds, EachPluginLogsInItsOwnDirectory) {
    TextPlugin first(through, "first"), second(through, "second");
    for (TextPlugin* effect : {&first, &second}) {
        effect->inputs = {random_clip(1)};
        ASSERT_TRUE(effect->start());
    }
    for (TextPlugin* effect : {&second, &first, &second}) {
        use_host(&effect->host);
        effect->host.plugin = effect->plugin.get();
        SparkInfoStruct info = current_info(effect->host);
        info.FrameWidth = 0;
        EXPECT_EQ(effect->plugin->entry.process(info), nullptr);
        effect->host.plugin = nullptr;
    }
    const auto faults_logged = [](TextPlugin& effect) {
        std::ifstream log(effect.dir().path() + "/v_error_log.txt");
        int n = 0;
        for (std::string line; std::getline(log, line);) n += line.find("Bad frame size") != std::string::npos;
        return n;
    };
    EXPECT_EQ(faults_logged(first), 1);
    EXPECT_EQ(faults_logged(second), 2);
}

TEST(HostKinds, AFrameMadeByAnotherPluginMidwayDisturbsNothing) {
    // The inner plug-in renders inside the outer one's request for its input.
    TextPlugin inner("(def_effect Invert (Source) ()\n dest = (one_minus Source)\n)\n", "inner");
    inner.host.format = {19, 11, SPARK_DEPTH_12};
    inner.inputs = {random_clip(1)};
    ASSERT_TRUE(inner.start());
    TextPlugin outer(through, "outer");
    outer.host.format = inner.host.format;
    std::vector<unsigned char> from_inner;
    outer.inputs = {generated_clip(2, [&](int, const FrameFormat&, void* dest) {
        Host* const host_before = use_host(&inner.host);
        from_inner = inner.render();
        use_host(host_before);
        std::copy(from_inner.begin(), from_inner.end(), static_cast<unsigned char*>(dest));
        return true;
    })};
    ASSERT_TRUE(outer.start());
    const auto got = outer.render();
    EXPECT_EQ(significant(got, SPARK_DEPTH_12), significant(from_inner, SPARK_DEPTH_12));
}

long resident_kilobytes() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

TEST(HostKinds, LoadingAndUnloadingDoesNotGrow) {
    const auto once = [] {
        TextPlugin effect(two_effects);
        effect.host.format = {64, 32, SPARK_DEPTH_8};
        effect.inputs = {random_clip(1)};
        ASSERT_TRUE(effect.start());
        ASSERT_FALSE(effect.render().empty());
    };
    for (int i = 0; i < 100; ++i) once();
    const long before = resident_kilobytes();
    for (int i = 0; i < 900; ++i) once();
    const long grown = resident_kilobytes() - before;
#ifndef VELLORAN_SANITIZED
    EXPECT_LT(grown, 900) << "kilobytes in 900 rounds: a leak of a kilobyte a round at most would go unseen";
#else
    (void)grown;  // the sanitizers keep freed memory; they find leaks by themselves
#endif
}

TEST(HostKinds, FrameNumbersPastTheEnd) {
    TextPlugin effect(through);
    effect.host.format = {8, 8, SPARK_DEPTH_8};
    effect.host.total_frames = 2;
    effect.inputs = {random_clip(2)};
    ASSERT_TRUE(effect.start());
    effect.host.messages.clear();
    EXPECT_TRUE(effect.render(2).empty()) << "no valid frame was seen yet";
    ASSERT_FALSE(effect.host.messages.empty());
    EXPECT_NE(effect.host.messages.back().find("FrameNo out of bounds: 3 of 2, PLEASE ADJUST!  (API bug)"),
              std::string::npos);
    EXPECT_FALSE(effect.render(1).empty());
    EXPECT_FALSE(effect.render(2).empty()) << "after a valid one the host may run on";
}

TEST(HostKinds, ElongateIsSaidOnlyWhereTheClipsLengthMatters) {
    for (const bool uses : {false, true}) {
        TextPlugin effect(uses ? "(def_effect Fade (Source) ()\n dest = (* Source (get_percent_time))\n)\n" : through);
        effect.host.format = {8, 8, SPARK_DEPTH_8};
        effect.host.total_frames = 2;
        effect.inputs = {random_clip(2)};
        ASSERT_TRUE(effect.start());
        ASSERT_FALSE(effect.render(1).empty());
        effect.host.messages.clear();
        EXPECT_FALSE(effect.render(2).empty());
        bool said = false;
        for (const std::string& message : effect.host.messages) said |= message.find("Elongate") != std::string::npos;
        EXPECT_EQ(said, uses);
    }
}

TEST(HostKinds, TitlesAreEmptyAfterTheEnd) {
    TextPlugin effect(
        "(def_effect Gain (Source) ()\n  amount = 1.5 (min 0 max 4)\n  mode = 0 (popup one two)\n"
        "  dest = (* Source (+ amount mode))\n)\n");
    effect.host.format = {8, 8, SPARK_DEPTH_8};
    effect.inputs = {random_clip(1)};
    ASSERT_TRUE(effect.start());
    const SparkControl* list = nullptr;
    const int n = effect.plugin->entry.controls(&list);
    const std::vector<SparkControl> controls(list, list + n);
    bool any_title = false;
    for (const SparkControl& control : controls)
        if (control.Kind == SPARK_CONTROL_FLOAT)
            any_title |= *static_cast<const SparkFloatStruct*>(control.Control)->Title != 0;
    EXPECT_TRUE(any_title);
    stop_plugin(*effect.plugin);
    for (const SparkControl& control : controls) {
        if (control.Kind == SPARK_CONTROL_FLOAT) {
            EXPECT_STREQ(static_cast<const SparkFloatStruct*>(control.Control)->Title, "") << control.Number;
        }
        if (control.Kind == SPARK_CONTROL_POPUP) {
            const auto* const popup = static_cast<const SparkPopupStruct*>(control.Control);
            EXPECT_EQ(popup->Value, 0);
            for (const char* name : popup->Names) EXPECT_EQ(name, nullptr);
        }
    }
}

}  // namespace
