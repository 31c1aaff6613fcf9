// The image functions of the blurs, and the small parts beside them.
#include "operators/blur/blur_functions.h"

#include "operators/blur/blur_image.h"
#include "operators/blur/blur_variants.h"
#include "operators/blur/dir_blur_image.h"
#include "operators/blur/mask_rows.h"
#include "operators/blur/wu_line.h"
#include "operators/convolve/convolution.h"
#include "operators/tone/thresholds.h"
#include "testing/filter_node.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>

#include <numeric>

using namespace velloran;
using velloran_tests::FilterFrameRig;
using velloran_tests::Plane;
using velloran_tests::plane_of;
using velloran_tests::random_plane;

namespace {

Plane blurred(const Plane& in, int width, int height, double x, double y, int passes, double gain, bool subpixel,
              int edge = 1, bool fields = false) {
    Plane out(in.size());
    const BlurSettings blur = {.x_radius = static_cast<int>(x * 4096),
                               .y_radius = static_cast<int>(y * 4096),
                               .edge_mode = edge,
                               .passes = passes,
                               .subpixel = subpixel,
                               .gain = static_cast<int>(gain * 4096)};
    blur_image(in.data(), out.data(), blur, {.width = width, .height = height, .fields = fields});
    return out;
}

// A black plane with one white point.
Plane point(const FilterFrameRig& rig, int x, int y) {
    return plane_of(rig.width, rig.height, [&](int i, int j) { return i == x && j == y ? 30000 : 0; });
}

// Where the light of a plane lies, in samples from a place.
std::pair<double, double> centroid(const Plane& plane, int width, double x, double y) {
    double sum = 0, sx = 0, sy = 0;
    for (size_t i = 0; i < plane.size(); ++i) {
        sum += plane[i];
        sx += plane[i] * (static_cast<double>(i % static_cast<size_t>(width)) - x);
        sy += plane[i] * (static_cast<double>(i / static_cast<size_t>(width)) - y);
    }
    return {sx / sum, sy / sum};
}

}  // namespace

TEST(Blur, AmountsAreEighthsOfTheSampledFrame) {
    for (const int step : {1, 3}) {
        FilterFrameRig rig(80 * step - step / 2, 45, 2, step);
        const int w = rig.width, h = rig.height;
        ASSERT_EQ(w, 80);
        const Plane a = random_plane(w, h), b = random_plane(w, h, 0, 4095, 2);
        const std::vector<Plane> out =
            rig.run(image_blur, 2, 0, {std::vector<Plane>{a, b}, {0.5, 0.25}, 1.0, {1, 2}, 1.0});
        EXPECT_EQ(out[0], blurred(a, w, h, 5, 2.5, 2, 1, true));
        EXPECT_EQ(out[1], blurred(b, w, h, 5, 2.5, 2, 2, true));
        // Negative amounts do nothing, those above 64 count as 64, shapes are held to three passes.
        EXPECT_EQ(rig.run(image_blur, 1, 0, {std::vector<Plane>{a}, -1.0, 0.0, 1.0, 0.0})[0], a);
        EXPECT_EQ(rig.run(image_blur, 1, 0, {std::vector<Plane>{a}, 1000.0, 9.0, 1.0, 0.0})[0],
                  blurred(a, w, h, 640, 640, 3, 1, false));
        the_frame->render_field = 2;
        EXPECT_EQ(rig.run(image_blur, 1, 0, {std::vector<Plane>{a}, 0.5, 2.0, 1.0, 1.0})[0],
                  blurred(a, w, h, 5, 5, 3, 1, true, 1, true));
        the_frame->render_field = 0;
    }
}

TEST(BlurChannels, ChannelsHaveAmountsOfTheirOwn) {
    FilterFrameRig rig(80, 45);
    const Plane a = random_plane(80, 45), b = random_plane(80, 45, 0, 4095, 2), c = random_plane(80, 45, 0, 4095, 3);
    std::vector<Plane> out =
        rig.run(image_blur_channels, 3, 0, {std::vector<Plane>{a, b, c}, 0.5, {1, 0, 2}, 2.0, 1.0, 1.0});
    EXPECT_EQ(out[0], blurred(a, 80, 45, 5, 5, 3, 1, true));
    EXPECT_EQ(out[1], b);
    EXPECT_EQ(out[2], blurred(c, 80, 45, 10, 10, 3, 1, true));
    // One plane for several channels; a channel without an amount is a copy.
    out = rig.run(image_blur_channels, 3, 0, {std::vector<Plane>{a}, 0.5, {1, 0.5}, 2.0, 1.0, 1.0});
    EXPECT_EQ(out[0], blurred(a, 80, 45, 5, 5, 3, 1, true));
    EXPECT_EQ(out[1], blurred(a, 80, 45, 2.5, 2.5, 3, 1, true));
    EXPECT_EQ(out[2], a);
}

