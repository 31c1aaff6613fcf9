// Whole texts over random frames: what comes out is arithmetic done here, whatever the tasks, sizes, fields, crop and
// step.

#include "frame/lut_files.h"
#include "testing/caught_messages.h"
#include "testing/engine_rig.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

using namespace velloran;
using namespace velloran_tests;

namespace {

int clip(int v) { return std::clamp(v, 0, 4095); }

struct PixelCase {
    const char* name;
    const char* body;
    std::function<int(const EngineRig&, int x, int y, int c)> expected;  // before the clip of the output
};

const PixelCase pixel_cases[] = {
    {"input", "dest = Source", [](const EngineRig& r, int x, int y, int c) { return r.source(0, x, y, c); }},
    {"constant", "dest = [0.25 0.5 -1]",
     [](const EngineRig&, int, int, int c) { return c == 0   ? 1024
                                                    : c == 1 ? 2048
                                                             : -4096; }},
    {"scalar constant", "dest = 0.75", [](const EngineRig&, int, int, int) { return 3072; }},
    {"x", "dest = x", [](const EngineRig& r, int x, int, int) { return x_at(r.shape, x); }},
    {"y", "dest = y", [](const EngineRig& r, int, int y, int) { return y_at(r.shape, y); }},
    {"element of xy", "dest = (+ (element_of xy 1) 0.5)",
     [](const EngineRig& r, int, int y, int) { return y_at(r.shape, y) + 2048; }},
    {"sum", "dest = (- (+ Source Back) 0.25)",
     [](const EngineRig& r, int x, int y, int c) { return r.source(0, x, y, c) + r.source(1, x, y, c) - 1024; }},
    {"three inputs", "dest = (*+ Source Back (* Front x))",
     [](const EngineRig& r, int x, int y, int c) {
         return ((r.source(0, x, y, c) * r.source(1, x, y, c)) >> 12) +
                ((r.source(2, x, y, c) * x_at(r.shape, x)) >> 12);
     }},
    {"used twice", "a = (* Source 0.5) b = (+ a Back) dest = (- (+ a b) (* b b))",
     [](const EngineRig& r, int x, int y, int c) {
         const int a = r.source(0, x, y, c) * 2048 >> 12, b = a + r.source(1, x, y, c);
         return a + b - (b * b >> 12);
     }},
    {"branch per sample", "dest = (if+ x Source Back)",
     [](const EngineRig& r, int x, int y, int c) { return r.source(x_at(r.shape, x) > 0 ? 0 : 1, x, y, c); }},
    {"shared with a filter", "a = (* Source Back) dest = (+ a (blur a 0 1 0.5 0))",
     [](const EngineRig& r, int x, int y, int c) {
         const int a = r.source(0, x, y, c) * r.source(1, x, y, c) >> 12;
         return a + (a >> 1);
     }},
    // Filters of constants are known beforehand.
    {"blurred constant", "dest = (blur 0.25 0.1 1 2 0)", [](const EngineRig&, int, int, int) { return 1024; }},
    {"slope of a constant", "dest = (+ (element_of (grad 0.5 0 1 0) 1) 0.125)",
     [](const EngineRig&, int, int, int) { return 512; }},
    {"detail of a constant", "dest = (* (band_pass [0.1 0.2 0.3] 0.1 0.2 1) 0.5)",
     [](const EngineRig&, int, int, int) { return 1024; }},
    // A side of other elements than the result is made to fit, whether it is decided or not.
    {"coerced side", "p = 1 dest = (element_of (if+_coerce p Back [0 0 0 0]) 3)",
     [](const EngineRig&, int, int, int) { return 4096; }},
};

void expect_frame(const EngineRig& rig, const PixelCase& c) {
    for (int y = 0; y < rig.shape.height; ++y)
        for (int x = 0; x < rig.shape.width; ++x)
            for (int e = 0; e < 3; ++e)
                ASSERT_EQ(rig.result(x, y, e), clip(c.expected(rig, x, y, e)))
                    << c.name << " at " << x << "," << y << "," << e;
}

TEST(EngineEvaluate, TextsGiveTheirArithmeticOnAnyNumberOfTasks) {
    for (const Shape shape : {Shape{37, 23}, Shape{1, 1}, Shape{2, 5}, Shape{701, 9}, Shape{5501, 2}}) {
        for (const int tasks : {1, 2, 3, 8}) {
            EngineRig rig(tasks, shape);
            for (const PixelCase& c : pixel_cases) {
                ASSERT_TRUE(rig.load_body(c.body)) << c.name;
                ASSERT_EQ(rig.render(), 0) << c.name;
                expect_frame(rig, c);
                if (HasFatalFailure()) return;
            }
        }
    }
}

// A tree with many live lines works in narrow blocks; the seams may not show.
TEST(EngineEvaluate, WideTreesAreSeamless) {
    std::string body;
    for (int i = 0; i < 40; ++i)
        body += "a" + std::to_string(i) + " = (+ (* Source 0." + std::to_string(10 + i) + ") x) ";
    std::string sum = "a0";
    for (int i = 1; i < 40; ++i)
        sum = "(max " + sum + " (- a" + std::to_string(i) + " a" + std::to_string(40 - i) + "))";
    for (const int tasks : {1, 3}) {
        EngineRig rig(tasks, {1013, 4});
        ASSERT_TRUE(rig.load_body(body + "dest = " + sum));
        ASSERT_EQ(rig.render(), 0);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 1013; ++x) {
                int a[40];
                for (int i = 0; i < 40; ++i)
                    a[i] =
                        (rig.source(0, x, y, 1) * float_to_fix((float)std::stod("0." + std::to_string(10 + i))) >> 12) +
                        x_at(rig.shape, x);
                int want = a[0];
                for (int i = 1; i < 40; ++i) want = std::max(want, a[i] - a[40 - i]);
                ASSERT_EQ(rig.result(x, y, 1), clip(want)) << x;
            }
    }
}

