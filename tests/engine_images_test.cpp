// Images: which are kept from frame to frame, where they lie, and those of the previous output.

#include "testing/caught_messages.h"
#include "testing/engine_rig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

using namespace velloran;
using namespace velloran_tests;

namespace {

// ---- Kept images

TEST(EngineImages, StaticSubTreesAreMadeOnce) {
    EngineRig rig(2);
    ASSERT_TRUE(rig.load_body("f = 0.5 g = 1 still = (* (sin (* x f)) 0.25) dest = (+ Source (* still g))"));
    const auto expect_runs = [&](int sines, const char* when) {
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(ran(event_pixel_function, "sin"), sines) << when;
    };
    expect_runs(1, "first frame");
    const HostFrame first = rig.dest;
    expect_runs(0, "nothing changed");
    EXPECT_EQ(rig.dest, first);
    rig.set_param("f", 0.75f);
    expect_runs(1, "its param changed");
    EXPECT_NE(rig.dest, first);
    expect_runs(0, "and stands again");
    rig.set_param("f", 0.5f);
    expect_runs(1, "back");
    EXPECT_EQ(rig.dest, first);
    rig.lost = ~0ull;
    expect_runs(1, "the host lost the planes");
    rig.lost = 0;
    rig.shape.crop = {3, 3, 20, 10};
    expect_runs(1, "other area");
    rig.shape.crop = {4, 3, 20, 10};
    expect_runs(1, "as large, but elsewhere");
}

// What a kept image depends on beside the values it is made of: the samples that its planes stand for, and what queries
// answer.
TEST(EngineImages, KeptImagesAreMadeAgainForAnotherFrame) {
    const struct {
        const char* name;
        void (*change)(EngineRig& rig, bool on);
    } rows[] = {
        {"place", [](EngineRig& r, bool on) { r.shape.crop.x = on ? 6 : 4; }},
        {"width in pixels, not in samples", [](EngineRig& r, bool on) { r.shape.crop.w = on ? 19 : 20; }},
        {"height in pixels, not in samples", [](EngineRig& r, bool on) { r.shape.crop.h = on ? 9 : 10; }},
        {"steps", [](EngineRig& r, bool on) { r.shape.step = on ? 1 : 2; }},
        {"shape of pixels", [](EngineRig&, bool on) { set_pixel_aspect_ratio(on ? 2.0f : 1.0f); }},
        {"fields", [](EngineRig&, bool on) { the_frame->render_field = on; }},
        {"length", [](EngineRig& r, bool on) { r.set_frame(0, on ? 25 : 24); }},
        {"rate", [](EngineRig&, bool on) { frame_rate = on ? 25.0f : 24.0f; }},
    };
    const float rate = frame_rate;
    for (const auto& row : rows) {
        EngineRig rig(2, {40, 24, 2, {4, 4, 20, 10}});
        row.change(rig, false);
        ASSERT_TRUE(rig.load_body("dest = (+ Source (sin (+ (* x 0.5) y)))"));
        for (const bool on : {false, true, false})
            for (const int sines : {1, 0}) {
                row.change(rig, on);
                ASSERT_EQ(rig.render(), 0);
                EXPECT_EQ(ran(event_pixel_function, "sin"), sines) << row.name << on;
            }
        frame_rate = rate;
    }
}

struct KeptCase {
    const char* name;
    const char* body;
    const char* param;  // is changed before the third frame
    struct {
        const char* function;
        int runs[3];
    } wanted[2];
};

const KeptCase kept_cases[] = {
    {"a kept value below the one that changed stands",
     "f = 0.5 s = (sin (* [1 2 3] x)) u = (* (+ s (blur s 0.1 1 1 0)) f) dest = (+ Source u)",
     "f",
     {{"sin", {1, 0, 0}}, {"blur", {1, 0, 1}}}},
    {"the side that is left out may change",
     "c = 1 q = 0.5 side = (if+ c (sin (* x 3)) (cos (* y q))) dest = (+ Source (* side 0.5))",
     "q",
     {{"sin", {1, 0, 0}}, {"cos", {0, 0, 0}}}},
    {"the side that is taken may not",
     "c = -1 q = 0.5 side = (if+ c (sin (* x 3)) (cos (* y q))) dest = (+ Source (* side 0.5))",
     "q",
     {{"sin", {0, 0, 0}}, {"cos", {1, 0, 1}}}},
    {"params with a curve of their own count as changing",
     "f = 0.5 (autotrans) dest = (+ Source (sin (* x f)))",
     "f",
     {{"sin", {1, 1, 1}}}},
};

TEST(EngineImages, KeptValuesFollowTheirParams) {
    for (const KeptCase& c : kept_cases) {
        EngineRig rig(2);
        ASSERT_TRUE(rig.load_body(c.body)) << c.name;
        for (int frame = 0; frame < 3; ++frame) {
            if (frame == 2) rig.set_param(c.param, 0.25f);
            ASSERT_EQ(rig.render(), 0);
            for (const auto& wanted : c.wanted) {
                if (!wanted.function) continue;
                const int runs =
                    ran(event_pixel_function, wanted.function) + ran(event_image_function, wanted.function);
                EXPECT_EQ(runs, wanted.runs[frame]) << c.name << ": " << wanted.function << " in frame " << frame;
            }
        }
    }
}

// The host may lose the content of one buffer. A value that was kept in it is made again, with all that was there only
// on the way to it.
TEST(EngineImages, LostBuffersAreMadeAgain) {
    EngineRig rig(2);
    ASSERT_TRUE(rig.load_body("f = 0.5 s = (blur (sin (* [1 2 3] x)) 0.1 1 1 0) dest = (+ Source (* (max s f) 0.25))"));
    ASSERT_EQ(rig.render(), 0);
    const HostFrame want = rig.dest;
    for (int id = 1; id < 32; ++id) {
        rig.lost = 1ull << id;
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(rig.dest, want) << id;
        rig.lost = 0;
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(rig.dest, want) << id;
        EXPECT_EQ(ran(event_pixel_function, "sin"), 0);
    }
}

// The plan follows the switches once all is compiled anew.
TEST(EngineImages, NothingIsKeptWithoutBoundaries) {
    EngineRig rig(2);
    Genotype* g = rig.load_body("a = 0 s = (sin (* x 0.5)) dest = (+ (+ Source s) (* a (blur s 0.1 1 1 0)))");
    ASSERT_TRUE(g);
    ASSERT_EQ(rig.render(), 0);
    EXPECT_EQ(g->cache_image_number, 2);  // the sine, and the filter's result times a
    const HostFrame want = rig.dest;
    cache_boundaries_p = 0;
    recompile_genotype(g, 1);
    EXPECT_EQ(g->cache_image_number, 1);  // the sine has two readers
    for (int frame = 0; frame < 2; ++frame) {
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(rig.dest, want);
    }
    rig.set_param("a", 1);
    ASSERT_EQ(rig.render(), 0);
    const HostFrame sum = rig.dest;
    cache_boundaries_p = 1;
    recompile_genotype(g, 1);
    ASSERT_EQ(rig.render(), 0);
    EXPECT_EQ(rig.dest, sum);
}

// Values may be copied between planes that overlap, in either direction.
TEST(EngineImages, CopiesBetweenOverlappingPlanes) {
    for (const int by : {-1, 1}) {
        EngineRig rig(2);
        Genotype* g = rig.load_body("dest = (+ (blur (+ Source 1) 0.1 1 1 0) 1)");
        ASSERT_TRUE(g);
        ASSERT_EQ(rig.render(), 0);
        Node* blur = g->nodes[0].args[0];
        const size_t n = the_frame->short_image_size / sizeof(FixPixel);
        std::vector<FixPixel> want[3], other(n);
        for (int e = 0; e < 3; ++e) want[e].assign(blur->images[e], blur->images[e] + n);
        fix_plane planes[3];
        for (int e = 0; e < 3; ++e) planes[e] = e + by >= 0 && e + by < 3 ? blur->images[e + by] : other.data();
        eval_node_tree_into_images(blur, planes, blur->image_index + by, 1);
        for (int e = 0; e < 3; ++e) EXPECT_EQ(std::vector<FixPixel>(planes[e], planes[e] + n), want[e]) << by << e;
    }
}

// A node that passes on another argument than before, or none, changes what reads it although no argument changed:
// every frame is what a fresh start with the same values gives.
TEST(EngineImages, TurnedNodesInvalidateKeptImages) {
    for (const char* body :
         {"c = 1 side = (if+ c (* x 0.5) (* y 0.5)) dest = (+ Source (+ side (* side side)))",
          "c = 1 dest = (+ Source (sin (+ x (* c y))))",
          // Without c a filter of a constant, which is that constant; with it one of brightness 0.
          "c = 1 v = (if> c 0.25 x 0.5) dest = (+ Source (max (blur v 0 1 0 0) (* y 0.25)))",
          // 0 to the power 0, or to that of anything.
          "c = 1 v = (if> c 0.25 x 0) dest = (+ (* Source 0.25) (max (* (expt 0 v) 0.5) (* y 0.25)))"}) {
        EngineRig rig(2);
        std::map<float, HostFrame> fresh;
        for (const float c : {1.0f, 0.0f, -1.0f}) {
            ASSERT_TRUE(rig.load_body(body));
            rig.set_param("c", c);
            ASSERT_EQ(rig.render(), 0);
            fresh[c] = rig.dest;
        }
        ASSERT_TRUE(rig.load_body(body));
        for (const float c : {1.0f, -1.0f, -1.0f, 1.0f, 0.0f, 1.0f, 0.0f, -1.0f}) {
            rig.set_param("c", c);
            ASSERT_EQ(rig.render(), 0);
            EXPECT_EQ(rig.dest, fresh[c]) << body << " " << c;
        }
        EXPECT_NE(fresh[1], fresh[-1]);
    }
}

TEST(EngineImages, StaticResultGoesOutAsItStands) {
    EngineRig rig(3);
    ASSERT_TRUE(rig.load_body("dest = (sin (* xy 3))"));
    EXPECT_NE(rig.render(), -2);
    ASSERT_TRUE(rig.load_body("dest = (sin (+ [0.1 0.2 0.3] (element_of xy 0)))"));
    ASSERT_EQ(rig.render(), 0);
    EXPECT_EQ(ran(event_dest_copy, "sin"), 1);
    const HostFrame first = rig.dest;
    ASSERT_EQ(rig.render(), 0);
    EXPECT_EQ(ran(event_pixel_function, "sin"), 0);
    EXPECT_EQ(rig.dest, first);
}

// A shared value is computed once and held to what a plane can hold; one that nobody shares is not.
TEST(EngineImages, SharedValuesAreHeldToThePlanesRange) {
    for (const int sign : {1, -1}) {
        const std::string a = "a = (* Source " + std::to_string(10 * sign) + ") ";
        const std::string tenth = "(* a " + std::to_string(0.1 * sign) + ")";
        for (const bool shared : {false, true}) {
            EngineRig rig(2);
            ASSERT_TRUE(rig.load_body(
                a + (shared ? "dest = (+ " + tenth + " (* 0 (blur a 0.1 1 1 0)))" : "dest = (+ " + tenth + " 0)")));
            ASSERT_EQ(rig.render(), 0);
            EXPECT_EQ(ran(event_image_read, "*"), shared);
            for (int y = 0; y < rig.shape.height; ++y)
                for (int x = 0; x < rig.shape.width; ++x) {
                    int v = rig.source(0, x, y, 0) * 10 * sign;
                    if (shared) v = std::clamp(v, -32767, 32767);
                    ASSERT_EQ(rig.result(x, y, 0), std::clamp(v * 410 * sign >> 12, 0, 4095)) << sign << shared;
                }
        }
    }
}

// ---- Where images lie

struct SlotCase {
    const char* body;
    int temp, cache;
};

const SlotCase slot_cases[] = {
    {"dest = (+ Source 1)", 0, 0},
    {"dest = (blur (blur (blur Source 0.1 1 1 0) 0.2 1 1 0) 0.3 1 1 0)", 3, 0},  // one in the place of the other
    {"dest = (blur (+ Source 1) 0.1 1 1 0)", 3, 0},  // the argument's pass goes into the filter's own
    {"dest = (+ (blur Source 0.1 1 1 0) (blur Back 0.1 1 1 0))", 6, 0},
    // Work planes are free again behind the result.
    {"dest = (+ (sharpen Source 1 0.1) (sharpen Back 1 0.1))", 7, 0},
    {"dest = (sharpen (blur (sharpen Source 1 0.1) 0.1 1 1 0) 1 0.1)", 4, 0},
    {"c = 1 dest = (if+ c (blur Source 0.1 1 1 0) (blur Back 0.1 1 1 0))", 3, 0},  // one side or the other
    {"c = 1 dest = (if_eq c 2 (blur Source 0.1 1 1 0) (blur Back 0.1 1 1 0))", 3, 0},
    {"dest = (if+ x (blur Source 0.1 1 1 0) (blur Back 0.1 1 1 0))", 6, 0},
    {"a = (* Source Back) dest = (+ a (blur a 0.1 1 1 0))", 3, 3},  // two readers
    {"a = (* Source Back) dest = (+ a (- a 1))", 0, 0},
    {"a = (blur Source 0.1 1 1 0) dest = (+ a (* a a))", 3, 0},  // one pixel tree is one reader
    {"c = 1 a = (* Source Back) dest = (if+ c (+ a 1) (- a 1))", 0, 0},
    {"c = 1 a = (* Source Back) dest = (if+ c (blur a 0.1 1 1 0) (blur a 0.3 1 1 0))", 3, 0},
    // An argument of the text's numbers alone is no value to be kept, however many read it.
    {"p = 1 a = (* [1 1 1] p) dest = (+ (blur (+ Source a) 0.1 1 1 0) a)", 3, 0},
    // The limit varies, so both sides run.
    {"p = 1 dest = (if> p x (blur Source 0.1 1 1 0) (blur Back 0.1 1 1 0))", 6, 0},
    // Behind a branch the larger side counts.
    {"c = 1 dest = (+ (if+ c (blur Source 0.1 1 1 0) Back) (blur Front 0.1 1 1 0))", 6, 0},
    // A value of both sides, read before the else side makes an image of its own: that lies above it. Read behind it,
    // the value moves to the cache.
    {"c = 1 q = (blur Source 0.1 1 1 0) dest = (if+ c (+ q 0.1) (+ q (blur Back 0.1 1 1 0)))", 6, 0},
    {"c = 1 q = (blur Source 0.1 1 1 0) dest = (if+ c (+ q 0.1) (+ (blur Back 0.1 1 1 0) q))", 3, 3},
    // A reader within a branch and one outside it are two; so are two within one side, or in sides of two branches.
    {"c = 1 a = (* Source Back) dest = (+ (if+ c (blur a 0.1 1 1 0) Front) (- a 1))", 3, 3},
    {"c = 1 a = (* Source Back) dest = (if+ c (+ (blur a 0.1 1 1 0) (- a 1)) Front)", 3, 3},
    {"c = 1 a = (* Source Back) dest = (if+ c Front (+ (blur a 0.1 1 1 0) (- a 1)))", 3, 3},
    {"c = 1 d = 1 a = (* Source Back) dest = (+ (if+ c (blur a 0.1 1 1 0) Front) (if+ d Front (- a 1)))", 3, 3},
    // b is read on the else side twice, once through a, which both sides read.
    {"c = 1 b = (* Source Back) a = (+ b 1) dest = (if+ c (blur a 0.1 1 1 0) (+ a (blur b 0.3 1 1 0)))", 3, 3},
    // The image argument and the others of a filter are read in passes of their own.
    {"a = (* Source Back) dest = (masked_blur (+ a 0.1) (element_of a 0) 0.1 0 1)", 6, 3},
    // Kept results lie side by side, the last one's work planes behind them.
    {"a = (sharpen Source 1 0.1) dest = (+ a (blur (+ a 1) 0.1 1 1 0))", 3, 4},
    // What is read all over the place must not be written over.
    {"dest = (warp_filter (blur Source 0.1 1 1 0) xy xy [0 0])", 6, 0},
};

TEST(EngineImages, SlotsArePlannedAsAStack) {
    for (const SlotCase& c : slot_cases) {
        EngineRig rig;
        const Genotype* g = rig.load_body(c.body);
        ASSERT_TRUE(g) << c.body;
        EXPECT_EQ(g->temp_image_number, c.temp) << c.body;
        EXPECT_EQ(g->cache_image_number, c.cache) << c.body;
    }
}

// Static sub-trees that feed something changing are kept in images, as long as there are planes for them all. A text
// with more is planned without, and gives the same picture; one that needs them all is refused with the limit.
TEST(EngineImages, PlansThatDoNotFitDoWithoutImagesOfStaticParts) {
    std::string sum = "x", needed = "x";
    for (int i = 0; i < 30; ++i) {
        const std::string n = std::to_string(i);
        sum = "(+ " + sum + " (* (* (get_frame_number) 0.25) (min Source 0.0" + n + ")))";
        needed = "(max " + needed + " (* (element_of v" + n + " 0) (element_of (blur v" + n + " 0.1 1 1 0) 1)))";
    }
    const auto picture = [&](bool boundaries) {
        EngineRig rig(2);
        cache_boundaries_p = boundaries;
        Genotype* g = rig.load_body("dest = (* " + sum + " 0.125)");
        cache_boundaries_p = 1;
        EXPECT_TRUE(g);
        if (!g) return HostFrame();
        EXPECT_LE(g->temp_image_number + g->cache_image_number, MAX_TEMP_PLANES);
        for (int frame = 1; frame <= 3; ++frame) {
            rig.set_frame(frame);
            EXPECT_EQ(rig.render(), 0);
        }
        return rig.dest;
    };
    EXPECT_EQ(picture(true), picture(false));

    std::string body;
    for (int i = 0; i < 30; ++i) body += "v" + std::to_string(i) + " = (* Source 0.0" + std::to_string(i) + ") ";
    Messages messages;
    EngineRig rig;
    EXPECT_FALSE(rig.load_body(body + "dest = " + needed));
    // Of three elements each: the shared values, and the blurs, which one pass reads together.
    EXPECT_EQ(messages.count("8 Test needs 180 images, expected <= " + std::to_string(MAX_TEMP_PLANES) + "."), 1);
}

// Values that are wanted again after their place in the tree was left: the plan must not give their planes away. The
// same text with an image for each value, none of them shared, is the measure.
TEST(EngineImages, PlanesAreNotGivenAwayTooEarly) {
    struct {
        const char *body, *plain;
    } const cases[] = {
        // q is read by the shared s, which has a pass of its own, and again at the end.
        {"q = (blur Source 0.05 1 1 0) s = (+ q 0.1) dest = (+ (blur s 0.1 1 1 0) (- q (* s 0.5)))",
         "dest = (+ (blur (+ (blur Source 0.05 1 1 0) 0.1) 0.1 1 1 0) (- (blur Source 0.05 1 1 0) "
         "(* (+ (blur Source 0.05 1 1 0) 0.1) 0.5)))"},
        // The else side makes another image before it reads what the then side shares with it.
        {"c = -1 q = (blur Source 0.05 1 1 0) dest = (if+ c (+ q 0.1) (+ (blur Back 0.1 1 1 0) q))",
         "dest = (+ (blur Back 0.1 1 1 0) (blur Source 0.05 1 1 0))"},
        // The other image's result lies beside what both sides read, its work planes do not.
        {"c = -1 q = (blur Source 0.05 1 1 0) dest = (if+ c (+ (blur Front 0.1 1 1 0) q) (+ (masked_blur Back 1 0.1 0 "
         "1) "
         "q))",
         "dest = (+ (masked_blur Back 1 0.1 0 1) (blur Source 0.05 1 1 0))"},
        // A branch by elements runs both sides.
        {"c = [1 -1 1] dest = (if+ c (blur Source 0.05 1 1 0) (blur Back 0.1 1 1 0))",
         "dest = (+ (* (blur Source 0.05 1 1 0) [1 0 1]) (* (blur Back 0.1 1 1 0) [0 1 0]))"},
        // So does one whose sides have other element counts than its result.
        {"c = 1 dest = (+ Source (if+ c (blur (element_of Source 0) 0.05 1 1 0) (blur (element_of Back 0) 0.1 1 1 0)))",
         "dest = (+ Source (blur (element_of Source 0) 0.05 1 1 0))"},
    };
    for (const auto& c : cases) {
        EngineRig rig(2), plain_rig(2);
        ASSERT_TRUE(plain_rig.load_body(c.plain));
        ASSERT_EQ(plain_rig.render(), 0);
        const HostFrame want = plain_rig.dest;
        ASSERT_TRUE(rig.load_body(c.body));
        Globals_V4 = &rig.record;
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(rig.dest, want) << c.body;
    }
}

// ---- Feedback

TEST(EngineImages, FeedbackRunsThroughTheClip) {
    for (const int tasks : {1, 3}) {
        EngineRig rig(tasks);
        ASSERT_TRUE(rig.load_body("prev = (get_prev_dest 0) dest = (+ (* prev 0.5) (* Source 0.75))"));
        std::vector<int> state(rig.inputs[0].size(), 0);
        for (int frame = 0; frame < 24; ++frame) {
            for (size_t i = 0; i < state.size(); ++i) {
                rig.inputs[0][i] = (uint16_t)((rig.inputs[0][i] * 5 + 16 * frame) & 0xfff0);
                state[i] = (state[i] * 2048 >> 12) + ((rig.inputs[0][i] >> 4) * 3072 >> 12);
            }
            rig.set_frame(frame);
            ASSERT_EQ(rig.render(), 0);
            for (size_t i = 0; i < state.size(); ++i)
                ASSERT_EQ(rig.dest[i] >> 4, std::min(state[i], 4095)) << frame << " " << i;
        }
        // A new run starts over from the initial value.
        rig.record.run_record->feedback_valid = 0;
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(rig.dest[10] >> 4, (rig.inputs[0][10] >> 4) * 3072 >> 12);
    }
}

TEST(EngineImages, FeedbackIsHeldToTwo) {
    EngineRig rig;
    ASSERT_TRUE(rig.load_body("prev = (get_prev_dest Source) dest = (- (* 3 (+ prev 1)) 6)"));
    int state = rig.source(0, 2, 2, 0);
    for (int frame = 0; frame < 6; ++frame) {
        ASSERT_EQ(rig.render(), 0);
        state = (12288 * (state + 4096) >> 12) - 24576;
        EXPECT_EQ(rig.result(2, 2, 0), std::clamp(state, 0, 4095)) << frame;
        state = std::clamp(state, -8191, 8191);
    }
}

TEST(EngineImages, FeedbackBeginsWithItsInitialValue) {
    const struct {
        const char* init;
        int values[3];  // -1: Back's
    } rows[] = {
        {"0", {0, 0, 0}},
        {"0.25", {1024, 1024, 1024}},  // for all channels
        {"[0 0.5 0]", {0, 2048, 0}},
        {"[0 0 0.5]", {0, 0, 2048}},
        {"(* [0.1 0.1 0.1] 2)", {820, 820, 820}},
        {"Back", {-1, -1, -1}},
        {"(element_of [0.25 0 0] 0)", {1024, 1024, 1024}},
    };
    EngineRig rig(2);
    for (const auto& row : rows) {
        ASSERT_TRUE(
            rig.load_body(std::string("prev = (get_prev_dest ") + row.init + ") dest = (+ prev (* Source 0.125))"));
        rig.record.run_record->feedback_valid = 0;
        for (int frame = 1; frame <= 2; ++frame) {
            ASSERT_EQ(rig.render(), 0);
            for (int c = 0; c < 3; ++c) {
                const int init = row.values[c] < 0 ? rig.source(1, 6, 8, c) : row.values[c];
                EXPECT_EQ(rig.result(6, 8, c), std::min(4095, init + frame * (rig.source(0, 6, 8, c) >> 3)))
                    << row.init << " " << c;
            }
        }
    }
}

// Nodes of three and of four elements share the planes. A result without alpha is kept as opaque.
TEST(EngineImages, FeedbackOfDifferentElementCounts) {
    EngineRig rig(2);
    Genotype* g = rig.load_body(
        "p = (get_prev_dest [0 0 0 0]) q = (get_prev_dest 0) dest = (+ (* q (element_of p 3)) (* Source 0.125))");
    ASSERT_TRUE(g);
    for (int i = 0; i < g->node_number; ++i) {
        const Node& node = g->nodes[i];
        if (node.type == node_function && (node.fun_info->fun_flags & fun_keeps_own_images)) {
            EXPECT_EQ(node.image_count, node.elnum);
        }
    }
    for (int frame = 1; frame <= 4; ++frame) {
        ASSERT_EQ(rig.render(), 0);
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(rig.result(6, 8, c), std::min(4095, frame * (rig.source(0, 6, 8, c) >> 3))) << frame << c;
    }
}

// The first node to run fills all planes: beside a node with alpha, one without starts opaque.
TEST(EngineImages, FeedbackWithoutAlphaStartsOpaque) {
    const struct {
        const char* init;
        double color;
    } rows[] = {{"0", 0}, {"[0 0 0]", 0}, {"0.25", 0.25}, {"[0.25 0.25 0.25]", 0.25}, {"(v3 0.25 0.25 (* x 0))", 0.25}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.init);
        EngineRig rig;
        ASSERT_TRUE(rig.load_body(std::string("q = (get_prev_dest ") + row.init +
                                  ") dest = (+ (* q 0.5) (* 0.25 (element_of (get_prev_dest [0 0 0 0]) 3)))"));
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(rig.result(3, 4, 0), static_cast<int>(4096 * (0.5 * row.color + 0.25)));
    }
}

