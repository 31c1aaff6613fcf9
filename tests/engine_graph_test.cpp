// What a frame runs and what it leaves alone: pass-through, branches, sharing; the limits; queries. Functions are
// watched through the evaluator's hook.

#include "support/memory.h"
#include "testing/caught_messages.h"
#include "testing/engine_rig.h"

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
    {"dest = (* Source (+ [0.5 0.5 0.5] 0.5))", {{event_pixel_function, "*", 0}}},  // folded, and 1 throughout
    {"p = 0.5 dest = (if+ (+ p p) Source (+ Back 1))",
     {{event_pixel_function, "if+", 0}, {event_pixel_function, "+", 0}}},
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
    // Without it the sum would be made once and kept.
    {"dest = (+ (force_no_cache x) 0.5)", {{event_pixel_function, "+", 1}, {event_dest_copy, "+", 0}}},
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
        // With a crop, so that a frame that ends in its last pass must not leave that pass's area to the next frame.
        EngineRig rig(tasks, {37, 23, 1, {10, 8, 9, 7}});
        crop_images_p = 1;
        ASSERT_TRUE(rig.load_body("a = (* Source Back) dest = (+ (+ a x) (blur a 0.5 1 1 0))"));
        // Frames in turn, so that nothing can be right that is left from the frame before.
        HostFrame good[2];
        for (HostFrame& frame : good) {
            ASSERT_EQ(rig.render(), 0);
            frame = rig.dest;
            std::swap(rig.inputs[0], rig.inputs[2]);
        }
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
            std::swap(rig.inputs[0], rig.inputs[2]);
            ASSERT_EQ(rig.render(), 0);
            ASSERT_EQ(rig.dest, good[(fail_at + 1) % 2]) << fail_at;
        }
        crop_images_p = 0;
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
        Genotype* const plain = rig.load_body(body, "warp_crop");
        ASSERT_TRUE(plain) << body;
        const bool alpha_lost = plain->nodes[0].elnum == 2;  // nothing says where it is to go
        EXPECT_EQ(rig.render(), alpha_lost ? -1 : 0) << body;
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

// The working area grows by what filters reach, so that a crop shows the same picture, also of frames before.
TEST(EngineGraph, CropDoesNotChangeFilteredPictures) {
    const RasterRect crop = {20, 15, 13, 9};
    for (const char* body :
         {"dest = (blur Source 0.2 1 1 0)", "dest = (blur (+ (blur Source 0.1 1 1 0) Back) 0.05 1 1 0)",
          "a = (* Source Back) dest = (+ (blur a 0.1 1 1 0) a)", "a = 0 dest = (blur Source a 1 1 0)",
          "dest = (blur (* (+ Source (get_prev_dest 0)) 0.5) 0.2 1 1 0)"}) {
        EngineRig rig(2, {61, 47}), cropped(2, {61, 47, 1, crop});
        for (EngineRig* r : {&rig, &cropped}) {
            Globals_V4 = &r->record;
            ASSERT_TRUE(r->load_body(body));
            for (int frame = 0; frame < 3; ++frame) ASSERT_EQ(r->render(), 0);
        }
        for (int y = 15; y < 24; ++y)
            for (int x = 20; x < 33; ++x)
                for (int c = 0; c < 3; ++c) ASSERT_EQ(cropped.result(x, y, c), rig.result(x, y, c)) << body;
    }
}

TEST(EngineGraph, AreasGrowByWhatIsRead) {
    EngineRig rig(1, {64, 48});
    ASSERT_TRUE(rig.load_body("dest = Source"));
    ASSERT_EQ(rig.render(), 0);
    const RasterRect frame = {0, 0, 64, 48}, crop = {20, 15, 13, 9};
    const struct {
        const char* body;
        RasterRect area;
    } rows[] = {
        {"dest = (+ Source Back)", crop},
        {"dest = (blur Source 0.25 0 1 0)", {18, 13, 17, 13}},                            // 0.25 * 64 / 8 samples
        {"dest = (+ (blur Source 0.25 0 1 0) (blur Back 0.5 0 1 0))", {16, 11, 21, 17}},  // the farther one
        {"dest = (blur (blur Source 0.25 0 1 0) 0.5 0 1 0)", {14, 9, 25, 21}},            // one after the other
        {"dest = (+ (edgedetect_simple Source 0.5) Source)", frame},
        {"dest = (+ (get_prev_dest 0) Source)", crop},
        {"dest = (blur (get_prev_dest 0) 0.25 0 1 0)", frame},
    };
    for (const auto& row : rows) {
        Genotype* g = rig.load_body(row.body);
        ASSERT_TRUE(g) << row.body;
        recompile_genotype(g, 0);
        RasterRect area;
        get_expanded_src(g, crop, frame, &area);
        EXPECT_EQ(std::vector<int>({area.x, area.y, area.w, area.h}),
                  std::vector<int>({row.area.x, row.area.y, row.area.w, row.area.h}))
            << row.body;
    }
}

