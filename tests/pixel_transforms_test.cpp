// Transforms of coordinates: what they promise by their names.
#include "operators/pixel/fix_expt.h"
#include "records/rinfo.h"
#include "records/run_state.h"
#include "testing/pixel_call.h"

#include <cmath>

using namespace velloran;
using namespace velloran_tests;

namespace {

constexpr double pi = 3.14159265358979323846;
constexpr int32_t half_height = 2304;  // of a frame of 16 by 9

// A frame of 1920 x 1080 for the length of a test.
class PixelTransforms : public testing::Test {
protected:
    void SetUp() override {
        the_frame->render_info = {};
        the_frame->render_info.full_ren = {0, 0, 1920, 1080};
        the_frame->pixel_aspect_ratio = 1.0f;
    }
    void TearDown() override { the_frame->render_info = {}; }
};

ArgValue constant(std::vector<int32_t> values) {
    ArgValue arg{true, {}};
    for (const int32_t v : values) arg.lines.push_back({v});
    return arg;
}
// A grid over more than the frame.
ArgValue grid() {
    ArgValue arg{false, {{}, {}}};
    for (int32_t y = -4000; y <= 4000; y += 411)
        for (int32_t x = -6000; x <= 6000; x += 287) {
            arg.lines[0].push_back(x);
            arg.lines[1].push_back(y);
        }
    return arg;
}
std::vector<Samples> run(const char* name, const ArgValue& xy, std::vector<ArgValue> params, int result = 2) {
    params.insert(params.begin(), xy);
    return call(pixel_fun_of(name), result, params, static_cast<int>(xy.lines[0].size()));
}
ArgValue point(int32_t x, int32_t y) { return {false, {{x}, {y}}}; }

const ArgValue none2 = constant({0, 0});
const ArgValue frame_corners[4] = {constant({-4096, -half_height}), constant({4096, -half_height}),
                                   constant({4096, half_height}), constant({-4096, half_height})};

std::vector<ArgValue> pin(const std::array<std::array<int32_t, 2>, 4>& c, ArgValue wrap = none2,
                          ArgValue bulge = none2) {
    return {constant({c[0][0], c[0][1]}),
            constant({c[1][0], c[1][1]}),
            constant({c[2][0], c[2][1]}),
            constant({c[3][0], c[3][1]}),
            wrap,
            bulge};
}

void expect_near(const std::vector<Samples>& got, const ArgValue& want, int steps) {
    for (size_t e = 0; e < 2; ++e)
        for (size_t i = 0; i < got[e].size(); ++i)
            ASSERT_NEAR(got[e][i], want.lines[e][i], steps)
                << "at " << want.lines[0][i] << ", " << want.lines[1][i] << " element " << e;
}

}  // namespace

TEST_F(PixelTransforms, NothingMovedIsTheIdentity) {
    const ArgValue xy = grid();
    expect_near(
        run("corner_pin", xy, {frame_corners[0], frame_corners[1], frame_corners[2], frame_corners[3], none2, none2}),
        xy, 1);
    const ArgValue lens = constant({500});
    expect_near(run("tilt", xy, {none2, lens, none2, constant({0}), constant({4096, 4096}), none2, none2}), xy, 1);
    expect_near(run("perspective", xy, {constant({4096}), constant({1024}), lens}), xy, 1);
}

