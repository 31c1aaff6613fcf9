// Looks of their own kind, each against what it says it computes, written out plainly.
#include "operators/looks/gradient_n_rows.h"
#include "operators/looks/jpeg_blocks.h"
#include "operators/looks/light_rows.h"
#include "operators/looks/looks_functions.h"
#include "support/user_abort.h"
#include "testing/caught_messages.h"
#include "testing/filter_node.h"
#include "testing/pixel_call.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <set>

#include <jpeglib.h>

using namespace velloran;
using velloran_tests::FilterFrameRig;
using velloran_tests::Plane;
using velloran_tests::random_plane;

namespace {

std::vector<Plane> random_planes(int n, int width, int height, int low = 0, int high = 4095) {
    std::vector<Plane> planes;
    for (int c = 0; c < n; ++c) planes.push_back(random_plane(width, height, low, high, static_cast<unsigned>(c) + 1));
    return planes;
}

// The limits of the frame as the frame fails.
struct FrameThatMayFail {
    FrameThatMayFail() { the_frame->failed = false; }
    ~FrameThatMayFail() { the_frame->failed = false; }
};

}  // namespace

TEST(AveInRect, IsTheMeanOfTheRectangleAtTheBorderToo) {
    const int width = 31, height = 20;
    const struct {
        double x, y, w, h;
        int left, right, bottom, top;  // [left, right) of the samples
    } rects[] = {
        {0, 0, 4, 4, 13, 17, 8, 12},       {3.5, -2, 5, 3, 16, 21, 6, 9},  // 15 + 3.5 +- 2.5; 10 - 2 +- 1.5
        {0, 0, 1000, 1000, 0, 31, 0, 20},  {0, 0, -6, 4, 12, 18, 8, 12},   // inside out
        {0, 0, 0, 0, 15, 16, 10, 11},      {-500, 0, 10, 4, 0, 1, 8, 12},  // wholly outside
        {500, 900, 10, 4, 30, 31, 19, 20},
    };
    for (const int tasks : {1, 4})
        for (const auto& r : rects) {
            FilterFrameRig rig(width, height, tasks);
            const std::vector<Plane> in = random_planes(3, width, height, -3000, 8000);
            const std::vector<Plane> out = rig.run(image_ave_in_rect, 3, 0, {in, {r.x, r.y}, {r.w, r.h}});
            for (size_t c = 0; c < 3; ++c) {
                double sum = 0;
                for (int y = r.bottom; y < r.top; ++y)
                    for (int x = r.left; x < r.right; ++x) sum += in[c][static_cast<size_t>(y * width + x)];
                const double want = std::floor(sum / ((r.right - r.left) * (r.top - r.bottom)) + 0.5);
                EXPECT_EQ(std::set<FixPixel>(out[c].begin(), out[c].end()), std::set{static_cast<FixPixel>(want)})
                    << r.x << ' ' << r.w;
            }
        }
    // In pixels of the frame: half as many samples of two pixels. And whoever asks is told.
    static std::vector<FixPixel> told;
    save_flicker_ave_last_result = [](const FixPixel* means, int n) { told.assign(means, means + n); };
    FilterFrameRig rig(60, 40, 2, 2);
    const std::vector<Plane> in = {velloran_tests::plane_of(30, 20, [](int x, int y) { return 100 * x + y; })};
    const std::vector<Plane> out = rig.run(image_ave_in_rect, 1, 0, {in, {-10, 6}, {4, 8}});
    EXPECT_EQ(out[0][0], 1000 - 50 + 13 + 0);  // columns 9 and 10, rows 11 to 14: 950 + 12.5, rounded
    EXPECT_EQ(told, std::vector{out[0][7]});
    save_flicker_ave_last_result = nullptr;
}

