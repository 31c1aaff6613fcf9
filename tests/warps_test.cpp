// Warps as effects: what does not move stays as it is, whole pixels move whole, reductions are calm, and what a few
// look-ups add up to.
#include "operators/mipmap/image_transform.h"
#include "support/user_abort.h"
#include "testing/engine_rig.h"
#include "testing/filter_node.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>

#include <malloc.h>

#include <cmath>

using namespace velloran;
using namespace velloran_tests;

namespace {

// Nothing, that differs from pixel to pixel as far as the compiler knows.
const std::string varying_zero = "(- (element_of Back 0) (element_of Back 0))";
const std::string varying_xy = "(+ xy " + varying_zero + ")";

HostFrame rendered(EngineRig& rig, const std::string& expression) {
    EXPECT_TRUE(rig.load_body("dest = " + expression)) << expression;
    EXPECT_EQ(rig.render(), 0) << expression;
    return rig.dest;
}

void fill(EngineRig& rig, const std::function<double(int, int)>& value) {
    for (int y = 0; y < rig.shape.height; ++y)
        for (int x = 0; x < rig.shape.width; ++x)
            for (int c = 0; c < 3; ++c)
                rig.inputs[0][rig.index(x, y, c)] =
                    static_cast<uint16_t>(std::clamp(std::lround(value(x, y) * 4095), 0L, 4095L) << 4);
}

TEST(Warps, WhatDoesNotMoveStaysAsItIs) {
    const std::vector<std::string> calls = {
        "(warp Source (v2 x y) [0 0] 0)",
        "(warp Source (v2 x y) [1 2] 1)",
        "(warp Source " + varying_xy + " [0 0] 0)",
        "(warp Source " + varying_xy + " [1 2] 0)",
        "(warp Source " + varying_xy + " [0 0] 1)",
        "(warp Source " + varying_xy + " [2 1] 1)",
        "(warp_rel Source (v2 " + varying_zero + " 0) [0 0] 0)",
        "(warp_rel Source (v2 " + varying_zero + " 0) [1 2] 1)",
        "(warp_filter Source " + varying_xy + " [0 0] [0 0])",
        "(repeat_warp Source xy " + varying_xy + " [1 3] [0 0] 5)",
        "(repeat_warp_filter Source xy xy [0 0] [0 0] [1 1] [0 0] 3)",
        "(chroma_warp Source xy " + varying_xy + " [0 0] 7 [1 0.5 0] [0 1 0] [0 0.2 1] 1 1)",
        "(blur_warp Source xy " + varying_xy + " [1 1] 1 [0 0] 0 0)",
        "(blur_warp Source xy xy [1 2] 1 [1 2] 1 0)",
    };
    const Shape shapes[] = {{37, 23}, {20, 41}, {1, 9}, {1, 1}, {50, 30, 2}, {37, 23, 3}, {40, 30, 1, {7, 5, 11, 13}}};
    for (const Shape& shape : shapes)
        for (const float aspect : {1.0f, 1.21f, 0.5f})
            for (int field = 0; field < 3; ++field) {
                EngineRig rig(2, shape);
                the_frame->pixel_aspect_ratio = aspect;
                the_frame->render_field = field;
                const HostFrame want = rendered(rig, "Source");
                for (const std::string& call : calls)
                    ASSERT_EQ(rendered(rig, call), want) << call << " of " << shape.width << "x" << shape.height
                                                         << " step " << shape.step << " aspect " << aspect;
                the_frame->pixel_aspect_ratio = 1;
            }
}

// Sample v of n; -1: outside.
int wrapped(int v, int n, int wrap) {
    if (v >= 0 && v < n) return v;
    if (wrap == 0) return -1;
    const int times = static_cast<int>(std::floor(static_cast<double>(v) / n)), within = v - times * n;
    return wrap == 2 && (times & 1) ? n - 1 - within : within;
}

// A pixel is 128 / 4096. Over an edge, over a corner, and several frames away.
TEST(Warps, WholePixelsMoveWhole) {
    const Shape shape = {64, 40};
    EngineRig rig(2, shape);
    const struct { int dx, dy; } moves[] = {{3, -2}, {-70, 45}, {150, -170}};
    for (const auto& move : moves)
        for (int kinds = 0; kinds < 9; ++kinds) {
            const int wrap_x = kinds % 3, wrap_y = kinds / 3;
            const std::string moved = "[" + std::to_string(move.dx / 32.0) + " " + std::to_string(move.dy / 32.0) + "]";
            const std::string wraps = " [" + std::to_string(wrap_x) + " " + std::to_string(wrap_y) + "] ";
            for (const std::string& call :
                 {"(warp Source (+ xy " + moved + ")", "(warp Source (+ " + varying_xy + " " + moved + ")",
                  "(warp_rel Source (+ " + moved + " " + varying_zero + ")"})
                for (const char* const filter : {"0)", "1)"}) {
                    rendered(rig, call + wraps + filter);
                    for (int y = 0; y < shape.height; ++y)
                        for (int x = 0; x < shape.width; ++x) {
                            const int sx = wrapped(x + move.dx, shape.width, wrap_x);
                            const int sy = wrapped(y + move.dy, shape.height, wrap_y);
                            ASSERT_EQ(rig.result(x, y, 1), sx < 0 || sy < 0 ? 0 : rig.source(0, sx, sy, 1))
                                << call << wraps << filter << " at " << x << ", " << y;
                        }
                }
        }
}

// Where a part of the input counts as the picture, what stands around it has the colour of the surround, or none.
TEST(Warps, AroundAPartOfTheInputStandsTheSurround) {
    const RasterRect part = {5, 7, 11, 6};
    EngineRig rig(2, {.width = 32, .height = 16, .input_crop = part});  // a pixel is 256 / 4096
    for (const bool on : {false, true}) {
        the_frame->surround_color = {{1000, 2000, 3000, 4096}, on};
        const auto outside = [&](int c) { return on ? 1000 * (c + 1) : 0; };
        for (const auto& move : {RasterRect{0, 0, 0, 0}, RasterRect{7, -3, 0, 0}, RasterRect{-40, 21, 0, 0}})
            for (int kinds = 0; kinds < 9; ++kinds)
                for (const char* const call : {"(warp Source ", "(warp_rel Source (- "}) {
                    const int wrap_x = kinds % 3, wrap_y = kinds / 3;
                    const bool relative = call[5] == '_';
                    const std::string text = call + ("(+ " + varying_xy) + " [" + std::to_string(move.x / 16.0) + " " +
                                             std::to_string(move.y / 16.0) + "]) " + (relative ? "xy) [" : "[") +
                                             std::to_string(wrap_x) + " " + std::to_string(wrap_y) + "] 0)";
                    rendered(rig, text);
                    for (int y = 0; y < rig.shape.height; ++y)
                        for (int x = 0; x < rig.shape.width; ++x)
                            for (int c = 0; c < 3; ++c) {
                                const int sx = wrapped(x + move.x - part.x, part.w, wrap_x);
                                const int sy = wrapped(y + move.y - part.y, part.h, wrap_y);
                                const int want =
                                    sx < 0 || sy < 0 ? outside(c) : rig.source(0, part.x + sx, part.y + sy, c);
                                ASSERT_EQ(rig.result(x, y, c), want) << text << " at " << x << ", " << y;
                            }
                }
        // Whatever looks far outside sees nothing else.
        const std::string far = "(+ " + varying_xy + " 9)", further = "(+ xy [12 -9])";
        const std::string colors = "[1 1 1] [1 1 1] [1 1 1] 1 1)";
        for (const std::string& call :
             {"(warp Source " + far + " [0 0] 1)", "(warp_filter Source " + far + " [1.5 2] [0 0])",
              "(repeat_warp Source " + far + " " + further + " [1 2] [0 0] 5)",
              "(repeat_warp_filter Source " + far + " " + further + " [0 0] [2 1] [1 1] [0 0] 5)",
              "(blur_warp Source " + far + " " + further + " [1 2] 1 [0 0] 0 0)",
              "(blur_warp Source " + far + " " + further + " [1 1] 1 [0 0] 1 0)",
              "(chroma_warp Source " + far + " " + further + " [0 0] 5 " + colors,
              "(chroma_warp_filter Source " + far + " " + further + " [0 0] [1 1] [0 0] 5 " + colors}) {
            rendered(rig, call);
            for (int y = 0; y < rig.shape.height; ++y)
                for (int x = 0; x < rig.shape.width; ++x)
                    for (int c = 0; c < 3; ++c) ASSERT_NEAR(rig.result(x, y, c), outside(c), 1) << call;
        }
    }
    the_frame->surround_color = {};
}

// Mean and spread over the middle of the frame.
struct Calm {
    double mean, spread;
};
Calm calm(const EngineRig& rig) {
    double sum = 0, squares = 0;
    int n = 0;
    for (int y = rig.shape.height * 15 / 32; y < rig.shape.height * 17 / 32; ++y)
        for (int x = rig.shape.width * 15 / 32; x < rig.shape.width * 17 / 32; ++x, ++n) {
            const double v = rig.result(x, y, 0);
            sum += v;
            squares += v * v;
        }
    return {sum / n, std::sqrt(std::max(squares / n - sum * sum / n / n, 0.0))};
}

TEST(Warps, ReductionsAreGreyAndCalmWithTheFilter) {
    const Shape shape = {512, 512};
    EngineRig rig(2, shape);
    const struct {
        const char* name;
        std::function<double(int, int)> value;
    } pictures[] = {
        {"checker", [](int x, int y) { return (x + y) & 1; }},
        {"zone plate", [](int x, int y) { return 0.5 + 0.5 * std::cos(0.003 * (x * x + y * y)); }},
    };
    for (const auto& picture : pictures)
        for (const std::string& xy : {std::string("xy"), varying_xy}) {
            SCOPED_TRACE(picture.name + xy);
            fill(rig, picture.value);
            rendered(rig, "(warp Source (* " + xy + " 8.3) [0 0] 0)");
            EXPECT_GT(calm(rig).spread, 500);
            rendered(rig, "(warp Source (* " + xy + " 8.3) [0 0] 1)");
            EXPECT_LT(calm(rig).spread, 100);
            EXPECT_NEAR(calm(rig).mean, 2048, 100);
        }
}

// 24 frames of a slow zoom in whose middle the levels change: the mean of each pixel's variance, and the means of the
// absolute differences from frame to frame.
struct Zoom {
    double variance = 0;
    std::vector<double> differences;
};
Zoom zoom_through(EngineRig& rig, double middle, const std::string& call) {
    constexpr int frames = 24;
    Zoom zoom;
    HostFrame before;
    std::vector<double> sums, squares;
    for (int i = 0; i < frames; ++i) {
        std::string text = call;
        text.replace(text.find('Z'), 1, std::to_string(middle * std::pow(2.0, (i - frames / 2) * 0.01)));
        const HostFrame now = rendered(rig, text);
        sums.resize(now.size());
        squares.resize(now.size());
        double sum = 0;
        for (size_t k = 0; k < now.size(); ++k) {
            const double v = now[k] >> 4;
            sums[k] += v;
            squares[k] += v * v;
            if (!before.empty()) sum += std::abs(v - (before[k] >> 4));
        }
        if (!before.empty()) zoom.differences.push_back(sum / static_cast<double>(now.size()));
        before = now;
    }
    for (size_t k = 0; k < sums.size(); ++k)
        zoom.variance += (squares[k] - sums[k] * sums[k] / frames) / frames / static_cast<double>(sums.size());
    return zoom;
}

TEST(Warps, ASlowZoomNeitherShimmersNorPops) {
    EngineRig rig(2, {192, 144});
    std::mt19937 rng(4);
    const struct {
        const char* name;
        std::function<double(int, int)> value;
    } pictures[] = {
        {"noise", [&](int, int) { return static_cast<double>(rng() % 4096) / 4095; }},
        {"checker", [](int x, int y) { return (x + y) & 1; }},
        {"zone plate", [](int x, int y) { return 0.5 + 0.5 * std::cos(0.02 * (x * x + y * y)); }},
    };
    for (const auto& picture : pictures) {
        fill(rig, picture.value);
        for (const std::string& xy : {std::string("xy"), varying_xy})
            for (const double middle : {2.0, 4.0, 8.0, 16.0}) {
                SCOPED_TRACE(testing::Message() << picture.name << " by " << middle << " " << xy);
                const std::string call = "(warp Source (* " + xy + " Z) [2 2] ";
                const Zoom calm = zoom_through(rig, middle, call + "1)"), wild = zoom_through(rig, middle, call + "0)");
                // Noise is as calm as means of as many samples as it is shrunk by, and nothing is worse.
                EXPECT_LT(calm.variance * middle * middle, 1.1 * wild.variance);
                std::vector<double> differences = calm.differences;
                std::sort(differences.begin(), differences.end());
                EXPECT_LT(differences.back(), 1.75 * differences[differences.size() / 2] + 12);
            }
    }
}

// The right half of the frame shows one value, the left half the other.
TEST(Warps, EachWarpHasItsOwnMipmap) {
    EngineRig rig(2, {48, 36});
    const std::string a = "(warp Source (* (v2 x y) 0.8) [1 1] 0)", b = "(warp Back (* (v2 x y) 1.7) [2 2] 1)",
                      c = "(warp Source (* (v2 x y) 1.3) [1 1] 0)",
                      d = "(warp (blur Source 0.1 1 1 0) (* (v2 x y) 1.3) [1 1] 0)";
    const auto halves = [&](const std::string& right, const std::string& left, int fills) {
        const HostFrame r = rendered(rig, right), l = rendered(rig, left);
        const HostFrame both = rendered(rig, "(if> x 0 " + right + " " + left + ")");
        EXPECT_EQ(ran(event_pass, ""), fills) << "how often a level 0 was made of an input";
        for (size_t i = 0; i < both.size(); ++i)
            ASSERT_EQ(both[i], (static_cast<int>(i / 3) % 48 >= 24 ? r : l)[i]) << right << left << i;
    };
    halves(a, b, 2);
    halves(a, c, 1);
    halves(d, a, 1);
    halves("(warp " + a + " (* (v2 x y) 2) [1 1] 1)", c, 2);
    // There and back.
    rendered(rig, "(warp (warp Source (+ xy [0.25 0]) [1 1] 0) (- xy [0.25 0]) [1 1] 0)");
    for (int x = 0; x < 48; ++x) EXPECT_EQ(rig.result(x, 5, 0), rig.source(0, x, 5, 0));
}

// A zoom looks every stretch of a line up at the same height, a turn does not, and at the borders some places lie
// outside; rows come in bands of their task's.
TEST(Warps, StepsAreAlikeOnEveryTargetAndAnyNumberOfTasks) {
    const std::string pictures[] = {
        "(element_of Source 0)", "(v2 (element_of Source 0) (element_of Source 1))", "Source",
        "(v4 (element_of Source 0) (element_of Source 1) (element_of Source 2) (element_of Source 1))"};
    for (const char* ways : {"(* xy 0.95) (* xy 0.9) [1 2] [0 0] 5", "(* xy 1.02) (* xy 1.1) [1 1] [1 2] 3",
                             "(* xy [-0.9 0.8]) (* xy [0.3 0.7]) [1 1] [0 0] 4", "xy (* xy 0.93) [1 1] [2 2] 40",
                             "xy (rotate xy 0.004 [0 0.1]) [1 1] [0 0] 6",
                             "(rotate xy 0.02 [0 0]) (rotate xy -0.02 [0.1 0]) [1 1] [0 0] 7"}) {
        for (const std::string& picture : pictures) {
            const std::string call = "(repeat_warp " + picture + " " + ways + ")";
            HostFrame want;
            for_each_row_target([&](int64_t) {
                for (const int tasks : {1, 3}) {
                    EngineRig rig(tasks, {333, 61});
                    const HostFrame got = rendered(rig, call);
                    if (want.empty()) want = got;
                    EXPECT_TRUE(got == want) << call << " on " << tasks << " tasks";
                }
            });
        }
    }
}

TEST(Warps, StepsAddUp) {
    const Shape shape = {64, 16};  // a pixel is 128 / 4096
    EngineRig rig(1, shape);
    const auto at = [&](int x, int c) { return rig.source(0, std::clamp(x, 0, 63), 8, c); };
    const auto check = [&](const std::string& call, const std::function<double(int, int)>& want) {
        rendered(rig, call);
        for (int x = 8; x < 56; ++x)
            for (int c = 0; c < 3; ++c) ASSERT_NEAR(rig.result(x, 8, c), want(x, c), 0.51) << call << " at " << x;
    };
    const std::string ends = "xy (+ xy [0.125 0])";  // four pixels
    const std::string colors = "[1 0 0] [0 1 0] [0 0 1]";
    check("(repeat_warp Source " + ends + " [1 1] [0 0] 2)",
          [&](int x, int c) { return 0.5 * (at(x, c) + at(x + 4, c)); });
    check("(repeat_warp Source " + ends + " [1 3] [0 0] 2)",
          [&](int x, int c) { return 0.25 * at(x, c) + 0.75 * at(x + 4, c); });
    check("(repeat_warp Source " + ends + " [1 0] [0 0] 2)", [&](int x, int c) { return at(x, c); });
    check("(repeat_warp Source " + ends + " [1 1] [0 0] 5)",
          [&](int x, int c) { return (at(x, c) + at(x + 1, c) + at(x + 2, c) + at(x + 3, c) + at(x + 4, c)) / 5.0; });
    check("(repeat_warp_filter Source " + ends + " [0 0] [0 0] [1 3] [0 0] 2)",
          [&](int x, int c) { return 0.25 * at(x, c) + 0.75 * at(x + 4, c); });
    check("(chroma_warp Source " + ends + " [0 0] 3 " + colors + " 1 1)",
          [&](int x, int c) { return at(x + 2 * c, c); });
    check("(chroma_warp Source " + ends + " [0 0] 3 " + colors + " 1 0.5)",
          [&](int x, int c) { return 0.5 * at(x + 2 * c, c); });
    // Twice as much red as green and blue: kept, or evened out.
    check("(chroma_warp Source xy xy [0 0] 3 [2 1 1] [2 1 1] [2 1 1] 1 0.5)",
          [&](int x, int c) { return 0.5 * at(x, c); });
    check("(chroma_warp Source xy xy [0 0] 3 [2 1 1] [2 1 1] [2 1 1] 0 0.5)",
          [&](int x, int c) { return (c ? 0.375 : 0.75) * at(x, c); });
    // Five steps, whose middles are nearest to pixels 0 to 4.
    check("(blur_warp Source " + ends + " [1 1] 1 [0 0] 0 0)",
          [&](int x, int c) { return (at(x, c) + at(x + 1, c) + at(x + 2, c) + at(x + 3, c) + at(x + 4, c)) / 5.0; });
    check("(blur_warp Source " + ends + " [1 1] 0.5 [0 0] 0 0)",
          [&](int x, int c) { return (at(x, c) + at(x + 1, c) + at(x + 2, c) + at(x + 3, c) + at(x + 4, c)) / 10.0; });
    // Weights 9, 7, 5, 3, 1.
    check("(blur_warp Source " + ends + " [1 0] 1 [0 0] 0 0)", [&](int x, int c) {
        return (9 * at(x, c) + 7 * at(x + 1, c) + 5 * at(x + 2, c) + 3 * at(x + 3, c) + at(x + 4, c)) / 25.0;
    });
}

TEST(Warps, ASmearKeepsTheBordersBright) {
    EngineRig rig(2, {40, 30});
    fill(rig, [](int, int) { return 0.75; });
    for (const char* const wrap : {"[0 0]", "[1 1]", "[2 2]", "[0 2]"})
        for (const char* const fine : {"0", "1"}) {
            rendered(rig, std::string("(blur_warp Source xy (+ xy [0.9 -0.7]) [1 2] 1 ") + wrap + " " + fine + " 0)");
            for (int y = 0; y < 30; ++y)
                for (int x = 0; x < 40; ++x) ASSERT_EQ(rig.result(x, y, 0), rig.source(0, 0, 0, 0)) << wrap << x << y;
        }
    // Lines that lie wholly outside.
    rendered(rig, "(blur_warp Source (+ xy 3) (+ xy 4) [1 1] 1 [0 0] 0 0)");
    EXPECT_EQ(rig.result(20, 15, 0), 0);
}

int looks = 0, patience = 0;

// A user who has seen enough at any moment of a frame: it ends, and the next one is whole. So it is where only a part
// of the input counts as the picture.
TEST(Warps, AUserEndsThemAtAnyMoment) {
    double (*const clock)() = abort_clock;
    abort_clock = [] { return 3.0 * std::max(++looks - patience, 0); };
    for (const RasterRect& part : {RasterRect{0, 0, 0, 0}, RasterRect{20, 31, 60, 170}})
        for (const char* const body :
             {"(warp Source (* xy 1.3) [1 2] 0)", "(warp_rel Source (* xy xy) [0 1] 2)",
              "(warp_filter Source (* xy 0.9) [1.5 0.5] [0 0])", "(repeat_warp Source xy (* xy 0.8) [1 2] [2 1] 5)",
              "(chroma_warp_filter Source xy (* xy 0.9) [0 0] [1 1] [1 1] 3 [1 0 0] [0 1 0] [0 0 1] 1 1)",
              "(blur_warp (warp Source (rotate xy 0.1 [0 0]) [0 0] 1) xy (* xy 0.9) [1 1] 1 [2 2] 1 0)"}) {
            SCOPED_TRACE(body);
            EngineRig rig(1, {.width = 120, .height = 260, .input_crop = part});
            rig.host.host.read_pen = [] { return spark_host::Pen{0, 0, looks > patience ? 1.0f : 0.0f}; };
            patience = 1 << 30;
            ASSERT_TRUE(rig.load_body(std::string("dest = ") + body));
            ASSERT_EQ(rig.render(), 0);
            looks = 0;
            ASSERT_EQ(rig.render(), 0);
            const HostFrame want = rig.dest;
            const int all = looks;
            ASSERT_GT(all, 4);
            for (int at = 0; at < all; ++at) {
                looks = 0;
                patience = at;
                rig.inputs[0][0] ^= 0x10;  // nothing kept will do
                rig.render();
                EXPECT_TRUE(render_aborted_p() || at + 3 > all) << at;  // two looks find the pen held
                looks = 0;
                patience = 1 << 30;
                rig.inputs[0][0] ^= 0x10;
                ASSERT_EQ(rig.render(), 0);
                ASSERT_EQ(rig.dest, want) << "after an end at look " << at << " of " << all;
            }
        }
    abort_clock = clock;
}

TEST(Warps, FacetsShowTheWholePicture) {
    const Shape shape = {96, 96};
    EngineRig rig(2, shape);
    fill(rig, [](int x, int) { return x / 95.0; });
    rendered(rig, "(flys_eye Source xy [2 2] [0 0] 0 1 0 1 0 [2 2])");
    // Along the row through the middle a facet is 24 pixels wide, and shows the width of the frame.
    for (int x = 39; x < 57; ++x) EXPECT_NEAR(rig.result(x, 48, 0), 4095 * ((x - 47.5) * 4 + 47.5) / 95, 60) << x;
    EXPECT_NEAR(rig.result(24 + 48, 48, 0), rig.result(48, 48, 0), 2);
    const int middle = rig.result(48, 48, 0);
    rendered(rig, "(flys_eye Source xy [2 2] [0 0] 0 1 0 1 1 [2 2])");
    EXPECT_NEAR(rig.result(48, 48, 0), middle, 60);
    EXPECT_LT(rig.result(59, 48, 0), 200);  // the border
}

TEST(Warps, DropsMoveOutwards) {
    const Shape shape = {64, 48};
    EngineRig rig(2, shape);
    const auto field = [&](const char* rotate, int drops) {
        return rendered(rig,
                        "(v3_to_v4 (* 4 (+ 0.125 (v3 (element_of d 0) (element_of d 1) 0))) 1) d = (drops 1 xy 0.1 "
                        "[3 3] 0 " +
                            std::string(rotate) + " [0.1 0.5] [0.1 0.2] " + std::to_string(drops) + ")");
    };
    const HostFrame none = field("0", 0), radial = field("0", 1), turned = field("0.25", 1);
    int most = 0;
    for (size_t i = 0; i < none.size(); i += 3) {
        const auto part = [&](const HostFrame& frame, size_t e) { return (frame[i + e] >> 4) - (none[i + e] >> 4); };
        EXPECT_EQ(none[i] >> 4, 2048);
        EXPECT_NEAR(part(turned, 0), -part(radial, 1), 5);
        EXPECT_NEAR(part(turned, 1), part(radial, 0), 5);
        most = std::max(most, part(radial, 0) * part(radial, 0) + part(radial, 1) * part(radial, 1));
    }
    const double largest = std::sqrt(most) / 4;
    EXPECT_GT(largest, 0.03 * 4096);
    EXPECT_LE(largest, 0.1 * 4096 + 2);
}

TEST(Warps, PicturesTransformAsAWhole) {
    const int n = 24;
    const FilterFrameRig rig(n, n);
    const std::vector<Plane> source = {random_plane(n, n, 0, 8191, 1), random_plane(n, n, 0, 8191, 2)};
    const FixPixel* const planes[] = {source[0].data(), source[1].data()};
    Mipmap map;
    mipmap_set_sizes(&map, n, n, 2, {.multi_level = true});
    std::vector<int16_t> data(mipmap_data_bytes(map) / 2);
    mipmap_set_data(&map, data.data());
    mipmap_fill_from_planes(map, planes);
    Plane out[2] = {Plane(n * n), Plane(n * n)};
    FixPixel* const to[] = {out[0].data(), out[1].data()};
    // A quarter turn, whose samples lie on samples.
    transform_images(make_image_transform(map, {0, 1, 0, -1, 0, n - 1}, 1), to, n, n);
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x)
            for (size_t c = 0; c < 2; ++c)
                ASSERT_EQ(out[c][static_cast<size_t>(y * n + x)], source[c][static_cast<size_t>((n - 1 - x) * n + y)]);
    // Four by four samples to one.
    transform_images(make_image_transform(map, {4, 0, 1.5, 0, 4, 1.5}, 1), to, n, n);
    for (int y = 0; y < n / 4; ++y)
        for (int x = 0; x < n / 4; ++x) {
            double mean = 0;
            for (int k = 0; k < 16; ++k) mean += source[0][static_cast<size_t>((4 * y + k / 4) * n + 4 * x + k % 4)];
            ASSERT_NEAR(out[0][static_cast<size_t>(y * n + x)], mean / 16, 2);
        }
}

TEST(Warps, MemoryStaysFlat) {
    EngineRig rig(1, {33, 20});
    ASSERT_TRUE(
        rig.load_body("a = (warp Source (* " + varying_xy +
                      " 2) [1 1] 1) "
                      "dest = (+ (repeat_warp a xy (* xy 0.5) [1 1] [1 1] 4) (blur_warp Back xy (* xy 0.5) [1 1] 1 "
                      "[0 0] 0 0))"));
    const auto frames = [&](int n) {
        for (int i = 0; i < n; ++i) {
            rig.set_frame(i % 24);
            ASSERT_EQ(rig.render(), 0);
        }
    };
    frames(20);
    const size_t before = mallinfo2().uordblks;
    frames(1000);
    EXPECT_LE(mallinfo2().uordblks, before + 4096);
}

}  // namespace