// Whole rows are kept, though wide rows are worked in blocks.
TEST(EngineImages, FeedbackOfWideRows) {
    EngineRig rig(2, {4001, 3});
    ASSERT_TRUE(rig.load_body("dest = (+ (* (get_prev_dest 0) 0.5) (* Source 0.25))"));
    std::vector<int> state(rig.inputs[0].size(), 0);
    for (int frame = 0; frame < 3; ++frame) {
        ASSERT_EQ(rig.render(), 0);
        for (size_t i = 0; i < state.size(); ++i) {
            state[i] = (state[i] >> 1) + ((rig.inputs[0][i] >> 4) >> 2);
            ASSERT_EQ(rig.dest[i] >> 4, state[i]) << frame << " " << i;
        }
    }
}

TEST(EngineImages, PlanesOfFeedbackGrowWithTheFrame) {
    EngineRig rig(1, {20, 6});
    Genotype* g = rig.load_body("dest = (+ (get_prev_dest 0) Source)");
    ASSERT_TRUE(g);
    ASSERT_EQ(rig.render(), 0);
    Node* prev_node = g->nodes[0].args[0];
    const PrevDest* prev = rig.record.prev_dest;
    const struct {
        int width, height;
        bool valid, same_planes;
    } sizes[] = {{20, 6, true, true},    {20, 5, false, true},  {10, 12, false, true},
                 {10, 13, false, false}, {21, 7, false, false}, {21, 7, true, true}};
    for (const auto& size : sizes) {
        const fix_plane plane = prev->planes[0];
        rig.record.prev_dest->valid = 1;
        the_frame->dest_raster_info.width = the_frame->temp_raster_info.width = size.width;
        the_frame->dest_raster_info.height = the_frame->temp_raster_info.height = size.height;
        get_prev_dest_images(prev_node);
        EXPECT_EQ(prev->valid, size.valid) << size.width << "x" << size.height;
        EXPECT_GE(prev_dest_image_size(), (size_t)(size.width * size.height * 2));
        EXPECT_TRUE(!size.same_planes || prev->planes[0] == plane) << size.width << "x" << size.height;
        for (int c = 0; c < 3; ++c) EXPECT_EQ(prev_node->images[c], prev->planes[c]);
    }
}