TEST(AveInMatte, WeighsByTheMatte) {
    const int width = 67, height = 41;
    const std::vector<Plane> in = random_planes(4, width, height, -32767, 32767);
    for (const int tasks : {1, 3}) {
        FilterFrameRig rig(width, height, tasks);
        const std::vector<Plane> matte = {random_plane(width, height, -4096, 9000, 9)};
        const std::vector<Plane> out = rig.run(image_ave_in_matte, 4, 1, {in, matte});
        for (size_t c = 0; c < 4; ++c) {
            double sum = 0, weight = 0;
            for (size_t i = 0; i < in[c].size(); ++i) {
                const double m = std::max<double>(matte[0][i], 0);
                sum += in[c][i] * m;
                weight += m;
            }
            for (const FixPixel v : out[c]) ASSERT_EQ(v, std::floor(sum / weight + 0.5));
        }
        const std::vector<Plane> none = {Plane(in[0].size(), -5)};
        EXPECT_EQ(rig.run(image_ave_in_matte, 1, 1, {std::vector<Plane>{in[0]}, none})[0], Plane(in[0].size(), 0));
    }
}

namespace {

// Every pixel has its place in its colour.
std::vector<Plane> places(int width, int height) {
    return {velloran_tests::plane_of(width, height, [](int x, int) { return x; }),
            velloran_tests::plane_of(width, height, [](int, int y) { return y; }), random_plane(width, height, 0, 400)};
}
std::vector<Plane> deband(FilterFrameRig& rig, const std::vector<Plane>& source, double mask, double threshold,
                          double radius, double converge) {
    const std::vector<Plane> mask_plane = {Plane(source[0].size(), float_to_fix(static_cast<float>(mask)))};
    return rig.run(image_deband, 3, 4, {source, mask_plane, threshold, radius, converge});
}

}  // namespace

TEST(Deband, TakesPixelsNearbyThatAreAlike) {
    const int width = 160, height = 90;
    FilterFrameRig rig(width, height);
    const std::vector<Plane> in = places(width, height);
    EXPECT_EQ(deband(rig, in, 1, 1, 1, 0.9), in) << "a mask of 1 leaves all";
    for (const auto& [mask, threshold, radius, converge] : {std::array{0.0, 0.025, 1.0, 0.8},
                                                            {0.5, 1.0, 0.5, 0.5},
                                                            {0.0, 1.0, 64.0, 0.9},
                                                            {0.0, 0.0, 1.0, 0.9},
                                                            {0.0, 0.0, 1.0, 1.5},
                                                            {-1.0, 0.01, 0.3, 1.0}}) {
        const std::vector<Plane> out = deband(rig, in, mask, threshold, radius, converge);
        const double samples = radius * width / 8 * (1 - mask), limit = std::max(threshold * 4096, 1.0);
        int moved = 0;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const auto at = static_cast<size_t>(y * width + x);
                const int other_x = out[0][at], other_y = out[1][at];
                const auto other = static_cast<size_t>(other_y * width + other_x);
                ASSERT_EQ(out[2][at], in[2][other]) << "all channels of one pixel";
                ASSERT_LE(std::abs(other_x - x), samples + 1);
                ASSERT_LE(std::abs(other_y - y), samples + 1);
                ASSERT_LT(std::max({std::abs(other_x - x), std::abs(other_y - y), std::abs(in[2][other] - in[2][at])}),
                          limit);
                moved += other != at;
            }
        if (threshold > 0) {
            EXPECT_GT(moved, width * height / 2);
        } else {
            EXPECT_EQ(moved, 0);
        }
    }
}

TEST(Deband, DependsOnTheFrameAndNotOnTheTasks) {
    const std::vector<Plane> in = places(100, 60);
    const auto of_frame = [&](float frame, int tasks) {
        FilterFrameRig rig(100, 60, tasks);
        the_frame->time_globals.frame = frame;
        const std::vector<Plane> out = deband(rig, in, 0, 0.1, 1, 0.9);
        the_frame->time_globals.frame = 0;
        return out;
    };
    const std::vector<Plane> want = of_frame(3, 1);
    for (const int tasks : {2, 5, 8}) EXPECT_EQ(of_frame(3, tasks), want);
    EXPECT_NE(of_frame(3.5, 2), want);
    EXPECT_NE(of_frame(4, 2), want);
}