// What the host layer asks of a text: does it look around a pixel, and in something that comes from an input?
TEST(EngineGraph, SpatialFunctionsAreFound) {
    const struct {
        const char* body;
        bool spatial, reads_input;
    } rows[] = {
        {"dest = (+ Source 1)", false, false},
        {"dest = (blur Source 0.1 1 1 0)", true, true},
        {"dest = (+ Source (blur (sin x) 0.1 1 1 0))", true, false},
        {"dest = (blur (blur (* (sin Back) x) 0.1 1 1 0) 0.1 1 1 0)", true, true},
        {"c = 1 dest = (if+ c Source (blur Back 0 1 1 0))", true, true},
    };
    for (const auto& row : rows) {
        EngineRig rig;
        const Genotype* g = rig.load_body(row.body);
        ASSERT_TRUE(g) << row.body;
        EXPECT_EQ((g->effect_flags_1 & effect_has_spatial) != 0, row.spatial) << row.body;
        EXPECT_EQ((g->effect_flags_3 & effect_spatial_reads_input) != 0, row.reads_input) << row.body;
    }
}

// Effects that are shown in turn, and one that is shown after another went.
TEST(EngineGraph, EffectsTakeTurns) {
    EngineRig rig(2);
    Genotype* one =
        rig.load_body("a = (* Source Back) dest = (+ (+ a (blur a 0.1 1 1 0)) (sin (+ [0.1 0.2 0.3] (* x 0.5))))");
    ASSERT_TRUE(one);
    ASSERT_EQ(rig.render(), 0);
    const HostFrame want = rig.dest;
    Genotype* two = read_genotype_from_string(
        "(def_effect Two (Source Back) (rgba_ok) dest = (* (+ (blur Back 0.2 1 1 0) "
        "(+ (blur Source 0.3 1 1 0) (blur Source 0.1 1 1 0))) 0.25))");
    ASSERT_TRUE(two);
    const auto show = [&](Genotype* g) {
        rig.record.effect_genotype = g;  // and nobody says so
        EXPECT_EQ(rig.render(), 0);
        return rig.dest;
    };
    const HostFrame want_two = show(two);
    EXPECT_NE(want_two, want);
    EXPECT_EQ(show(one), want);
    EXPECT_EQ(show(two), want_two);
    rig.record.effect_genotype = one;
    free_genotype(two);
    EXPECT_EQ(show(one), want);
}

// Inputs that come with other element counts are typed again; those that fit no function leave everything as it was.
TEST(EngineGraph, FormatsMayChange) {
    Messages messages;
    EngineRig rig;
    Genotype* g = rig.load_body("dest = (rgb_to_hsv (+ Source 0.125))");
    ASSERT_TRUE(g);
    ASSERT_EQ(rig.render(), 0);
    const HostFrame before = rig.dest;
    const PixelFun code = g->nodes[0].args[0]->pixel_fun;
    messages.clear();
    rig.source_elements[0] = 1;
    ASSERT_EQ(rig.render(), 0);
    EXPECT_EQ(messages.count("8 Test.rgb_to_hsv has an invalid combo of arg types.\n"), 1);
    EXPECT_EQ(rig.dest, before);
    EXPECT_EQ(g->nodes[0].elnum, 3);
    EXPECT_EQ(g->nodes[0].args[0]->elnum, 3);
    EXPECT_EQ(g->nodes[0].args[0]->pixel_fun, code);

    // One element of the frame stands for all, and what was kept is made again once.
    rig.record.source_tags[4] = 3;
    g = rig.load_body("dest = (+ (+ Source 0.25) (* (sin (* x 0.5)) 0))");
    for (const int elements : {3, 1, 3}) {
        rig.source_elements[0] = elements;
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(g->nodes[0].elnum, elements);
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(rig.result(5, 5, c), std::min(4095, rig.source(0, 5, 5, elements == 1 ? 0 : c) + 1024));
    }
    // A filter's input of one element, and the alpha that a frame of the host does not hold.
    const struct {
        const char* body;
        int elements, halves;  // of the first element; -1: half of 1.0
    } rows[] = {{"dest = (blur Source 0 1 0.5 0)", 1, 1}, {"dest = (* (element_of Source 3) 0.5)", 4, -1}};
    for (const auto& row : rows) {
        messages.clear();
        g = rig.load_body(row.body);
        rig.source_elements[0] = row.elements;
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(rig.result(5, 5, 1), row.halves > 0 ? rig.source(0, 5, 5, 0) >> 1 : 2048) << row.body;
        EXPECT_EQ(messages.count(), 0) << row.body;
    }
    rig.source_elements[0] = 3;
    ASSERT_EQ(rig.render(), 0);

    g = rig.load_body("dest = (+ Source (sin (* x 0.5)))");
    for (const int elements : {3, 1}) {
        rig.source_elements[0] = elements;
        for (const int sines : {1, 0}) {
            ASSERT_EQ(rig.render(), 0);
            EXPECT_EQ(ran(event_pixel_function, "sin"), sines) << elements;
        }
    }
}

}  // namespace