TEST_F(PixelTransforms, CornersArePinned) {
    const std::array<std::array<int32_t, 2>, 4> quads[] = {
        {{{-3000, -2000}, {3500, -1000}, {2000, 1800}, {-3500, 1500}}},
        {{{-4096, -2304}, {1000, -500}, {1200, 700}, {-4096, 2304}}},
        {{{3000, -1500}, {-3000, -1500}, {-3000, 1500}, {3000, 1500}}},  // mirrored
    };
    for (const auto& quad : quads)
        for (const auto& bulge : {none2, constant({1024, -2048})})
            for (size_t k = 0; k < 4; ++k) {
                const std::vector<Samples> got =
                    run("corner_pin", point(quad[k][0], quad[k][1]), pin(quad, none2, bulge));
                EXPECT_NEAR(got[0][0], k == 1 || k == 2 ? 4096 : -4096, 4);
                EXPECT_NEAR(got[1][0], k >= 2 ? half_height : -half_height, 4);
            }
    // The middle of a picture in projection is where the diagonals cross.
    const auto& q = quads[0];
    const double ax = q[0][0], ay = q[0][1], bx = q[1][0], by = q[1][1];
    const double rx = q[2][0] - ax, ry = q[2][1] - ay, sx = q[3][0] - bx, sy = q[3][1] - by;
    const double t = ((bx - ax) * sy - (by - ay) * sx) / (rx * sy - ry * sx);
    const std::vector<Samples> middle =
        run("corner_pin", point(static_cast<int32_t>(ax + t * rx), static_cast<int32_t>(ay + t * ry)), pin(q));
    EXPECT_NEAR(middle[0][0], 0, 4);
    EXPECT_NEAR(middle[1][0], 0, 4);
}

TEST_F(PixelTransforms, CornersWithoutAPictureShowNothing) {
    const std::array<std::array<int32_t, 2>, 4> quads[] = {
        {{{0, 0}, {0, 0}, {0, 0}, {0, 0}}},
        {{{-4096, 0}, {-1000, 0}, {1000, 0}, {4096, 0}}},
        {{{-4096, -2304}, {4096, -2304}, {4096, -2304}, {4096, -2304}}},
    };
    for (const auto& quad : quads) {
        const std::vector<Samples> got = run("corner_pin", grid(), pin(quad));
        for (const int32_t x : got[0]) ASSERT_GT(std::abs(x), 4 * 4096);
    }
}

TEST_F(PixelTransforms, WrapRepeatsAndMirrors) {
    const std::array<std::array<int32_t, 2>, 4> half = {{{-2048, -1152}, {2048, -1152}, {2048, 1152}, {-2048, 1152}}};
    struct Wrap {
        int32_t x, mode, want;
    };
    // The picture stands at half size; x is in the frame.
    for (const Wrap& w : {Wrap{3072, 0, 6144}, Wrap{3072, 4096, -2048}, Wrap{3072, 8192, 2048},
                          Wrap{-3072, 8192, -2048}, Wrap{5120, 4096, 2048}}) {
        const std::vector<Samples> got = run("corner_pin", point(w.x, 500), pin(half, constant({w.mode, 0})));
        EXPECT_NEAR(got[0][0], w.want, 3) << w.x << " " << w.mode;
        EXPECT_NEAR(got[1][0], 1000, 3);
    }
    // Outside is too: mirrored coordinates run on without a jump.
    int32_t last = 0;
    for (int32_t x = -9000; x < 9000; x += 5) {
        const int32_t u = run("corner_pin", point(x, 0), pin(half, constant({8192, 8192})))[0][0];
        if (x > -9000) {
            ASSERT_LE(std::abs(u - last), 12) << x;
        }
        last = u;
    }
}

TEST_F(PixelTransforms, BulgeSwellsTheSidesAndKeepsTheAxes) {
    const std::vector<ArgValue> params = {
        frame_corners[0], frame_corners[1], frame_corners[2], frame_corners[3], none2, constant({1024, 0})};
    // The right side's middle has moved out by a quarter: it is seen at 1.25.
    EXPECT_NEAR(run("corner_pin", point(5120, 0), params)[0][0], 4096, 3);
    EXPECT_NEAR(run("corner_pin", point(4096, half_height), params)[0][0], 4096, 3);
}

