// Single passes, called as image functions call them: which samples they cover, where they put them, on what grid they
// read. The records of a frame stand as a render left them.

#include "engine/passes.h"
#include "testing/engine_rig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

using namespace velloran;
using namespace velloran_tests;

namespace {

constexpr FixPixel untouched = 0x7abc;

// Planes with room behind them, in which any sample out of place shows.
struct Target {
    explicit Target(int samples) {
        for (int e = 0; e < 4; ++e) {
            memory[e].assign((size_t)samples + 64, untouched);
            planes[e] = memory[e].data();
        }
    }
    std::vector<FixPixel> memory[4];
    fix_plane planes[4];
};

// The switches of the passes as they are outside of tests.
class EnginePasses : public testing::Test {
protected:
    void TearDown() override {
        expanded_rendering_p = crop_images_p = 0;
        the_frame->eval_to_dest = the_frame->eval_to_dest_line = 0;
        image_step = 1;
        the_frame->eval_long_image = nullptr;
    }
};

// ---- What a pass into planes covers

struct AreaCase {
    const char* name;
    int expanded, wrapped, crop_images, dest_line, res_factor;
    RasterRect planes, wrap, crop;  // pixels
    int step;
    RasterRect written;  // samples of the frame's grid
};

const RasterRect whole = {0, 0, 40, 24}, inner = {5, 3, 20, 11}, part = {8, 4, 16, 12};

const AreaCase area_cases[] = {
    {"planes", 0, 0, 0, 0, 1, whole, part, inner, 1, whole},
    {"planes that start elsewhere", 0, 0, 0, 0, 1, inner, whole, whole, 1, inner},
    {"only images are asked to be cropped", 0, 0, 1, 0, 1, whole, part, inner, 1, whole},
    {"only the line is the destination's", 0, 0, 0, 1, 1, whole, part, inner, 1, whole},
    {"crop", 0, 0, 1, 1, 1, whole, part, inner, 1, inner},
    {"crop, samples of 2", 0, 0, 1, 1, 2, whole, part, inner, 2, {2, 1, 11, 6}},
    {"crop, samples of 4", 0, 0, 1, 1, 4, whole, part, inner, 4, {1, 0, 6, 4}},
    {"crop beyond the planes", 0, 0, 1, 1, 1, inner, part, {0, 8, 40, 16}, 1, {5, 8, 20, 6}},
    {"crop beside the planes", 0, 0, 1, 1, 1, inner, part, {30, 16, 5, 5}, 1, {0, 0, 0, 0}},
    {"wrap", 1, 1, 0, 0, 1, whole, part, inner, 1, part},
    {"wrap, samples of 4", 1, 1, 0, 0, 4, whole, part, inner, 4, {2, 1, 4, 3}},
    {"wrap before crop", 1, 1, 1, 1, 1, whole, part, inner, 1, part},
    {"wrap beyond the planes", 1, 1, 0, 0, 1, inner, part, whole, 1, {8, 4, 16, 10}},
    {"wrap that is not asked for", 0, 1, 0, 0, 1, whole, part, inner, 1, whole},
    // The blocks reach out to 4..28 and 0..16; there are planes for no more than they stand for.
    {"blocks", 1, 0, 0, 0, 4, inner, whole, whole, 1, inner},
    {"blocks before crop", 1, 0, 1, 1, 4, whole, part, inner, 1, whole},
    {"blocks, samples of 4", 1, 0, 0, 0, 4, {4, 8, 12, 8}, whole, whole, 4, {1, 2, 3, 2}},
};

TEST_F(EnginePasses, CoverTheAreaAskedFor) {
    for (const AreaCase& c : area_cases)
        for (const int tasks : {1, 3}) {
            SCOPED_TRACE(testing::Message() << c.name << " on " << tasks);
            EngineRig rig(tasks, {40, 24, c.step});
            Genotype* g = rig.load_body("dest = (+ (+ Source x) y)");
            ASSERT_TRUE(g);
            ASSERT_EQ(rig.render(), 0);
            fill_temp_raster(&the_frame->temp_raster_info, rig.host.info, c.step, (c.step - 1) / 2, &c.planes);
            the_frame->temp_raster_info.wrap = {c.wrap.x, c.wrap.y, c.wrap.w, c.wrap.h, 0, 0, 0, 0, 0};
            the_frame->render_info.croprect = c.crop;
            rig.record.wrapped = c.wrapped;
            rig.record.res_factor = (int16_t)c.res_factor;
            expanded_rendering_p = c.expanded;
            crop_images_p = c.crop_images;
            the_frame->eval_to_dest_line = c.dest_line;

            const int pitch = the_frame->temp_raster_info.width, rows = the_frame->temp_raster_info.height;
            const int left = the_frame->temp_raster_info.x / c.step, bottom = the_frame->temp_raster_info.y / c.step;
            Target target(pitch * rows);
            eval_node_tree_into_images(&g->nodes[0], target.planes, 0, 0);
            TearDown();

            const RasterRect& w = c.written;
            for (int i = 0; i < (int)target.memory[0].size(); ++i)
                for (int e = 0; e < 3; ++e) {
                    const int x = left + i % pitch, y = bottom + i / pitch, phase = (c.step - 1) / 2;
                    int want = untouched;
                    if (x >= w.x && x < w.x + w.w && y >= w.y && y < w.y + w.h)
                        want = rig.source(0, x * c.step + phase, y * c.step + phase, e) + x_at(rig.shape, x) +
                               y_at(rig.shape, y);
                    ASSERT_EQ(target.memory[e][(size_t)i], want) << x << "," << y << "," << e;
                }
            EXPECT_EQ(target.memory[3][0], untouched) << "as many planes as elements";
        }
}

// The switches concern passes into planes; a frame is the same with them.
TEST_F(EnginePasses, AreasOfImagesDoNotShowInTheFrame) {
    const struct {
        const char* name;
        int expanded, crop_images;
    } rows[] = {{"crop images", 0, 1}, {"blocks", 1, 0}, {"both", 1, 1}};
    for (const int step : {1, 3})
        for (const auto& row : rows) {
            EngineRig rig(2, {61, 47, step, {20, 15, 13, 9}});
            ASSERT_TRUE(rig.load_body("a = (* Source Back) dest = (+ (blur a 0.1 1 1 0) (* a 0.5))"));
            ASSERT_EQ(rig.render(), 0);
            const HostFrame plain = rig.dest;
            for (int again = 0; again < 2; ++again) {
                rig.record.last_imaged_genotype = nullptr;  // nothing kept
                expanded_rendering_p = row.expanded;
                crop_images_p = row.crop_images;
                ASSERT_EQ(rig.render(), 0);
                EXPECT_EQ(rig.dest, plain) << row.name << " " << step;
            }
            TearDown();
        }
}

// ---- On what grid images are read

// Planes may lie on a finer grid than the pass: of their samples every image_step-th is read, in both directions.
TEST_F(EnginePasses, FinerImagesAreReadInSteps) {
    struct {
        int width, height, k;
        RasterRect crop;
    } const rows[] = {{40, 24, 1, {}}, {40, 24, 2, {}}, {41, 25, 3, {}}, {40, 24, 2, {6, 4, 20, 11}}, {5003, 5, 2, {}}};
    for (const auto& row : rows)
        for (const int tasks : {1, 3}) {
            EngineRig rig(tasks, {row.width, row.height, 1, row.crop});
            // a has images since it is read by the pixel tree and by the filter.
            Genotype* g = rig.load_body("a = (* Source Back) h = (* a 0.5) dest = (+ (+ h x) (blur a 0.01 1 1 0))");
            ASSERT_TRUE(g);
            ASSERT_EQ(rig.render(), 0);
            const int pitch = the_frame->temp_raster_info.width, height = the_frame->temp_raster_info.height;
            const int left = the_frame->temp_raster_info.x, bottom = the_frame->temp_raster_info.y;
            the_frame->temp_raster_info.render_step = image_step = row.k;
            Target target(pitch * height);
            Node* sum = g->nodes[0].args[0];
            ASSERT_STREQ(sum->args[0]->name, "h");
            ASSERT_GT(sum->args[0]->args[0]->image_count, 0);
            eval_node_tree_into_images(sum, target.planes, 0, 0);
            TearDown();
            const int columns = (the_frame->temp_raster_info.w + row.k - 1) / row.k,
                      lines = (height + row.k - 1) / row.k;
            Shape coarse = rig.shape;
            coarse.step = row.k;
            for (int j = 0; j < lines; ++j)
                for (int i = 0; i < columns; ++i) {
                    const int x = left + i * row.k, y = bottom + j * row.k;
                    const int a = rig.source(0, x, y, 1) * rig.source(1, x, y, 1) >> 12;
                    ASSERT_EQ(target.memory[1][(size_t)(j * pitch + i)], (a >> 1) + x_at(coarse, x / row.k))
                        << row.k << " at " << i << "," << j << " on " << tasks;
                }
        }
}

// ---- Into the long image

TEST_F(EnginePasses, LongImagesTakeUnclippedLines) {
    struct {
        const char* body;
        std::function<int(const EngineRig&, int x, int y, int px, int py)> expected;
    } const rows[] = {
        {"dest = (* (element_of Source 1) 100)",
         [](const EngineRig& r, int, int, int px, int py) { return r.source(0, px, py, 1) * 100; }},
        {"dest = (- (element_of Source 0) 400)",
         [](const EngineRig& r, int, int, int px, int py) { return r.source(0, px, py, 0) - 1638400; }},
        {"dest = x", [](const EngineRig& r, int x, int, int, int) { return x_at(r.shape, x); }},
        {"dest = y", [](const EngineRig& r, int, int y, int, int) { return y_at(r.shape, y); }},
        {"dest = 300", [](const EngineRig&, int, int, int, int) { return 300 * 4096; }},
        {"a = 0 dest = (+ a y)", [](const EngineRig& r, int, int y, int, int) { return y_at(r.shape, y); }},
        {"dest = (blur (+ (element_of Source 2) 1) 0 1 1 0)",  // from the filter's planes
         [](const EngineRig& r, int, int, int px, int py) { return r.source(0, px, py, 2) + 4096; }},
    };
    for (const int step : {1, 3})
        for (const RasterRect crop : {RasterRect{}, RasterRect{6, 3, 20, 11}})
            for (const int tasks : {1, 3})
                for (const auto& row : rows) {
                    EngineRig rig(tasks, {40, 24, step, crop});
                    Genotype* g = rig.load_body(row.body);
                    ASSERT_TRUE(g) << row.body;
                    ASSERT_EQ(rig.render(), 0);
                    const int pitch = the_frame->temp_raster_info.width, height = the_frame->temp_raster_info.height;
                    const int left = the_frame->temp_raster_info.x / step,
                              bottom = the_frame->temp_raster_info.y / step;
                    std::vector<int32_t> image((size_t)(pitch * height) + 64, -77777777);
                    the_frame->eval_long_image = image.data();
                    eval_node_tree_into_long_image(&g->nodes[0]);
                    for (int j = 0; j < height; ++j)
                        for (int i = 0; i < pitch; ++i) {
                            const int x = left + i, y = bottom + j, phase = (step - 1) / 2;
                            const int px = std::min(x * step + phase, 39), py = std::min(y * step + phase, 23);
                            ASSERT_EQ(image[(size_t)(j * pitch + i)], row.expected(rig, x, y, px, py))
                                << row.body << " " << x << "," << y << " step " << step;
                        }
                    for (int i = pitch * height; i < pitch * height + 64; ++i) ASSERT_EQ(image[(size_t)i], -77777777);
                }
}

TEST_F(EnginePasses, LongImagesRefuseWhatTheyCannotTake) {
    EngineRig rig;
    std::vector<int32_t> image(37 * 23, 5);
    const struct {
        const char* body;
        bool image;
        const char* message;
    } rows[] = {
        {"dest = (+ Source 1)", true, "ERROR: eval_node_tree_into_long_image: elnum should be 1.\n"},
        {"dest = (+ x 1)", false, "ERROR: eval_node_tree_into_long_image: no long_image.\n"},
    };
    for (const auto& row : rows) {
        Genotype* g = rig.load_body(row.body);
        ASSERT_TRUE(g);
        ASSERT_EQ(rig.render(), 0);
        the_frame->eval_long_image = row.image ? image.data() : nullptr;
        testing::internal::CaptureStdout();
        eval_node_tree_into_long_image(&g->nodes[0]);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.message);
        EXPECT_EQ(image, std::vector<int32_t>(37 * 23, 5));
    }
}

