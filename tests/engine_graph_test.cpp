// What a frame runs and what it leaves alone: pass-through, branches, sharing; the limits; queries. Functions are
// watched through the evaluator's hook.

#include "support/memory.h"
#include "tests/caught_messages.h"
#include "tests/engine_rig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

using namespace velloran;
using namespace velloran_tests;

namespace {

// ---- What runs

struct RunCase {
    const char* body;
    struct {
        EvalEvent event;
        const char* name;
        int count;
    } wanted[6];
};

const RunCase run_cases[] = {
    // Superfluous nodes leave the frame.
    {"dest = (+ (* Source 1) 0)",
     {{event_pixel_function, "+", 0}, {event_pixel_function, "*", 0}, {event_pass, "", 1}}},
    {"a = 0 dest = (+ Back (* (screen Source Back) a))",
     {{event_pixel_function, "screen", 0}, {event_pixel_function, "*", 0}, {event_pixel_function, "+", 0}}},
    {"a = 1 b = 2 dest = (* Source (+ a b))", {{event_pixel_function, "+", 0}, {event_pixel_function, "*", 1}}},
    // One side of a branch that is decided for the frame.
    {"c = 1 dest = (if+ c (+ Source 1) (- Source 1))",
     {{event_pixel_function, "+", 1}, {event_pixel_function, "-", 0}, {event_pixel_function, "if+", 0}}},
    {"c = 1 dest = (if> c 2 (+ Source 1) (- Source 1))",
     {{event_pixel_function, "+", 0}, {event_pixel_function, "-", 1}}},
    // A test for each sample evaluates both sides.
    {"dest = (if+ x (+ Source 1) (- Source 1))",
     {{event_pixel_function, "+", 1}, {event_pixel_function, "-", 1}, {event_pixel_function, "if+", 1}}},
    // Elements that disagree decide nothing.
    {"c = [1 -1 1] dest = (if+ c (+ Source 1) (- Source 1))",
     {{event_pixel_function, "+", 1}, {event_pixel_function, "-", 1}, {event_pixel_function, "if+", 1}}},
    // Within one pixel tree a shared value is computed once, without an image.
    {"a = (* Source Back) dest = (+ a (- a 1))", {{event_pixel_function, "*", 1}, {event_image_read, "*", 0}}},
    // Shared with a filter it gets images, made once and read from there.
    {"a = (* Source Back) dest = (+ a (blur a 0.1 1 1 0))",
     {{event_pixel_function, "*", 1}, {event_image_read, "*", 1}, {event_image_function, "blur", 1}}},
    // A value that is constant for the frame fills the lines of its pass once.
    {"a = 0.5 dest = (* a 0.5)", {{event_pixel_function, "*", 0}, {event_pass, "*", 1}}},
    // A filter of nothing passes its input on; a filter of a computed value stays.
    {"dest = (blur Source 0 1 1 0)", {{event_image_function, "blur", 0}}},
    {"dest = (blur (+ Source 0.5) 0 1 1 0)", {{event_image_function, "blur", 1}, {event_pixel_function, "+", 1}}},
    {"dest = (blur Source 0 1 0.5 0)", {{event_image_function, "blur", 1}}},  // no blur, but half the brightness
    {"dest = (blur Source 0.1 1 1 0)", {{event_image_function, "blur", 1}, {event_source_copy, "", 1}}},
    // A branch that filters: the other side's filter rests.
    {"c = -1 dest = (if+ c (blur Source 0.1 1 1 0) (sharpen Source 1 0.1))", {{event_image_function, "blur", 0}}},
    {"dest = Source", {{event_pass, "", 1}}},
};

TEST(EngineGraph, RunsWhatTheFrameNeeds) {
    for (const RunCase& c : run_cases) {
        EngineRig rig(2);
        ASSERT_TRUE(rig.load_body(c.body)) << c.body;
        rig.render();
        for (const auto& wanted : c.wanted) {
            if (!wanted.name) continue;
            EXPECT_EQ(ran(wanted.event, wanted.name), wanted.count) << c.body << ": " << wanted.name;
        }
    }
}

// What a param takes out of a frame is back with the next value, without a new compilation.
TEST(EngineGraph, PassThroughFollowsTheParams) {
    EngineRig rig;
    ASSERT_TRUE(rig.load_body("a = 0 dest = (+ a (* Source 0.5))"));
    for (const float value : {0.0f, 0.25f, 0.0f}) {
        rig.set_param("a", value);
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(ran(event_pixel_function, "+"), value != 0);
        EXPECT_EQ(rig.result(3, 4, 1), std::min(4095, (rig.source(0, 3, 4, 1) >> 1) + (int)(value * 4096)));
    }
}

// A filter that is taken out for a frame does the same on both sides of the change.
TEST(EngineGraph, FilterOutAndBack) {
    EngineRig rig(2);
    ASSERT_TRUE(rig.load_body("a = 0 dest = (blur Source a 1 1 0)"));
    for (const float value : {0.1f, 0.0f, 0.1f}) {
        rig.set_param("a", value);
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(ran(event_image_function, "blur"), value != 0);
        if (value == 0) {
            EXPECT_EQ(rig.result(7, 7, 2), rig.source(0, 7, 7, 2));
        }
    }
}

// ---- Limits

TEST(EngineGraph, LimitsHoldOnePastThem) {
    Messages messages;
    EngineRig rig(2);
    const auto branches = [](int n) {
        std::string tree = "Source", params;
        for (int i = 0; i < n; ++i) {
            params += "c" + std::to_string(i) + " = 1 ";
            tree = "(if+ c" + std::to_string(i) + " (+ " + tree + " 0.01) Back)";
        }
        return params + "dest = " + tree;
    };
    for (const int n : {20, 21}) {
        messages.clear();
        ASSERT_TRUE(rig.load_body(branches(n)));
        EXPECT_EQ(messages.count("7 Test has 21 'if' funs, expected < 20. \n") +
                      messages.count("7 Test has 21 'if' funs, expected < 20. "),
                  n > 20);
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(rig.result(1, 1, 0), std::min(4095, rig.source(0, 1, 1, 0) + n * 41)) << n;
    }
    const auto chain = [](int n) {
        std::string body = "a0 = (+ Source 0.001) ";
        for (int i = 1; i < n; ++i) body += "a" + std::to_string(i) + " = (+ a" + std::to_string(i - 1) + " 0.001) ";
        return body + "dest = (- a" + std::to_string(n - 1) + " 0.1)";
    };
    for (const int n : {199, 200}) {
        messages.clear();
        ASSERT_TRUE(rig.load_body(chain(n)));
        EXPECT_EQ(rig.render(), n > 199 ? -2 : 0) << n;
        EXPECT_EQ(messages.count("8 eval_nodes_array overflow"), n > 199);
        if (n == 199) {
            EXPECT_EQ(rig.result(5, 5, 1), std::clamp(rig.source(0, 5, 5, 1) + 199 * 4 - 410, 0, 4095));
        }
    }
    const auto filters = [](int n) {
        std::string tree = "Source";
        for (int i = 0; i < n; ++i) tree = "(blur " + tree + " 0 1 1.001 0)";  // so that none is passed through
        return "dest = " + tree;
    };
    for (const int n : {100, 101}) {
        messages.clear();
        ASSERT_TRUE(rig.load_body(filters(n)));
        EXPECT_EQ(rig.render(), n > 100 ? -2 : 0) << n;
        EXPECT_EQ(ran(event_image_function, "blur"), n > 100 ? 0 : n);
        EXPECT_EQ(messages.count("8 eval_image_nodes_array overflow"), n > 100);
    }
    auto* blur = const_cast<NodeFun*>(find_node_fun("blur"));
    for (const int more : {21, 22}) {
        messages.clear();
        blur->extra_images = (decltype(blur->extra_images))more;
        EXPECT_EQ(rig.load_body("dest = (blur (+ Source 1) 0.1 1 1 0)") != nullptr, more == 21);
        EXPECT_EQ(messages.count("8 blur has image_count 25 > MAX_NODE_IMAGE_COUNT 24"), more == 22);
        blur->extra_images = 0;
    }
    // The frame after an abort is as if nothing had been.
    ASSERT_TRUE(rig.load_body("dest = (+ Source 0.25)"));
    ASSERT_EQ(rig.render(), 0);
    EXPECT_EQ(rig.result(5, 5, 1), std::min(4095, rig.source(0, 5, 5, 1) + 1024));
}

// Each allocation of a frame fails in turn, on whatever task: the frame ends, the next one is right.
TEST(EngineGraph, FailedAllocationsEndOneFrame) {
    Messages messages;
    for (const int tasks : {1, 3}) {
        EngineRig rig(tasks);
        ASSERT_TRUE(rig.load_body("a = (* Source Back) dest = (+ (+ a x) (blur a 0.1 1 1 0))"));
        ASSERT_EQ(rig.render(), 0);
        const Frame good = rig.dest;
        static std::atomic<int> left;
        static void* (*real)(size_t, size_t);
        real = allocate_block;
        int failed = 0;
        for (int fail_at = 0, result = -2; result; ++fail_at) {
            ASSERT_LT(fail_at, 1000);
            left = fail_at;
            allocate_block = [](size_t bytes, size_t alignment) -> void* {
                return left.fetch_sub(1) == 0 ? nullptr : real(bytes, alignment);
            };
            result = rig.render();
            allocate_block = real;
            failed += result == -2;
            ASSERT_EQ(rig.render(), 0);
            ASSERT_EQ(rig.dest, good) << fail_at;
        }
        EXPECT_GT(failed, 2 * tasks);  // what each task allocates, and what is there once
    }
}

// Graphs with more ways through them than anyone can walk, and roots of every kind.
TEST(EngineGraph, OddGraphsEndSoon) {
    Messages messages;
    EngineRig rig(2);
    std::string diamonds = "c = 1 a0 = (+ Source 0.1) ";
    for (int i = 1; i < 150; ++i) {
        const std::string before = "a" + std::to_string(i - 1);
        diamonds += "a" + std::to_string(i) + " = (max " + before + " (- " + before + " 0.01)) ";
        if (i == 75) diamonds += "b = (blur a75 0.1 1 1 0) ";
    }
    diamonds += "dest = (if+ c (blur (+ a149 b) 0.2 1 1 0) (+ (blur a149 0.1 1 1 0) a80))";
    ASSERT_TRUE(rig.load_body(diamonds));
    EXPECT_EQ(rig.render(), 0);
    for (const char* body : {"dest = Output", "dest = x", "dest = xy", "dest = [1 2]", "dest = (blur 0.5 1 1 1 1)",
                             "dest = (v4 x y x 1)", "dest = Matte"}) {
        ASSERT_TRUE(rig.load_body(body)) << body;
        EXPECT_EQ(rig.render(), 0) << body;
        ASSERT_TRUE(rig.load_body(body, "warp_crop")) << body;
        EXPECT_EQ(rig.render(), 0) << body;
    }
}

// ---- Queries and formats

TEST(EngineGraph, QueriesFollowTheFrame) {
    EngineRig rig(2, {40, 30});
    struct {
        const char* body;
        float at_frame_6;
    } const cases[] = {
        {"dest = (* (get_frame_number) 0.01)", 0.06f},
        {"dest = (* (get_total_frames) 0.01)", 0.24f},
        {"dest = (get_time)", 0.2f},
        {"dest = (get_percent_time)", 6.0f / 23},
        {"dest = (* (get_frames_per_second) 0.01)", 0.3f},
        {"dest = (get_aspect_ratio)", 0.75f},
        {"dest = (* (get_frame_width) 0.01)", 0.4f},
        {"dest = (* (get_frame_height) 0.01)", 0.3f},
        {"dest = (* (element_of (get_frame_half_dims) 1) 0.01)", 0.15f},
        {"p = 0.4 dest = (get_curve_val p 2)", 0.4f},
        {"p = [0.1 0.2 0.3] dest = (element_of (get_curve_val p 2) 2)", 0.3f},
    };
    for (const auto& c : cases) {
        ASSERT_TRUE(rig.load_body(c.body)) << c.body;
        rig.set_frame(1);
        ASSERT_EQ(rig.render(), 0);
        rig.set_frame(6);
        ASSERT_EQ(rig.render(), 0);
        EXPECT_NEAR(rig.result(3, 3, 0), c.at_frame_6 * 4096, 2) << c.body;
    }
}

// The working area grows by what filters reach, so that a crop shows the same picture.
TEST(EngineGraph, CropDoesNotChangeFilteredPictures) {
    for (const char* body :
         {"dest = (blur Source 0.2 1 1 0)", "dest = (blur (+ (blur Source 0.1 1 1 0) Back) 0.05 1 1 0)",
          "a = (* Source Back) dest = (+ (blur a 0.1 1 1 0) a)", "a = 0 dest = (blur Source a 1 1 0)"}) {
        EngineRig rig(2, {61, 47});
        ASSERT_TRUE(rig.load_body(body));
        ASSERT_EQ(rig.render(), 0);
        const Frame whole = rig.dest;
        rig.shape.crop = {20, 15, 13, 9};
        ASSERT_EQ(rig.render(), 0);
        for (int y = 15; y < 24; ++y)
            for (int x = 20; x < 33; ++x)
                for (int c = 0; c < 3; ++c) ASSERT_EQ(rig.result(x, y, c), whole[rig.index(x, y, c)] >> 4) << body;
    }
}

// Inputs that come with other element counts are typed again; those that fit no function leave everything as it was.
TEST(EngineGraph, FormatsMayChange) {
    Messages messages;
    EngineRig rig;
    Genotype* g = rig.load_body("dest = (rgb_to_hsv Source)");
    ASSERT_TRUE(g);
    rig.record.source_tags[4] = 1;
    update_genotype_elnums(g);
    EXPECT_EQ(messages.count("8 Test.rgb_to_hsv has an invalid combo of arg types.\n") +
                  messages.count("8 Test.rgb_to_hsv has an invalid combo of arg types."),
              1);
    EXPECT_EQ(g->nodes[0].elnum, 3);
    EXPECT_EQ(g->nodes[0].args[0]->elnum, 3);
    rig.record.source_tags[4] = 3;
    ASSERT_EQ(rig.render(), 0);
    g = rig.load_body("dest = (+ Source 0.5)");
    rig.record.source_tags[4] = 1;
    recompile_genotype(g, 0);
    EXPECT_EQ(g->nodes[0].elnum, 1);
}

}  // namespace