namespace {

struct Mix {
    double n = 6, soft = 1;
    std::array<double, 12> at = {-0.5, -0.2, 0.5, 0.25, 0, 0.5, -0.9, 0.4, 0.7, -0.5, 0.2, -0.1};
    std::array<double, 6> softness = {0.125, 0.25, 0, 0.5, 0.0625, 1}, size = {0, 0.25, 0.125, 0, 0, 0.0625};
};
std::array<double, 3> color_of(int k) { return {k * 0.25 - 0.5, 1.0 / (k + 1), k == 2 ? 9.0 : 0.125 * k}; }
double fixed(double v) { return float_to_fix(static_cast<float>(v)) / 4096.0; }

std::vector<Plane> show(FilterFrameRig& rig, const Mix& m) {
    std::vector<FilterFrameRig::Arg> args = {m.n};
    const auto add = [&](auto begin, size_t count) {
        FilterFrameRig::Arg arg(0.0);
        arg.numbers.assign(begin, begin + static_cast<ptrdiff_t>(count));
        args.push_back(arg);
    };
    for (size_t k = 0; k < 3; ++k) add(m.at.begin() + static_cast<ptrdiff_t>(4 * k), 4);
    for (int k = 0; k < 6; ++k) add(color_of(k).begin(), 3);
    args.push_back(m.soft);
    for (const auto* of : {&m.softness, &m.size})
        for (ptrdiff_t k = 0; k < 6; k += 3) add(of->begin() + k, 3);
    return rig.run(image_gradient_n, 3, 0, args);
}

}  // namespace

TEST(GradientN, MixesColorsByTheDistanceFromTheirDiscs) {
    for (const int step : {1, 3})
        for (const double n : {1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 99.0, -4.0}) {
            FilterFrameRig rig(72, 45, 2, step);
            const Mix mix = {.n = n, .soft = 0.5};
            const std::vector<Plane> got = show(rig, mix);
            for (int y = 0; y < rig.height; ++y)
                for (int x = 0; x < rig.width; ++x) {
                    const double px = (x + 0.5) * step / 36 - 1, py = ((y + 0.5) * step - 22.5) / 36;
                    double sum[3] = {}, weights = 0;
                    for (size_t k = 0; k < std::clamp(n, 1.0, 6.0); ++k) {
                        const double d = std::max(
                            std::hypot(px - fixed(mix.at[2 * k]), py - fixed(mix.at[2 * k + 1])) - mix.size[k], 0.0);
                        const double s = std::max(mix.softness[k] * 0.5, 1.0 / 1024), w = 1 / (d * d + s * s);
                        weights += w;
                        for (size_t c = 0; c < 3; ++c) sum[c] += w * color_of(static_cast<int>(k))[c];
                    }
                    for (size_t c = 0; c < 3; ++c)
                        ASSERT_NEAR(got[c][static_cast<size_t>(y * rig.width + x)],
                                    std::clamp(4096 * sum[c] / weights, -32767.0, 32767.0), 1.5)
                            << n << ' ' << x << ' ' << y << ' ' << c;
                }
        }
    const auto results = [] {
        FilterFrameRig rig(83, 20);
        return show(rig, {});
    };
    const auto want = velloran_tests::on_plain_target(results);
    velloran_tests::for_each_row_target([&](int64_t) { EXPECT_EQ(results(), want); });
}