// ---- The lines of a tree

// A line serves again once its value is used up, but not for the node that reads it: a chain needs two for each
// element, whatever its length.
TEST_F(EnginePasses, LinesServeAgain) {
    std::string chain = "(sin x)";
    for (int i = 0; i < 30; ++i) chain = "(sin " + chain + ")";
    const struct {
        std::string body;
        int lines;
    } rows[] = {
        {"dest = (+ Source 1)", 3},
        {"dest = (sin " + chain + ")", 2},
        {"dest = (sin (sin (sin (sin (+ Source Back)))))", 6},
        {"a = (sin Source) dest = (+ (cos (cos (cos a))) a)", 9},  // a, and two in turn
        {"dest = (+ (sin (sin Source)) (cos (cos Back)))", 9},     // the sine, and two in turn
        {"dest = (v3 (sin (sin x)) (sin (sin y)) (sin 1))", 5},    // the result must not lie in its arguments
        {"dest = (max (min Source Source) 0.5)", 6},
    };
    for (const auto& row : rows) {
        EngineRig rig;
        cache_boundaries_p = 0;  // else what never changes is an image
        Genotype* g = rig.load_body(row.body);
        cache_boundaries_p = 1;
        ASSERT_TRUE(g) << row.body;
        ASSERT_EQ(rig.render(), 0);
        build_eval_nodes(&g->nodes[0], eval_as_leaf);
        LineSlots slots;
        assign_line_slots(&slots);
        EXPECT_EQ(slots.count, row.lines) << row.body;
    }
}

