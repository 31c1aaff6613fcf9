// Images: which are kept from frame to frame, where they lie, and those of the previous output.

#include "tests/caught_messages.h"
#include "tests/engine_rig.h"

#include <gtest/gtest.h>

#include <algorithm>

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
    const Frame first = rig.dest;
    expect_runs(0, "nothing changed");
    EXPECT_EQ(rig.dest, first);
    rig.set_param("f", 0.75f);
    expect_runs(1, "its param changed");
    EXPECT_NE(rig.dest, first);
    expect_runs(0, "and stands again");
    rig.set_param("f", 0.5f);
    expect_runs(1, "back");
    EXPECT_EQ(rig.dest, first);
    rig.dirty = true;
    expect_runs(1, "the host lost the planes");
    rig.dirty = false;
    rig.shape.crop = {3, 3, 20, 10};
    expect_runs(1, "other area");
    rig.shape.crop = {4, 3, 20, 10};
    expect_runs(1, "as large, but elsewhere");
}

// A branch that turns to its other side changes what reads it although neither side changed.
TEST(EngineImages, TurnedBranchesInvalidateKeptImages) {
    EngineRig rig;
    ASSERT_TRUE(rig.load_body("c = 1 side = (if+ c (* x 0.5) (* y 0.5)) dest = (+ Source (+ side (* side side)))"));
    ASSERT_EQ(rig.render(), 0);
    const Frame then_frame = rig.dest;
    rig.set_param("c", -1);
    ASSERT_EQ(rig.render(), 0);
    const Frame else_frame = rig.dest;
    EXPECT_NE(then_frame, else_frame);
    ASSERT_EQ(rig.render(), 0);
    EXPECT_EQ(rig.dest, else_frame);
    rig.set_param("c", 1);
    ASSERT_EQ(rig.render(), 0);
    EXPECT_EQ(rig.dest, then_frame);
}

TEST(EngineImages, StaticResultGoesOutAsItStands) {
    EngineRig rig(3);
    ASSERT_TRUE(rig.load_body("dest = (sin (* xy 3))"));
    EXPECT_NE(rig.render(), -2);
    ASSERT_TRUE(rig.load_body("dest = (sin (+ [0.1 0.2 0.3] (element_of xy 0)))"));
    ASSERT_EQ(rig.render(), 0);
    EXPECT_EQ(ran(event_dest_copy, "sin"), 1);
    const Frame first = rig.dest;
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
    {"dest = (if+ x (blur Source 0.1 1 1 0) (blur Back 0.1 1 1 0))", 6, 0},
    {"a = (* Source Back) dest = (+ a (blur a 0.1 1 1 0))", 3, 3},  // two readers
    {"a = (* Source Back) dest = (+ a (- a 1))", 0, 0},
    {"a = (blur Source 0.1 1 1 0) dest = (+ a (* a a))", 3, 0},  // one pixel tree is one reader
    {"c = 1 a = (* Source Back) dest = (if+ c (+ a 1) (- a 1))", 0, 0},
    {"c = 1 a = (* Source Back) dest = (if+ c (blur a 0.1 1 1 0) (blur a 0.3 1 1 0))", 3, 0},
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
        const Frame want = plain_rig.dest;
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
    const Frame before(prev->planes[1] + 20, prev->planes[1] + 60);
    store_prev_dest_line(lines, 5, 7, 3);
    for (int i = 0; i < 20; ++i)
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(prev->planes[c][3 * 20 + i], i < 5 || i > 11 ? 0 : std::clamp((i - 8) * 4000 + c, -8191, 8191))
                << i;
    EXPECT_EQ(Frame(prev->planes[1] + 20, prev->planes[1] + 60), before) << "rows below";
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