TEST_F(PixelTransforms, TiltIsARealProjection) {
    // The card's points are turned and projected here by hand; tilt must lead back to them.
    const double a = 0.06, b = -0.09, lens = 0.12;
    const auto fixed = [](double v) { return static_cast<int32_t>(std::lround(v * 4096)); };
    const double qa = fixed(a) / 4096.0, qb = fixed(b) / 4096.0, qk = std::tan(pi * fixed(lens) / 4096.0);
    for (const double u : {-1.0, -0.3, 0.0, 0.8})
        for (const double v : {-0.5, 0.0, 0.4}) {
            // About the level line, top away; then about the upright one, right side away.
            const double y = v * std::cos(2 * pi * qb), z1 = v * std::sin(2 * pi * qb);
            const double x = u * std::cos(2 * pi * qa) - z1 * std::sin(2 * pi * qa);
            const double z = u * std::sin(2 * pi * qa) + z1 * std::cos(2 * pi * qa);
            const double depth = 1 + qk * z;
            const std::vector<Samples> got = run("tilt", point(fixed(x / depth), fixed(y / depth)),
                                                 {constant({fixed(a), fixed(b)}), constant({fixed(lens)}), none2,
                                                  constant({0}), constant({4096, 4096}), none2, none2});
            EXPECT_NEAR(got[0][0], u * 4096, 4);
            EXPECT_NEAR(got[1][0], v * 4096, 4);
        }
    // Shift, turn, scale and shear of the picture are undone in the order of the arguments.
    const std::vector<Samples> got = run("tilt", point(fixed(0.3), fixed(0.1)),
                                         {none2, constant({0}), constant({fixed(0.1), fixed(-0.2)}), constant({1024}),
                                          constant({8192, 2048}), none2, none2});
    EXPECT_NEAR(got[0][0], fixed((0.1 + 0.2) / 2), 2);
    EXPECT_NEAR(got[1][0], fixed(-(0.3 - 0.1) / 0.5), 2);
}

TEST_F(PixelTransforms, PerspectiveEndsAtTheHorizon) {
    // From 1/16 turn above the plane, lens of 1/8 turn: the horizon is at y = tan(1/16 turn) / tan(pi / 8).
    const std::vector<ArgValue> params = {constant({4096}), constant({256}), constant({512})};
    const double horizon = std::tan(2 * pi / 16) / std::tan(pi / 8);
    const auto at = [&](double y) { return point(800, static_cast<int32_t>(y * 4096)); };
    EXPECT_EQ(run("perspective_alpha", at(horizon - 0.01), params, 1)[0][0], 4096);
    EXPECT_EQ(run("perspective_alpha", at(horizon + 0.002), params, 1)[0][0], 0);
    EXPECT_GT(std::abs(run("perspective", at(horizon + 0.1), params)[0][0]), 8 * 4096);
    // Lines that run away from the camera stay lines: x over depth is constant.
    const double y1 = 0.2, y2 = 0.6, s = std::sin(2 * pi / 16), c = std::cos(2 * pi / 16), k = std::tan(pi / 8);
    for (const double y : {y1, y2}) {
        const std::vector<Samples> got = run("perspective", at(y), params);
        const double yq = static_cast<int32_t>(y * 4096) / 4096.0;
        EXPECT_NEAR(got[0][0], 800 * s / (s - k * yq * c), 3);
        EXPECT_NEAR(got[1][0], 4096 * yq / (s - k * yq * c), 3);
    }
    const std::vector<ArgValue> card = {constant({0, 800}), constant({512})};
    EXPECT_EQ(run("tilt_alpha", point(0, 0), card, 1)[0][0], 4096);
}