// Rows of the planes are those of the working area: when that changes, the feedback starts over.
TEST(EngineImages, FeedbackStartsOverWithAnotherArea) {
    EngineRig rig(2, {40, 24, 1, {8, 6, 12, 10}});
    ASSERT_TRUE(rig.load_body("prev = (get_prev_dest [0.25 0.25 0.25]) dest = (+ prev (* Back 0.125))"));
    const struct {
        RasterRect crop;
        int step;
    } areas[] = {{{8, 6, 12, 10}, 1}, {{8, 8, 12, 10}, 1}, {{0, 0, 0, 0}, 1}, {{0, 0, 0, 0}, 2}, {{4, 4, 10, 10}, 1}};
    for (const auto& area : areas) {
        rig.shape.crop = area.crop;
        rig.shape.step = area.step;
        for (int frame = 0; frame < 3; ++frame) {
            ASSERT_EQ(rig.render(), 0);
            const int x = 12 / area.step * area.step, y = 10 / area.step * area.step;
            const int back = rig.source(1, x, y, 1) * 512 >> 12;
            EXPECT_EQ(rig.result(12, 10, 1), std::min(1024 + (frame + 1) * back, 4095)) << area.crop.x << area.step;
        }
    }
}

// A row that is kept in part is black beside it.
TEST(EngineImages, KeptRowsAreWhole) {
    EngineRig rig(1, {20, 6});
    ASSERT_TRUE(rig.load_body("dest = (+ (get_prev_dest 0) Source)"));
    ASSERT_EQ(rig.render(), 0);
    int32_t line[3][7];
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < 7; ++i) line[c][i] = (i - 3) * 4000 + c;
    int32_t* const lines[3] = {line[0], line[1], line[2]};
    const PrevDest* prev = rig.record.prev_dest;
    const HostFrame before(prev->planes[1] + 20, prev->planes[1] + 60);
    store_prev_dest_line(lines, 5, 7, 3);
    for (int i = 0; i < 20; ++i)
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(prev->planes[c][3 * 20 + i], i < 5 || i > 11 ? 0 : std::clamp((i - 8) * 4000 + c, -8191, 8191))
                << i;
    EXPECT_EQ(HostFrame(prev->planes[1] + 20, prev->planes[1] + 60), before) << "rows below";
}