TEST(Light3d, IsTheSumOfItsLights) {
    const int n = 501;
    std::mt19937 rng(8);
    using velloran_tests::ArgValue;
    using velloran_tests::Range;
    ArgValue source = draw_arg(rng, 3, false, n, Range::picture), normal = draw_arg(rng, 3, false, n, Range::small);
    for (size_t e = 0; e < 3; ++e) normal.lines[e][0] = 0;  // no direction at all
    const auto constant = [](std::vector<double> v) {
        ArgValue arg{true, {}};
        for (const double number : v) arg.lines.push_back({float_to_fix(static_cast<float>(number))});
        return arg;
    };
    const double brights[] = {0.5, 0, 1.5, 1}, sizes[] = {0.25, 0.5, 1, 0}, diffuse[] = {1, 0.75, 0, 2};
    const double enables[] = {1, 0.5, 1, -1};
    const double colors[4][3] = {{1, 0.5, 0.25}, {0, 1, 1}, {0.125, 1, 0}, {9, 9, 9}};
    const double directions[4][3] = {{0.25, 0.5, 1}, {-3, 0, 0.5}, {0, 0, 0.125}, {1, 1, 1}};
    std::vector<ArgValue> args = {source, normal};
    for (const auto* of : {brights, sizes, diffuse}) args.push_back(constant({of[0], of[1], of[2], of[3]}));
    args.push_back(constant({0.25}));
    args.push_back(constant({enables[0], enables[1], enables[2], enables[3]}));
    for (const auto& c : colors) args.push_back(constant({c[0], c[1], c[2]}));
    for (const auto& d : directions) args.push_back(constant({d[0], d[1], d[2]}));
    const auto got = call(pixel_light_3d, 3, args, n);

    const auto unit = [](std::array<double, 3> v) {
        const double length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
        for (double& e : v) e = length > 0 ? e / length : 0;
        return v;
    };
    const auto dot = [](const auto& a, const auto& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; };
    for (int i = 0; i < n; ++i) {
        const auto normal_of_sample = unit({normal.at(0, i) + 0.0, normal.at(1, i) + 0.0, normal.at(2, i) + 0.0});
        for (int c = 0; c < 3; ++c) {
            double scattered = 0.25, reflected = 0;
            for (int k = 0; k < 3; ++k) {
                const auto to_light = unit({directions[k][0], directions[k][1], directions[k][2]});
                const auto half = unit({to_light[0], to_light[1], to_light[2] + 1});
                const double reach = dot(normal_of_sample, to_light);
                if (reach <= 0) continue;
                scattered += colors[k][c] * diffuse[k] * reach;
                reflected += colors[k][c] * brights[k] *
                             std::pow(std::max(dot(normal_of_sample, half), 0.0), 2 / (sizes[k] * sizes[k]));
            }
            ASSERT_NEAR(got[static_cast<size_t>(c)][static_cast<size_t>(i)],
                        source.at(c, i) * scattered + 4096 * reflected, 3)
                << i;
        }
    }
}

namespace {

// What any program does that writes a JPEG and reads it again.
std::vector<uint8_t> plain_round_trip(std::vector<uint8_t> pixels, int width, int height, int quality) {
    jpeg_error_mgr errors;
    jpeg_compress_struct c = {};
    c.err = jpeg_std_error(&errors);
    errors.output_message = [](j_common_ptr) {};
    jpeg_create_compress(&c);
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &bytes, &size);
    c.image_width = static_cast<JDIMENSION>(width);
    c.image_height = static_cast<JDIMENSION>(height);
    c.input_components = 3;
    c.in_color_space = JCS_RGB;
    jpeg_set_defaults(&c);
    c.dct_method = JDCT_IFAST;
    jpeg_set_quality(&c, quality, FALSE);
    jpeg_start_compress(&c, TRUE);
    for (int y = 0; y < height; ++y) {
        JSAMPROW row = &pixels[static_cast<size_t>(y * width * 3)];
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    jpeg_decompress_struct d = {};
    d.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&d);
    jpeg_mem_src(&d, bytes, size);
    jpeg_read_header(&d, TRUE);
    jpeg_start_decompress(&d);
    for (int y = 0; y < height; ++y) {
        JSAMPROW row = &pixels[static_cast<size_t>(y * width * 3)];
        jpeg_read_scanlines(&d, &row, 1);
    }
    jpeg_finish_decompress(&d);
    jpeg_destroy_decompress(&d);
    std::free(bytes);
    return pixels;
}

struct Jpeg {
    double quality = 0.5;
    std::array<double, 3> freqs = {1, 1, 1};
    std::array<double, 2> xy = {1, 1}, tables = {1, 1};
    double rate = 0, density = 0, amp = 0, coherence = 0, seed = 0;
    std::array<double, 2> res = {1, 1};
};
std::vector<Plane> damage(FilterFrameRig& rig, const std::vector<Plane>& in, const Jpeg& j) {
    return rig.run(image_jpeg_damage, 3, 0,
                   {in,
                    j.quality,
                    {j.freqs[0], j.freqs[1], j.freqs[2]},
                    {j.xy[0], j.xy[1]},
                    {j.tables[0], j.tables[1]},
                    j.rate,
                    j.density,
                    j.amp,
                    j.coherence,
                    j.seed,
                    {j.res[0], j.res[1]}});
}