TEST(EngineEvaluate, CropWritesItsPixelsOnly) {
    for (const RasterRect crop : {RasterRect{5, 3, 20, 11}, RasterRect{36, 22, 1, 1}, RasterRect{0, 0, 37, 2}}) {
        EngineRig rig(2, {37, 23, 1, crop});
        const PixelCase& c = pixel_cases[7];
        rig.load_body(c.body);
        ASSERT_EQ(rig.render(), 0);
        for (int y = 0; y < 23; ++y)
            for (int x = 0; x < 37; ++x) {
                const bool inside = x >= crop.x && x < crop.x + crop.w && y >= crop.y && y < crop.y + crop.h;
                for (int e = 0; e < 3; ++e)
                    ASSERT_EQ(rig.result(x, y, e), inside ? clip(c.expected(rig, x, y, e)) : 0) << x << "," << y;
            }
    }
}

// At a step above 1 a block of pixels shows the sample read at its phase, at coordinates of the block's centre.
TEST(EngineEvaluate, StepsRepeatSamplesOverTheirBlocks) {
    const Shape shapes[] = {{38, 23, 2}, {38, 23, 2, {5, 3, 21, 10}}, {38, 23, 3}, {38, 23, 3, {5, 3, 21, 10}},
                            {38, 23, 4}, {38, 23, 4, {5, 3, 21, 10}}, {8003, 3, 2}};
    for (const Shape& shape : shapes)
        for (const int tasks : {1, 3}) {
            EngineRig rig(tasks, shape);
            const int w = shape.width, h = shape.height, step = shape.step;
            const RasterRect crop = shape.crop.w ? shape.crop : RasterRect{0, 0, w, h};
            rig.load_body("dest = (+ Source (* 0.5 (+ x y)))");
            ASSERT_EQ(rig.render(), 0);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) {
                    const int i = x / step, j = y / step, phase = (step - 1) / 2;
                    const int sx = std::min(i * step + phase, w - 1), sy = std::min(j * step + phase, h - 1);
                    const int place = 2048 * (x_at(shape, i) + y_at(shape, j)) >> 12;
                    const bool inside = x >= crop.x && x < crop.x + crop.w && y >= crop.y && y < crop.y + crop.h;
                    ASSERT_EQ(rig.result(x, y, 0), inside ? clip(rig.source(0, sx, sy, 0) + place) : 0)
                        << step << " " << x << "," << y;
                }
        }
}

// The noise of a row does not depend on the blocks in which it is worked, and it stays out of images that are kept.
TEST(EngineEvaluate, NoiseIsAddedOnce) {
    std::string deep = "Source";  // the same value through many lines
    for (int i = 0; i < 12; ++i) deep = "(max (min " + deep + " (+ Back " + std::to_string(2 + i) + ")) (- Front 3))";
    EngineRig rig(2, {1700, 3});
    const auto noisy = [&](const std::string& body, float amount) {
        EXPECT_TRUE(rig.load_body("dest = " + body));
        rig.add_noise = amount;
        EXPECT_EQ(rig.render(), 0);
        return rig.dest;
    };
    const HostFrame plain = noisy("Source", 0);
    EXPECT_EQ(noisy(deep, 0), plain);
    const HostFrame once = noisy("Source", 0.5f);
    EXPECT_NE(once, plain);
    EXPECT_EQ(noisy(deep, 0.5f), once);
    const HostFrame still = noisy("(+ [0.3 0.4 0.5] (* x 0.1))", 0.5f);
    EXPECT_EQ(rig.render(), 0);
    EXPECT_EQ(rig.dest, still);
}