TEST_F(PixelTransforms, KaleidoscopesHaveNoSeamsAndOneCell) {
    std::mt19937 rng(2);
    for (const char* name : {"kaleido", "kaleido_diamonds", "kaleido_oct"})
        for (const int32_t scale : {1000, 4096, -3000}) {
            const double s = std::abs(scale);
            // A step of a few samples in any direction moves the result by no more: mirrors keep lengths.
            for (int trial = 0; trial < 2000; ++trial) {
                const int32_t x = static_cast<int32_t>(rng() % 40000) - 20000,
                              y = static_cast<int32_t>(rng() % 40000) - 20000;
                const int32_t dx = static_cast<int32_t>(rng() % 41) - 20, dy = static_cast<int32_t>(rng() % 41) - 20;
                const std::vector<Samples> a = run(name, point(x, y), {constant({scale})});
                const std::vector<Samples> b = run(name, point(x + dx, y + dy), {constant({scale})});
                const double moved = std::hypot(a[0][0] - b[0][0], a[1][0] - b[1][0]);
                ASSERT_LE(moved, std::hypot(dx, dy) + 3) << name << " at " << x << ", " << y;
                // The result lies in the cell, and what lies in the cell stays.
                const double u = a[0][0] / s, v = a[1][0] / s, e = 4 / s;
                if (std::string(name) == "kaleido") {
                    const double root3 = std::sqrt(3.0);
                    ASSERT_GE(v, -1 / root3 - e);
                    ASSERT_LE(v, 2 / root3 - root3 * std::fabs(u) + 3 * e);
                } else if (std::string(name) == "kaleido_diamonds") {
                    ASSERT_LE(std::fabs(u) + std::fabs(v), 1 + e);
                } else {
                    ASSERT_GE(v, -e);
                    ASSERT_LE(v, u + e);
                    ASSERT_LE(u, 1 + e);
                }
                const std::vector<Samples> again = run(name, point(a[0][0], a[1][0]), {constant({scale})});
                ASSERT_NEAR(again[0][0], a[0][0], 4) << name;
                ASSERT_NEAR(again[1][0], a[1][0], 4) << name;
            }
        }
}

TEST_F(PixelTransforms, PixelsToCoordinates) {
    const std::vector<Samples> corner = run("screen_to_norm", point(1920 * 4096 / 4, 0), {});
    EXPECT_EQ(corner[0][0], -2048);
    EXPECT_EQ(corner[1][0], -half_height);
    const std::vector<Samples> size = run("screen_to_norm_scale", point(960 * 256, 540 * 256), {});
    EXPECT_EQ(size[0][0], 256);
    EXPECT_EQ(size[1][0], 144);
}

TEST(FixExpt, IsExptOfOneSample) {
    EXPECT_EQ(fix_expt(8192, 8192), 16384);
    EXPECT_EQ(fix_expt(-8192, 8192), 16384);
    EXPECT_EQ(fix_expt(1024, 2048), 2048);
}

// Every power of 16 and below whose exact value is a sample is that sample, also on lines and in pictures' own range.
TEST(FixExpt, WholePowersAreExactWhereTheResultIsASample) {
    const PixelFun expt = pixel_fun_of("expt");
    int exact = 0;
    for (int power = -16; power <= 16; ++power) {
        ArgValue base{false, {{}}}, exponent{true, {{power * 4096}}};
        Samples want;
        for (int32_t a = 1; a <= 40 * 4096; a += a < 8192 ? 1 : 64) {
            // (a / 4096)^power * 4096, as a fraction that is cut short with every factor.
            unsigned __int128 up = 4096, down = 1;
            bool small = true;
            for (int i = 0; i < std::abs(power) && small; ++i) {
                up *= power > 0 ? static_cast<unsigned>(a) : 4096u;
                down *= power > 0 ? 4096u : static_cast<unsigned>(a);
                while (!((up | down) & 1)) up >>= 1, down >>= 1;
                small = (up >> 64) == 0 && (down >> 64) == 0;
            }
            if (!small || up % down || up / down > INT32_MAX) continue;
            base.lines[0].push_back(a % 3 ? a : -a);  // a negative base counts by its magnitude
            want.push_back(static_cast<int32_t>(up / down));
        }
        exact += static_cast<int>(want.size());
        SCOPED_TRACE(power);
        ASSERT_EQ(want, call(expt, 1, {base, exponent}, static_cast<int>(want.size()))[0]);
    }
    EXPECT_GT(exact, 10000);
    EXPECT_EQ(fix_expt(1792, 3 * 4096), 343);  // 0.4375 to the third
}