// Four bands, each by itself.
std::vector<Plane> plain_damage(const std::vector<Plane>& in, int width, int height, int quality, int rx, int ry) {
    const int w = (width + rx - 1) / rx, h = (height + ry - 1) / ry, rows = (h + 15) / 4 / 8 * 8;
    std::vector<Plane> out(3, Plane(in[0].size()));
    for (int band = 0; band < 4; ++band) {
        const int first = std::min(band * rows, h), end = band == 3 ? h : std::min(first + rows, h);
        if (first == end) continue;
        std::vector<uint8_t> pixels;
        for (int y = first; y < end; ++y)
            for (int x = 0; x < w; ++x)
                for (size_t c = 0; c < 3; ++c)
                    pixels.push_back(static_cast<uint8_t>(
                        std::clamp(in[c][static_cast<size_t>(y * ry * width + x * rx)] >> 4, 0, 255)));
        pixels = plain_round_trip(pixels, w, end - first, quality);
        for (int y = first * ry; y < std::min(end * ry, height); ++y)
            for (int x = 0; x < width; ++x)
                for (size_t c = 0; c < 3; ++c)
                    out[c][static_cast<size_t>(y * width + x)] = static_cast<FixPixel>(
                        pixels[static_cast<size_t>(((y / ry - first) * w + x / rx) * 3) + c] << 4);
    }
    return out;
}

// Soft shapes, as photographs have, and some beyond white and black.
std::vector<Plane> picture(int width, int height) {
    std::vector<Plane> planes;
    for (int c = 0; c < 3; ++c)
        planes.push_back(velloran_tests::plane_of(width, height, [&](int x, int y) {
            return 2000 + 2500 * std::sin(x * 0.11 + c) * std::cos(y * 0.17 - c);
        }));
    return planes;
}

}  // namespace

TEST(JpegDamage, WithoutDamageIsARoundTripInFourBands) {
    const struct {
        int width, height;
        int rx = 1, ry = 1;
    } sizes[] = {{1, 1},        {7, 9}, {8, 8}, {15, 1}, {1, 40}, {70, 67}, {70, 67, 3, 2}, {20, 20, 100, 100},
                 {33, 26, 1, 5}};
    for (const auto& s : sizes)
        for (const double quality : {-1.0, 0.0, 0.1, 0.5, 1.0, 7.0}) {
            const std::vector<Plane> in = picture(s.width, s.height);
            const int percent = std::clamp(static_cast<int>(quality * 100 + 0.5), 0, 100);
            const std::vector<Plane> want = plain_damage(in, s.width, s.height, percent, s.rx, s.ry);
            SCOPED_TRACE(std::to_string(s.width) + "x" + std::to_string(s.height) + " at " + std::to_string(quality));
            FilterFrameRig rig(s.width, s.height, 3);
            const std::array<double, 2> res = {s.rx + 0.0, s.ry + 0.0};
            EXPECT_EQ(damage(rig, in, {.quality = quality, .res = res}), want);
            // Tables that are left alone, and blocks that are looked at and left as they are.
            EXPECT_EQ(
                damage(rig, in, {.quality = quality, .freqs = {3, 0.5, 9}, .xy = {2, 0}, .tables = {0, 0}, .res = res}),
                want);
            EXPECT_EQ(damage(rig, in, {.quality = quality, .rate = 3, .density = 1, .amp = 0.00025, .res = res}), want);
        }
}