// The tables of the host layer stand before everything that reads a frame and behind everything that writes one.
TEST(EngineEvaluate, LutsStandAtBothEnds) {
    set_gamma(2);
    ASSERT_NE(input_lut_12[1024], 1024);
    for (const char* body : {"dest = Source", "dest = (blur Source 0.0001 0 1 0)",
                             "s = (* Source 1.0001) dest = (+ (blur s 0 0 0.5 0) (* s 0.5))"})
        for (const int in : {0, 1})
            for (const int out : {0, 1}) {
                EngineRig rig(2);
                ASSERT_TRUE(rig.load_body(body));
                use_input_lut = in;
                use_output_lut = out;
                ASSERT_EQ(rig.render(), 0);
                for (int x = 0; x < 37; ++x) {
                    const int native = rig.source(0, x, 9, 1), v = in ? input_lut_12[native] : native;
                    const int low = out ? output_lut_16[std::max(v - 1, 0)] : v - 1;
                    const int high = out ? output_lut_16[v] : v;
                    EXPECT_GE(rig.result(x, 9, 1), low) << body << in << out;  // halves may lose a step
                    EXPECT_LE(rig.result(x, 9, 1), high) << body << in << out;
                }
            }
    // What never changes goes out by another way.
    EngineRig rig(2);
    ASSERT_TRUE(rig.load_body("dest = (min (+ [0.25 0.25 0.25] (* x x)) 0.25)"));
    use_output_lut = 1;
    for (int frame = 0; frame < 2; ++frame) {
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(ran(event_dest_copy, "min"), 1);
        EXPECT_EQ(rig.result(3, 3, 0), output_lut_16[1024]);
    }
    reset_luts();
}

TEST(EngineEvaluate, FramesThatReadAnAbsentInputAreRefused) {
    const struct {
        const char* body;
        int result;
    } rows[] = {{"dest = (+ (max Source Back) 0)", -1},
                {"dest = (max Back Source)", -1},
                {"s = (max Source Back) dest = (max s (blur s 0 1 0.5 0))", -1},
                {"dest = (blur Back 0.1 1 1 0)", -1},
                {"dest = Back", -1},
                {"dest = (interp Source Back 0)", 0},
                {"dest = (+ Source Front)", 0}};
    for (const auto& row : rows) {
        EngineRig rig(2);
        ASSERT_TRUE(rig.load_body(row.body));
        rig.absent_input = 1;
        EXPECT_EQ(rig.render(), row.result) << row.body;
        rig.absent_input = -1;
        EXPECT_EQ(rig.render(), 0) << row.body;
    }
}

// Holding the pen ends a frame between rows. What was not made whole is made again in the next frame.
TEST(EngineEvaluate, AbortedFramesLeaveNothingBehind) {
    static double now;
    static int calls_left;  // before the pen has been down for long
    double (*const clock)() = abort_clock;
    abort_clock = [] { return now += calls_left-- > 0 ? 0.0 : 3.0; };
    for (const char* body :
         {"dest = (+ Source 0.25)", "dest = (+ Source (* 0.25 (sin (* x 0.5))))",
          "a = (* Source Back) s = (blur (sin (* [1 2 3] x)) 0.1 1 1 0) dest = (+ (+ s (* s 0.5)) (blur a 0.1 1 1 0))"})
        for (const int tasks : {1, 2}) {
            EngineRig rig(tasks);
            calls_left = 1000;
            ASSERT_TRUE(rig.load_body(body));
            ASSERT_EQ(rig.render(), 0);
            const HostFrame good = rig.dest;
            int aborted = 0;
            for (int calls = 1; calls < 40; ++calls) {
                rig.lost = ~0ull;  // so that there is everything to do, and nothing right before it is done
                rig.host.host.pen.pressure = 1;
                calls_left = calls;
                rig.render();
                if (render_aborted_p()) {
                    if (!aborted++ && tasks == 1) {  // before the first row
                        EXPECT_EQ(rig.dest, HostFrame(good.size(), 0)) << body;
                    }
                } else {
                    EXPECT_EQ(rig.dest, good) << body;
                }
                rig.host.host.pen.pressure = 0;
                rig.lost = 0;
                calls_left = 1000;
                ASSERT_EQ(rig.render(), 0);
                ASSERT_EQ(rig.dest, good) << body << " after " << calls;
            }
            EXPECT_GT(aborted, 0);
        }
    abort_clock = clock;
    reset_abort();
}