TEST(MaskedBlur, MasksKeepAndDoNotBleed) {
    FilterFrameRig rig(80, 45);
    const Plane in = random_plane(80, 45);
    const auto masked = [&](const Plane& image, const Plane& mask) {
        return rig.run(image_masked_blur, 1, 3,
                       {std::vector<Plane>{image}, std::vector<Plane>{mask}, 0.5, 2.0, 1.0})[0];
    };
    EXPECT_EQ(masked(in, Plane(in.size(), 0)), in);
    const Plane full = masked(in, Plane(in.size(), 4095)), black = blurred(in, 80, 45, 5, 5, 3, 1, true, 0);
    EXPECT_NEAR(full[22 * 80 + 40], black[22 * 80 + 40], 2);
    // White inside and grey outside of a mask: each stays what it is.
    const Plane half = plane_of(80, 45, [](int x, int) { return x < 40 ? 0 : 4095; });
    const Plane two = plane_of(80, 45, [](int x, int) { return x < 40 ? 1000 : 4000; });
    const Plane kept = masked(two, half);
    for (size_t i = 0; i < kept.size(); ++i) ASSERT_NEAR(kept[i], two[i], i % 80 < 40 ? 0 : 8) << i;
    // The same along lines.
    const Plane lines =
        rig.run(image_masked_dir_blur, 1, 4,
                {std::vector<Plane>{two}, std::vector<Plane>{half}, 1.0, 0.05, 0.0, 0.0, 1.0, 0.0, 2.0})[0];
    for (size_t i = 0; i < lines.size(); ++i) ASSERT_NEAR(lines[i], two[i], i % 80 < 40 ? 0 : 8) << i;
}

TEST(MaskedBlur, RowsMixBeforeTheyAreHeld) {
    const int n = 77;
    const Plane c = random_plane(n + 3, 1, -32767, 32767, 5), p = random_plane(n + 3, 1, -32767, 32767, 6),
                m = random_plane(n + 3, 1, -300, 4400, 7), b = random_plane(n + 3, 1, -5, 4100, 8);
    const auto floor_shift = [](int64_t v) { return v >> 12; };
    velloran_tests::for_each_row_target([&](int64_t) {
        for (const int length : {1, 2, 15, 16, 33, n})
            for (const int shift : {0, 1, 3}) {
                Plane masked = p, mixed = c;
                mask_rows().apply_mask(&masked[shift], &m[shift], length);
                mask_rows().resolve_mask(&mixed[shift], &p[shift], &b[shift], &m[3 - shift], length);
                for (int i = 0; i < n + 3; ++i) {
                    const bool inside = i >= shift && i < shift + length;
                    const int64_t v = p[i], mask = m[i], own = inside ? m[i + 3 - 2 * shift] : 0;
                    const int64_t kept = mask >= 4095 ? v : mask <= 0 ? 0 : floor_shift(v * mask);
                    ASSERT_EQ(masked[i], inside ? kept : v) << i;
                    int64_t full = b[i] > 0 && b[i] < 4095 ? v * 4096 / b[i] : v;
                    if (own < 4095) full = c[i] + floor_shift((full - c[i]) * own);
                    full = std::clamp<int64_t>(full, -32767, 32767);
                    ASSERT_EQ(mixed[i], own > 0 ? full : c[i]) << i;
                }
            }
    });
    // Two thirds over the range, half of it over something dark: in range.
    FixPixel dark = -20000;
    const FixPixel bright = 20000, reach = 1000, half = 2048;
    mask_rows().resolve_mask(&dark, &bright, &reach, &half, 1);
    EXPECT_EQ(dark, (81920 - 20000) / 2);
}