TEST(JpegDamage, DamagesTheSameBlocksOnAnyNumberOfTasks) {
    const int width = 320, height = 200;
    const std::vector<Plane> in = picture(width, height);
    const Jpeg bad = {.quality = 0.9, .rate = 2, .density = 0.125, .amp = 0.5, .coherence = 0.125, .seed = 3};
    std::vector<Plane> want;
    for (const int tasks : {1, 2, 3, 4, 7}) {
        FilterFrameRig rig(width, height, tasks);
        const std::vector<Plane> got = damage(rig, in, bad);
        if (want.empty()) want = got;
        EXPECT_EQ(got, want) << tasks;
    }
    FilterFrameRig rig(width, height);
    const std::vector<Plane> clean = damage(rig, in, {.quality = 0.9});
    int damaged = 0, black_and_white = 0;
    for (int y = 0; y < height; y += 8)
        for (int x = 0; x < width; x += 8) {
            bool differs = false;
            for (size_t c = 0; c < 3; ++c)
                for (int k = 0; k < 64; ++k) {
                    const auto at = static_cast<size_t>((y + k / 8) * width + x + k % 8);
                    differs = differs || want[c][at] != clean[c][at];
                    black_and_white += want[c][at] == 0 || want[c][at] == 4080;
                }
            damaged += differs;
        }
    // An eighth of the blocks, of six that make 16 by 16 pixels, each of which shows in one to four squares of 8 by 8.
    EXPECT_GT(damaged, 1000 / 12);
    EXPECT_LT(damaged, 1000 * 6 / 10);
    EXPECT_GT(black_and_white, 0);
    Jpeg other = bad;
    other.seed = 4;
    EXPECT_NE(damage(rig, in, other), want);
    other = bad;
    other.coherence = 1;
    EXPECT_NE(damage(rig, in, other), want);
    // Extremes: nothing but the picture suffers.
    for (const Jpeg& wild : {Jpeg{.rate = 500000, .density = 500000, .amp = 500000, .coherence = 500000},
                             Jpeg{.quality = 0, .freqs = {-5, 1000, 0}, .xy = {1000, -3}, .tables = {500, -500}}})
        for (const Plane& plane : damage(rig, in, wild))
            for (const FixPixel v : plane) ASSERT_TRUE(v >= 0 && v <= 4080);
}

TEST(JpegDamage, ScalesTheDecodersTablesAlone) {
    const int width = 64, height = 64;
    FilterFrameRig rig(width, height);
    // Stripes across: all but the mean is in the frequencies across.
    const std::vector<Plane> in(3, velloran_tests::plane_of(width, height, [](int x, int) {
                                    return 2048 + 700 * std::cos(x * 0.785398 + 0.39);
                                }));
    const auto contrast = [&](const Jpeg& j) {
        const Plane out = damage(rig, in, j)[1];
        return *std::max_element(out.begin(), out.end()) - *std::min_element(out.begin(), out.end());
    };
    const int plain = contrast({.quality = 0.5});
    EXPECT_NEAR(plain, 1300, 150);
    EXPECT_NEAR(contrast({.quality = 0.5, .xy = {0.5, 1}}), plain / 2, 70);
    EXPECT_NEAR(contrast({.quality = 0.5, .xy = {1, 0}}), plain, 70);
    EXPECT_NEAR(contrast({.quality = 0.5, .xy = {0, 1}}), 0, 70);
    EXPECT_NEAR(contrast({.quality = 0.5, .xy = {0, 1}, .tables = {0.5, 0}}), plain / 2, 70);
    EXPECT_NEAR(contrast({.quality = 0.5, .freqs = {2, 1, 1}}), plain * 1.5, 150);  // frequency 2 lies between 1 and 3
    EXPECT_NEAR(contrast({.quality = 0.5, .freqs = {1, 1, 9}}), plain, 70);
}

TEST(JpegBlocks, HaveTheirHookBeforeTheInverseTransform) {
    const int width = 40, height = 24;
    std::vector<uint8_t> pixels(width * height * 3, 100), work(jpeg_most_bytes(width, height));
    JpegDecoding decoding = {};
    for (auto& table : decoding.table_factors) std::fill(std::begin(table), std::end(table), 1.0f);
    char message[jpeg_message_size];
    // Three by two units of 16 by 16, of which the last column and row hold blocks beyond the picture's: 5 by 3 blocks
    // of brightness and twice 3 by 2 of colour. Grey 100 lies 28 below the middle, and the mean is 8 times that.
    decoding.block_hook = [](int16_t* block, JpegDecoding* d) {
        d->block_run += block[0] == -28 * 8;
        block[0] = static_cast<int16_t>(block[0] + 8 * 3);
        for (int i = 1; i < 64; ++i) EXPECT_EQ(block[i], 0);
        return ++d->block_count > 0;
    };
    EXPECT_EQ(jpeg_round_trip(pixels.data(), width, height, 100, &decoding, work.data(), message), jpeg_done);
    EXPECT_EQ(decoding.block_count, 5 * 3 + 2 * 3 * 2);
    EXPECT_EQ(decoding.block_run, 5 * 3);
    // 3 more of brightness and of both colours.
    EXPECT_NEAR(pixels[0], 103 + 1.402 * 3, 1);
    EXPECT_NEAR(pixels[1], 103 - 0.714 * 3 - 0.344 * 3, 1);
    EXPECT_NEAR(pixels[2], 103 + 1.772 * 3, 1);
    // The hook can stop it.
    decoding.block_count = 0;
    decoding.block_hook = [](int16_t*, JpegDecoding* d) { return ++d->block_count < 7; };
    EXPECT_EQ(jpeg_round_trip(pixels.data(), width, height, 100, &decoding, work.data(), message), jpeg_stopped);
    EXPECT_EQ(decoding.block_count, 7);
}