TEST(EngineEvaluate, EveryTargetGivesTheSameFrames) {
    const auto render_all = [] {
        std::vector<HostFrame> frames;
        EngineRig rig(2, {67, 11});
        for (const char* body : {"dest = (*+ Source Back x)", "a = (* Source Back) dest = (+ a (blur a 0.3 1 1 0))",
                                 "p = (get_prev_dest 0) dest = (- (sin Source) (* p (sqrt Back)))"}) {
            rig.load_body(body);
            rig.render();
            rig.render();
            frames.push_back(rig.dest);
        }
        return frames;
    };
    const auto plain = on_plain_target(render_all);
    for_each_row_target([&](int64_t) { ASSERT_EQ(render_all(), plain); });
}

// A filter gets its argument's value and hands its own on: here the mean of 3 by 3 samples, the edge's own again
// beyond the edges.
TEST(EngineEvaluate, FiltersStandInTheMiddleOfATree) {
    const struct {
        const char* body;
        int readers;  // of the filter's value, which is then to be halved
    } rows[] = {
        {"dest = (- (blur (* Source 0.5) 0.25 0 1 0) (* Back 0.25))", 1},  // 0.25 * 32 / 8 is one sample
        {"s = (* Source 0.5) dest = (- (+ (blur s 0.25 0 1 0) (* s 0.125)) (+ (* Back 0.25) (* s 0.125)))", 1},
        {"f = (blur (* Source 0.5) 0.25 0 1 0) dest = (- (+ f (blur f 0 0 1 0)) (* Back 0.25))", 2},
    };
    for (const int tasks : {1, 3})
        for (const auto& row : rows) {
            EngineRig rig(tasks, {32, 23});
            ASSERT_TRUE(rig.load_body(row.body));
            ASSERT_EQ(rig.render(), 0);
            const auto mirrored = [](int i, int n) { return i < 0 ? -1 - i : i < n ? i : 2 * n - 1 - i; };
            for (int y = 0; y < 23; ++y)
                for (int x = 0; x < 32; ++x) {
                    int sum = 0;
                    for (int i = -1; i <= 1; ++i)
                        for (int j = -1; j <= 1; ++j)
                            sum += rig.source(0, mirrored(x + i, 32), mirrored(y + j, 23), 1) >> 1;
                    const int want = sum / 9 * row.readers - (rig.source(1, x, y, 1) >> 2);
                    ASSERT_NEAR(rig.result(x, y, 1), clip(want), row.readers) << row.body << " " << x << "," << y;
                }
        }
}

// A field writes its own rows, which are where they are in the whole frame.
TEST(EngineEvaluate, FieldsWriteTheirRows) {
    for (const int field : {1, 2}) {
        EngineRig rig(2);
        rig.load_body("dest = (+ Source (* 0.25 y))");
        the_frame->render_field = field;
        ASSERT_EQ(rig.render(), 0);
        for (int y = 0; y < rig.shape.height; ++y)
            for (int x = 0; x < rig.shape.width; ++x) {
                const bool written = (y & 1) != field - 1;
                const int want = rig.source(0, x, y, 2) + (1024 * y_at(rig.shape, y) >> 12);
                ASSERT_EQ(rig.result(x, y, 2), written ? clip(want) : 0) << field << " " << y;
            }
    }
}

// Image passes cover all rows: those of the other field come from their neighbours, from one where there are not two.
TEST(EngineEvaluate, FieldsFillTheOtherRowsOfImages) {
    for (const int field : {1, 2})
        for (const int height : {8, 9}) {
            EngineRig rig(3, {9, height});
            Genotype* g = rig.load_body("dest = (blur Source 0.25 0 1 0)");
            ASSERT_TRUE(g);
            the_frame->render_field = field;
            ASSERT_EQ(rig.render(), 0);
            std::vector<FixPixel> planes[3];
            fix_plane pointers[3];
            for (int e = 0; e < 3; ++e) {
                planes[e].resize((size_t)(9 * height));
                pointers[e] = planes[e].data();
            }
            Node* input = g->nodes[0].args[0];
            ASSERT_TRUE(is_input(input));
            eval_node_tree_into_images(input, pointers, 0, 0);
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < 9; ++x) {
                    int want = rig.source(0, x, y, 0);
                    const bool other = y > 0 && y % 2 == (field == 1 ? 0 : 1);
                    if (other && y + 1 < height)
                        want = (rig.source(0, x, y - 1, 0) + rig.source(0, x, y + 1, 0)) >> 1;
                    else if (other)
                        want = rig.source(0, x, y - 1, 0);
                    ASSERT_EQ(planes[0][(size_t)(y * 9 + x)], want)
                        << field << " of " << height << ": " << x << "," << y;
                }
        }
}

// A function without code is refused when a frame needs it, not before.
TEST(EngineEvaluate, RefusesWhatItCannotRender) {
    Messages messages;
    EngineRig rig;
    EXPECT_EQ(rig.render(), -1);
    EXPECT_EQ(messages.count("8 perform_effect: Globals->effect_genotype is NULL."), 1);
}

}  // namespace