// ---- What a pixel function finds

// Its place, wherever the block in hand begins, and the lines of the pass's variables.
TEST_F(EnginePasses, PixelFunctionsKnowTheirPlace) {
    const auto tell_place = [](Node* node) {
        const int32_t* x = *expression_var_ptr_from_index(node->source_lines, 0);
        for (int e = 0; e < node->elnum; ++e)
            for (int i = 0; i < n_pixels; ++i)
                node->lines[e][i] = ((eval_block_column + i) * 3 + eval_block_row * 7 + x[i]) & 4095;
    };
    const Shape shapes[] = {{37, 23}, {37, 23, 1, {6, 4, 20, 11}}, {38, 23, 2, {6, 4, 20, 11}}, {6007, 2}};
    for (const Shape& shape : shapes)
        for (const int tasks : {1, 3}) {
            EngineRig rig(tasks, shape);
            auto* fun = const_cast<NodeFun*>(find_node_fun("one_minus"));
            const NodeFun real = *fun;
            std::fill_n(fun->pixel_funs, fun->arg_type_combo_number, tell_place);
            ASSERT_TRUE(rig.load_body("dest = (- (+ (one_minus Source) x) x)"));
            *fun = real;
            ASSERT_EQ(rig.render(), 0);
            const RasterRect crop = shape.crop.w ? shape.crop : RasterRect{0, 0, shape.width, shape.height};
            for (int y = crop.y; y < crop.y + crop.h; ++y)
                for (int x = crop.x; x < crop.x + crop.w; ++x) {
                    const int i = x / shape.step, j = y / shape.step;
                    ASSERT_EQ(rig.result(x, y, 1), (i * 3 + j * 7 + x_at(shape, i)) & 4095) << x << "," << y;
                }
        }
}

}  // namespace
