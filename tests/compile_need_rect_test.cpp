// Needed regions: rectangles, and how far each kind of function reaches.
#include "compile/compile.h"
#include "compile/need_rect.h"
#include "frame/filter_radius.h"
#include "records/frame.h"
#include "testing/genotype_reading.h"

#include <array>

namespace {

class NeedRectTest : public GenotypeTest {
protected:
    RenderInfo& frame = the_frame->render_info;

    void SetUp() override {
        GenotypeTest::SetUp();
        frame = {};
        frame.full_ren = {0, 0, 800, 400};  // an amount of 1.0 reaches 100 pixels
        frame.render_step = 1;
        the_frame->render_field = 0;
    }
    void TearDown() override {
        frame = {};
        the_frame->render_field = 0;
        GenotypeTest::TearDown();
    }
};

using Box = std::array<int, 4>;  // min_x, max_x, min_y, max_y
constexpr Box whole = {-32767, 32767, -32767, 32767}, nothing = {};

Box box(const NeedRect& r) { return r.empty ? nothing : Box{r.min_x, r.max_x, r.min_y, r.max_y}; }

NeedRect rect(const Box& b) {
    const auto s = [](int v) { return static_cast<int16_t>(v); };
    return {s(b[0]), s(b[1]), s(b[2]), s(b[3]), 0};
}

TEST_F(NeedRectTest, Rectangles) {
    NeedRect none, r = rect({1, 2, 3, 4});
    need_rect_clear(&none);
    need_rect_union(none, &r);
    EXPECT_EQ(box(r), (Box{1, 2, 3, 4}));
    need_rect_union(rect({-5, 1, 4, 9}), &r);
    EXPECT_EQ(box(r), (Box{-5, 2, 3, 9}));
    need_rect_intersect(rect({0, 100, -100, 5}), &r);
    EXPECT_EQ(box(r), (Box{0, 2, 3, 5}));
    need_rect_intersect(rect({3, 9, 3, 5}), &r);
    EXPECT_TRUE(r.empty);
    need_rect_union(rect({7, 8, 9, 10}), &r);
    EXPECT_EQ(box(r), (Box{7, 8, 9, 10}));
    need_rect_intersect(none, &r);
    EXPECT_TRUE(r.empty);

    NeedRect target;
    const struct {
        Box from;
        int64_t dx, dy;
        int step;
        Box to;
    } rows[] = {
        {{0, 9, 0, 4}, 2, 1, 1, {-2, 11, -1, 5}},
        {{0, 9, 0, 4}, 2, 1, 3, {-6, 15, -3, 7}},
        {{-32000, 32000, 0, 0}, 1000, 0, 1, {-32767, 32767, 0, 0}},
        {{0, 9, 0, 4}, 32767, 0, 1, whole},
        {{0, 9, 0, 4}, 0, 16384, 2, whole},
        {{0, 9, 0, 4}, INT64_MAX, 0, 32, whole},
    };
    for (const auto& row : rows) {
        frame.render_step = row.step;
        need_rect_clear(&target);
        need_rect_grow(rect(row.from), row.dx, row.dy, &target);
        EXPECT_EQ(box(target), row.to);
    }
    need_rect_clear(&target);
    need_rect_grow(none, 5, 5, &target);
    EXPECT_TRUE(target.empty);
}

TEST_F(NeedRectTest, SetCropAndScale) {
    NeedRect r;
    need_rect_set(&r, 3, 4, 2, 9);
    EXPECT_TRUE(r.empty);
    EXPECT_EQ(box(r), nothing);
    need_rect_set(&r, -70000, 4, 12, 70000);
    EXPECT_EQ(box(r), (Box{-32767, 12, 4, 32767}));
    r = rect({0, 9, 0, 9});
    need_rect_crop(&r, 1, 2, 3, 4);
    EXPECT_EQ(box(r), (Box{1, 7, 3, 5}));
    need_rect_crop(&r, 4, 4, 0, 0);  // 7 wide
    EXPECT_TRUE(r.empty);
    r = rect({-3, 9, 5, 6});
    need_rect_scale(&r, 0.5, 1.5);
    EXPECT_EQ(box(r), (Box{-2, 5, 7, 9}));
    need_rect_scale(&r, -1, 1);
    EXPECT_TRUE(r.empty);
    need_rect_set_all(&r);
    need_rect_grow(r, 5, 5, &r);
    EXPECT_EQ(box(r), whole);
}

TEST_F(NeedRectTest, BlurReach) {
    const struct {
        int32_t amount;
        int64_t reach;
    } rows[] = {{0, 0}, {-4096, 0}, {4096, 100}, {41, 2}, {0x40000, 6400}, {0x7fffffff, 6400}};  // 41: 1.001
    for (const auto& row : rows) EXPECT_EQ(filter_reach(row.amount), row.reach) << row.amount;
    frame.render_step = 3;  // 267 samples across
    EXPECT_EQ(filter_reach(4096), 34);
}

// What the walk asks of all inputs together.
NeedRect needed_of_inputs(Genotype* genotype, const NeedRect& root_rect) {
    need_rect_walk(genotype, root_rect);
    NeedRect all;
    need_rect_clear(&all);
    for (int i = 0; i < genotype->node_number; ++i) {
        const Node& node = genotype->nodes[i];
        if (is_input(&node) && node.need_rect) need_rect_union(*node.need_rect, &all);
    }
    return all;
}

// What a call needs of the input for the pixels 10 .. 19, 20 .. 24.
TEST_F(NeedRectTest, EachKindOfFunction) {
    const struct {
        const char* call;
        Box needed;
        int field = 0;
    } rows[] = {
        {"(+ Source 1)", {10, 19, 20, 24}},
        {"(+ 1 2)", nothing},
        {"(copy (+ Source 0))", {10, 19, 20, 24}},
        {"(blur Source 0.1 1 1 0)", {-1, 30, 9, 35}},  // 0.1 is 410 / 4096: just over 10
        {"(blur Source [0.1 0.25] 1 1 0)", {-1, 30, -5, 49}},
        {"(blur Source 0.125 1 1 0)", {-3, 32, -6, 50}, 1},  // 12.5, rows twice
        {"(blur (blur Source 0.25 1 1 0) 0.5 1 1 0)", {-65, 94, -55, 99}},
        {"(blur (+ Source (blur Source 0.25 1 1 0)) 0.5 1 1 0)", {-65, 94, -55, 99}},
        {"(blur_channels Source [0.25 0.5] [1 2 0.5] 1 1 0)", {-40, 69, -80, 124}},
        {"(masked_blur 1 (max_element Source) 0.25 1 0)", {-15, 44, -5, 49}},
        {"(dir_blur Source [0.05 0 0] 0 [-1 0 0] 1 1 0 0)", {-4, 33, 6, 38}},  // 6 * 2 + 2
        {"(dir_blur Source [0.05 0 0] 0 [-1 0 0] 2 1 0 0)", whole},            // wrapped round the frame
        {"(dir_blur Source [0.25 0 0] 0 [-1 0 0] 1 1 0 0)", whole},            // so long that it is transformed
        {"(defocus Source 0.1 1 1 1 0)", {-4, 33, 6, 38}},                     // 11 + 1 + 2
        {"(defocus Source 0.25 1 1 1 0)", whole},                              // so wide that it is transformed
        {"(band_pass Source 0.25 0.5 1)", {-40, 69, -30, 74}},
        {"(sharpen Source 1 0.25)", {-15, 44, -5, 49}},
        {"(glow Source 1 [2 1] 0.25 1 1 0)", {-40, 69, -5, 49}},
        {"(edge_detect Source 0 1 0)", {9, 20, 19, 25}},
        {"(edge_detect Source 0.25 1 0)", {-16, 45, -6, 50}},
        {"(grad_in_direction Source [1 0] 0.25 0)", {-16, 45, -6, 50}},
        {"(grad_for_mipmap (+ xy (max_element Source)) 1 0)", {9, 20, 19, 25}},
        {"(warp Source (+ xy 1) [0 0] 0)", whole},
        {"(warp 1 (+ xy (max_element Source)) [0 0] 0)", {10, 19, 20, 24}},
        {"(warp Source xy [1 1] 1)", {10, 19, 20, 24}},  // nothing moves
        {"(warp_rel Source [0 0] [1 1] 1)", {10, 19, 20, 24}},
        {"(blur_warp 1 xy (+ xy (max_element Source)) [1 1] 1 [0 0] 0 0)", {10, 19, 20, 24}},
        {"(repeat_warp Source xy (* xy 2) [1 1] [0 0] 4)", whole},
        {"(chroma_warp_filter 1 xy (+ xy (max_element Source)) [0 0] [0 0] [0 0] 4 [1 0 0] [0 1 0] [0 0 1] 1 1)",
         {10, 19, 20, 24}},
        {"(flys_eye Source xy [2 2] [0 0] 0 1 0 1 0 [0 0])", whole},
        {"(drops (max_element Source) xy 1 [1 1] 1 1 [1 1] [1 1] 1)", whole},
        {"(convolve Source [1 1 1] [0 0] [1 1] [0 0] [1 1] 1 1 1 1 [1 1] 1 [0 0 0] 1 1)", whole},
        {"(edgedetect_simple Source 1)", whole},
        {"(if+ 1 Source (blur Source 1 1 1 0))", {10, 19, 20, 24}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.call);
        the_frame->render_field = row.field;
        const GenotypePtr genotype = read_text(effect(std::string("dest = ") + row.call));
        ASSERT_TRUE(genotype) << messages();
        update_genotype_constants(genotype.get());
        EXPECT_EQ(box(needed_of_inputs(genotype.get(), rect({10, 19, 20, 24}))), row.needed);
        // Again: nothing of the last walk may be left.
        EXPECT_EQ(box(needed_of_inputs(genotype.get(), rect({10, 19, 20, 24}))), row.needed);
    }
}

}  // namespace