TEST(MaskedDirBlur, LinesInsideMasksAreThoseOfTheWholePicture) {
    FilterFrameRig rig(80, 45);
    const size_t n = 80 * 45;
    const std::vector<Plane> in = {random_plane(80, 45), random_plane(80, 45, 0, 4095, 2),
                                   random_plane(80, 45, 0, 4095, 3)};
    const std::vector<double> lengths = {1, 0, 0.4}, shifts = {0.2, 0, -0.5};
    const auto numbers = [](const std::vector<double>& v) {
        FilterFrameRig::Arg arg(0.0);
        arg.numbers = v;
        return arg;
    };
    for (const double edge : {1, 2, 3})
        for (const double scale : {1.0, 0.5, 1.5}) {
            const auto masked = [&](int mask) {
                return rig.run(image_masked_dir_blur, 3, 4,
                               {in, std::vector<Plane>{Plane(n, static_cast<FixPixel>(mask))}, numbers(lengths), 0.1,
                                numbers(shifts), edge, scale, 0.0, 1.0});
            };
            const std::vector<Plane> whole =
                rig.run(image_dir_blur, 3, 1, {in, numbers(lengths), 0.1, numbers(shifts), edge, scale, 0.0, 1.0});
            const int built = fft_kernels_built;
            const std::vector<Plane> full = masked(4095), half = masked(2048);
            EXPECT_EQ(fft_kernels_built, built);
            for (size_t c = 0; c < 3; ++c)
                for (size_t i = 0; i < n; ++i) {
                    ASSERT_NEAR(full[c][i], whole[c][i], 1.5 + 2 * scale) << c << " " << i << " edge " << edge;
                    ASSERT_NEAR(half[c][i], (whole[c][i] + in[c][i]) / 2, 2 + 2 * scale) << c << " " << i;
                }
        }
}

TEST(DirBlur, LinesRunWhereTheyAreTold) {
    FilterFrameRig rig(160, 121);
    const Plane in = point(rig, 80, 60);
    // image, amount, angle, shift, edge_mode, scale, bias, filter
    const auto line = [&](double amount, double angle, double shift, double bias, double filter, double scale = 1) {
        return rig.run(image_dir_blur, 1, 1,
                       {std::vector<Plane>{in}, amount, angle, shift, 0.0, scale, bias, filter})[0];
    };
    // 1.0 is 20 samples; even weight (filter 2): 21 samples with half ones at the ends.
    const Plane right = line(1, 0, 0, 0, 2);
    for (int x = 0; x < 160; ++x) {
        const double cover = std::abs(x - 80) < 10 ? 1 : std::abs(x - 80) == 10 ? 0.5 : 0;
        ASSERT_NEAR(right[60 * 160 + x], 30000 * cover / 20, 1) << x;
    }
    for (const double angle : {0.0, 0.125, 0.25, 0.3, 0.75, 0.9}) {
        const double dx = std::cos(6.2831853 * angle), dy = std::sin(6.2831853 * angle);
        SCOPED_TRACE(angle);
        // Symmetric without shift or bias; shift moves by half lengths, bias and its sign towards the second end.
        const auto [x0, y0] = centroid(line(1, angle, 0, 0, 0), 160, 80, 60);
        EXPECT_NEAR(x0, 0, 0.15);
        EXPECT_NEAR(y0, 0, 0.15);
        const auto [x1, y1] = centroid(line(1, angle, 1, 0, 1), 160, 80, 60);
        EXPECT_NEAR(x1, 10 * dx, 0.4);
        EXPECT_NEAR(y1, 10 * dy, 0.4);
        const auto [x2, y2] = centroid(line(1, angle, 0, 0.5, 0), 160, 80, 60);
        EXPECT_GT(x2 * dx + y2 * dy, 0.5);
    }
    EXPECT_EQ(line(0, 0.1, 0, 0, 0), in);
    EXPECT_EQ(line(0, 0.1, 0, 0, 0, 0.5)[60 * 160 + 80], 15000);
    const int built = fft_kernels_built;
    line(1, 0.3, 0, 0, 1);
    line(1, 0.3, 0, 0, 1);
    EXPECT_EQ(fft_kernels_built, built + 1);
    for (const double bias : {0.25, 0.5}) line(1, 0.3, 0, bias, 1);
    EXPECT_EQ(fft_kernels_built, built + 3);
    // Lengths per channel.
    const std::vector<Plane> out = rig.run(
        image_dir_blur, 3, 1, {std::vector<Plane>{in, in, in}, {0, 0.5, 1}, 0.0, {0, 0, 0}, 0.0, 1.0, 0.0, 2.0});
    EXPECT_EQ(out[0], in);
    EXPECT_NEAR(out[1][60 * 160 + 80], 3000, 1);
    EXPECT_NEAR(out[2][60 * 160 + 80], 1500, 1);
}