// ---- What the effects of a plug-in need

TEST(EngineImages, NeedsOfAllEffectsAreFound) {
    Messages messages;
    const struct {
        const char* bodies[2];
        int needs[4];  // long image, mipmap, its filter, other times
    } rows[] = {
        {{"dest = Source", "dest = (+ x 1)"}, {0, 0, 0, 0}},
        {{"dest = (blur Source 0.1 1 1 0)", "dest = Source"}, {1, 0, 0, 0}},
        {{"dest = Source", "dest = (+ (blur Source 0.1 1 1 0) 1)"}, {1, 0, 0, 0}},
        {{"dest = (warp Source xy [0 0] 0)", "dest = Source"}, {0, 1, 0, 0}},
        {{"dest = (warp Source xy [0 0] 1)", "dest = Source"}, {0, 1, 1, 0}},
        {{"f = 0 dest = (warp Source xy [0 0] f)", "dest = Source"}, {0, 1, 1, 0}},  // the param may change
        {{"dest = (warp Source xy [1 1] 0)", "dest = (warp Source xy [0 0] 0.5)"}, {0, 1, 1, 0}},
        {{"dest = (warp_rel Source xy [0 0] 1)", "dest = Source"}, {0, 1, 0, 0}},
        {{"dest = (warp_filter Source xy xy [0 0])", "dest = Source"}, {0, 1, 1, 0}},
        {{"dest = (get_frame Source 1 0)", "dest = Source"}, {0, 0, 0, 0}},
        {{"dest = (time_warp Source 1 0)", "dest = (warp Source xy [0 0] 0)"}, {1, 1, 0, 1}},
    };
    for (const auto& row : rows) {
        EngineRig rig;
        ASSERT_TRUE(rig.load_body(row.bodies[0])) << row.bodies[0];
        const std::string second = std::string("(def_effect Two (Source) ") + row.bodies[1] + ")";
        rig.record.genotypes[1] = read_genotype_from_string(second.c_str());
        ASSERT_TRUE(rig.record.genotypes[1]) << row.bodies[1];
        rig.record.n_effects = 2;
        int needs[4] = {7, 7, 7, 7};
        any_effects_need_long_image_mipmap_etc(&needs[0], &needs[1], &needs[2], &needs[3]);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(needs[i], row.needs[i]) << row.bodies[0] << " " << row.bodies[1] << i;
        free_genotype(rig.record.genotypes[1]);
        rig.record.genotypes[1] = nullptr;
    }
}

}  // namespace