TEST(JpegDamage, FailsTheFrameWithWordsWhereJpegCannot) {
    velloran_tests::Messages messages;
    const FrameThatMayFail frame;
    FilterFrameRig rig(65501, 2, 2);
    const std::vector<Plane> in(3, Plane(65501 * 2, 99));
    damage(rig, in, {});
    EXPECT_TRUE(the_frame->failed);
    EXPECT_EQ(messages.count("8 jpeg_damage: Maximum supported image dimension is 65500 pixels"), 1);
    // Coarser points fit.
    the_frame->failed = false;
    damage(rig, in, {.res = {2, 1}});
    EXPECT_FALSE(the_frame->failed);
    EXPECT_EQ(messages.count(), 1);
}

TEST(JpegDamage, StopsInABandWhereTheUserAborts) {
    FilterFrameRig rig(640, 640, 3);
    const std::vector<Plane> in = picture(640, 640);
    const Jpeg bad = {.rate = 1, .density = 0.5, .amp = 0.25};
    static double now;
    now = 0;
    double (*const clock)() = abort_clock;
    abort_clock = [] { return now += 0.7; };
    rig.host.host.pen.pressure = 1;
    reset_abort();
    damage(rig, in, bad);
    EXPECT_TRUE(render_aborted_p());
    EXPECT_FALSE(the_frame->failed);
    rig.host.host.pen.pressure = 0;
    abort_clock = clock;
    reset_abort();
    EXPECT_NE(damage(rig, in, bad), damage(rig, in, {}));
}

TEST(Paint, LaysStrokesOfThePicturesColors) {
    const int width = 160, height = 100;
    const std::vector<Plane> in = picture(width, height);
    const auto paint = [&](const std::vector<Plane>& from, double frequency, double seed, int tasks = 2) {
        FilterFrameRig rig(width, height, tasks);
        return rig.run(image_paint, static_cast<int>(from.size()), 2, {from, frequency, 0.0, 1.0, 0.05, seed});
    };
    EXPECT_EQ(paint(in, 0, 1), in);
    const std::vector<Plane> painted = paint(in, 16, 1);
    EXPECT_NE(painted, in);
    EXPECT_NE(painted, paint(in, 16, 2));
    for (const int tasks : {1, 3, 8}) EXPECT_EQ(paint(in, 16, 1, tasks), painted);
    // The picture is still to be seen: each sample is like one nearby. Finer strokes are nearer to it.
    const auto off = [&](const std::vector<Plane>& out) {
        double sum = 0;
        for (size_t c = 0; c < 3; ++c)
            for (size_t i = 0; i < in[c].size(); ++i) sum += std::abs(out[c][i] - in[c][i]);
        return sum / (3.0 * width * height);
    };
    EXPECT_LT(off(painted), 400);
    EXPECT_LT(off(paint(in, 40, 1)), off(paint(in, 6, 1)));
    // Of one colour nothing but bristles can be made, and alpha has none.
    const std::vector<Plane> flat = paint(std::vector<Plane>(4, Plane(width * height, 2000)), 16, 1);
    for (size_t c = 0; c < 4; ++c)
        for (const FixPixel v : flat[c]) ASSERT_NEAR(v, 2000, c == 3 ? 0 : 0.07 * 4096 / 2 + 1);
}