TEST(DirBlur, FilterShapes) {
    const double at[] = {0, 0.25, 0.5, 0.75, 1};
    const double tent[] = {1, 0.75, 0.5, 0.25, 0}, bell[] = {1, 0.875, 0.5, 0.125, 0};
    for (int i = 0; i < 5; ++i)
        for (const int side : {-1, 1}) {
            const float t = static_cast<float>(at[i] * side);
            EXPECT_FLOAT_EQ(line_filter_weight(1, 0, t), 1);
            EXPECT_FLOAT_EQ(line_filter_weight(2, 0, t), static_cast<float>(tent[i]));
            EXPECT_FLOAT_EQ(line_filter_weight(3, 0, t), static_cast<float>(bell[i]));
        }
}

TEST(WuLine, WeightsAreSharedAndAdded) {
    const int w = 20, h = 15;
    const auto sum = [](const std::vector<float>& k) { return std::accumulate(k.begin(), k.end(), 0.0); };
    std::vector<float> k(w * h);
    draw_wu_line(k.data(), w, h, 3, 5.25f, 9, 5.25f, 1, nullptr, nullptr);
    EXPECT_FLOAT_EQ(k[5 * w + 6], 0.75f);
    EXPECT_FLOAT_EQ(k[6 * w + 6], 0.25f);
    EXPECT_NEAR(sum(k), 6, 1e-5);
    draw_wu_line(k.data(), w, h, 9, 5.25f, 3, 5.25f, 1, nullptr, nullptr);  // the other way round, over it
    EXPECT_NEAR(k[5 * w + 6], 1.5f, 1e-6);
    std::fill(k.begin(), k.end(), 0.0f);
    draw_wu_line(k.data(), w, h, 4, 2, 7, 11, 1, nullptr, nullptr);  // steep: a step for each row
    for (int y = 3; y <= 10; ++y) EXPECT_NEAR(sum({k.begin() + y * w, k.begin() + (y + 1) * w}), 1, 1e-5);
    EXPECT_NEAR(k[5 * w + 5], 1, 1e-5);
    std::fill(k.begin(), k.end(), 0.0f);
    draw_wu_line(k.data(), w, h, 7.4f, 3.3f, 7.4f, 3.3f, 1, nullptr, nullptr);
    EXPECT_NEAR(k[3 * w + 7], 0.7f, 1e-5);
    EXPECT_NEAR(k[4 * w + 7], 0.3f, 1e-5);
    draw_wu_line(k.data(), w, h, -50, -50, 50, 60, 1, nullptr, nullptr);  // outside is skipped
    // A line of 1.25 pixels: three quarters of the first and half of the second are covered; their weights go by the
    // distance from the middle in pixels.
    std::fill(k.begin(), k.end(), 0.0f);
    const auto tent = [](const void*, float at) { return 1 - std::fabs(at); };
    draw_wu_line(k.data(), w, h, 4.75f, 5, 6, 5, 1, tent, nullptr);
    EXPECT_FLOAT_EQ(k[5 * w + 5], 0.75f * (1 - 0.375f));
    EXPECT_FLOAT_EQ(k[5 * w + 6], 0.5f * (1 - 0.625f));
}

TEST(Thresholds, KeepWhatIsAbove) {
    FilterFrameRig rig(4, 1);
    Plane one = {-100, 1000, 2000, 32000};
    const int32_t t = 1000, none[3] = {0, 0, 0}, three[3] = {1000, 500, 0};
    threshold_images_1(one.data(), &t, 8192, 4);
    EXPECT_EQ(one, (Plane{0, 0, 2000, 32767}));
    const Plane before = one;
    threshold_images_1(one.data(), none, 8192, 4);
    EXPECT_EQ(one, before);
    Plane r = {500, 2000, 0, -500}, g = {400, 1000, 0, 0}, b = {0, 1000, 0, 0};
    FixPixel* planes[] = {r.data(), g.data(), b.data()};
    threshold_images_3(planes, three, 4096, 4);
    // The second sample: 1000 + 500 + 1000 above the thresholds, of 4000.
    const int k = 2500 * 4096 / 4000;
    EXPECT_EQ(r, (Plane{0, static_cast<FixPixel>((2000 * k) >> 12), 0, 0}));
    EXPECT_EQ(g, (Plane{0, static_cast<FixPixel>((1000 * k) >> 12), 0, 0}));
    EXPECT_EQ(b, (Plane{0, static_cast<FixPixel>((1000 * k) >> 12), 0, 0}));
}

TEST(BlurVariants, AverageAlongOneDirection) {
    FilterFrameRig rig(60, 47, 3);
    const int w = 60, h = 47;
    const Plane in = random_plane(w, h, -500, 4500);
    // Three boxes of 3, by adding up; black outside.
    const auto boxes = [&](const std::vector<double>& line, bool mirror) {
        std::vector<double> a = line;
        const int n = static_cast<int>(line.size());
        for (int pass = 0; pass < 3; ++pass) {
            std::vector<double> b(a.size());
            for (int i = 0; i < n; ++i)
                for (int k = i - 1; k <= i + 1; ++k) b[i] += k >= 0 && k < n ? a[k] : mirror ? a[k < 0 ? 0 : n - 1] : 0;
            a = b;
        }
        for (double& v : a) v /= 27;
        return a;
    };
    for (const bool mirror : {false, true}) {
        Plane rows = in, columns = in;
        const LineBlurSettings blur = {.radius = 3 * 4096, .edge_mode = mirror};
        blur_rows_fix(rows.data(), blur, {w, h});
        blur_columns_fix(columns.data(), blur, {w, h});
        for (int y = 0; y < h; ++y) {
            const std::vector<double> want = boxes({in.begin() + y * w, in.begin() + (y + 1) * w}, mirror);
            for (int x = 0; x < w; ++x) ASSERT_NEAR(rows[y * w + x], want[x], 1.001);
        }
        for (int x = 0; x < w; ++x) {
            std::vector<double> line;
            for (int y = 0; y < h; ++y) line.push_back(in[y * w + x]);
            const std::vector<double> want = boxes(line, mirror);
            for (int y = 0; y < h; ++y) ASSERT_NEAR(columns[y * w + x], want[y], 1.001);
        }
    }
    for (const int direction : {2, 3}) {
        Plane out(in.size());
        blur_diagonal(in.data(), out.data(), direction, 3 * 4096, 0, w, h);
        const int dx = direction == 2 ? 1 : -1;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                int i = x, j = y, at = 0;
                for (; j > 0 && i - dx >= 0 && i - dx < w; i -= dx, --j) ++at;
                std::vector<double> line;
                for (; j < h && i >= 0 && i < w; i += dx, ++j) line.push_back(in[j * w + i]);
                if (line.size() < 3) {
                    ASSERT_EQ(out[y * w + x], in[y * w + x]);
                } else {
                    ASSERT_NEAR(out[y * w + x], boxes(line, false)[at], 1.001) << x << " " << y;
                }
            }
    }
    // Along the axes, too, the shorter side bounds the radius: three boxes of 5 for a side of 12.
    for (const int direction : {0, 1}) {
        const int width = direction ? 12 : 60, height = 72 - width;
        Plane out(60 * 12);
        const Plane dot = plane_of(width, height, [&](int x, int y) {
            return (direction ? y : x) == 30 && (direction ? x : y) == 6 ? 32767 : 0;
        });
        blur_diagonal(dot.data(), out.data(), direction, 40 * 4096, 0, width, height);
        for (int i = 0; i < 60; ++i)
            ASSERT_EQ(out[direction ? i * 12 + 6 : 6 * 60 + i] > 0, std::abs(i - 30) <= 15) << direction << " " << i;
    }
    // A part of a frame next to its edge, narrower than a box, is what it is in the whole.
    Plane all = in, part;
    blur_rows_fix(all.data(), {.radius = 12 * 4096, .passes = 1}, {w, h});
    for (int y = 0; y < h; ++y) part.insert(part.end(), &in[y * w], &in[y * w] + 14);
    blur_rows_fix(part.data(), {.radius = 12 * 4096, .passes = 1}, {.width = 14, .height = h, .whole_width = w});
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < 2; ++x) ASSERT_EQ(part[y * 14 + x], all[y * w + x]) << x << " " << y;
    // A wide radius neither overflows nor darkens; the bias moves lines.
    Plane flat(w * h, 4000);
    blur_rows_fix(flat.data(), {.radius = 500 * 4096}, {w, h});
    for (const FixPixel v : flat) ASSERT_NEAR(v, 4000, 60);
    Plane moved = in;
    blur_rows_fix(moved.data(), {.bias = 5 * 4096}, {w, h});
    for (int x = 0; x < w; ++x) ASSERT_EQ(moved[x], x < 5 ? 0 : in[x - 5]);
}
