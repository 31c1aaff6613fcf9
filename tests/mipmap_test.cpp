// The mipmap and look-ups in it, against a model that wraps, halves and weighs one sample at a time.
#include "operators/mipmap/look_up.h"
#include "operators/mipmap/mipmap_rows.h"
#include "testing/caught_messages.h"
#include "testing/engine_rig.h"
#include "testing/filter_node.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace velloran;
using namespace velloran_tests;

namespace {

int ceil_half(int n) { return (n + 1) / 2; }

// One channel of a level.
struct ModelPlane {
    int w, h;
    std::vector<int> v;
    int at(int x, int y) const { return v[static_cast<size_t>(y * w + x)]; }
};

// Tap x of an axis of n samples; -1: outside.
int tap(int x, int n, WrapKind kind) {
    if (x >= 0 && x < n) return x;
    if (kind == wrap_none) return -1;
    if (kind == wrap_repeat) return ((x % n) + n) % n;
    return x < 0 ? 0 : n - 1;
}

// A position brought into -2048 .. period - 2048.
int model_wrap(int64_t p, int n, WrapKind kind) {
    if (kind == wrap_none) return static_cast<int>(p);
    const int64_t period = int64_t{n} * 4096;
    const int64_t times = static_cast<int64_t>(std::floor(static_cast<double>(p + 2048) / static_cast<double>(period)));
    const int64_t inside = p - times * period;
    return static_cast<int>(kind == wrap_mirror && (times & 1) ? period - 4096 - inside : inside);
}

int model_bilinear(const ModelPlane& plane, int x, int y, WrapKind kind_x, WrapKind kind_y) {
    const int ix = x >> 12, iy = y >> 12, fx = x & 4095, fy = y & 4095;
    const int w11 = (fx * fy) >> 12, weights[4] = {4096 - fx - fy + w11, fx - w11, fy - w11, w11};
    int sum = 0;
    for (int k = 0; k < 4; ++k) {
        const int tx = tap(ix + (k & 1), plane.w, kind_x), ty = tap(iy + (k >> 1), plane.h, kind_y);
        if (tx >= 0 && ty >= 0) sum += plane.at(tx, ty) * weights[k];
    }
    return sum >> 12;
}

struct Picture {
    int w, h, elements;
    MipmapSettings settings;
    std::vector<ModelPlane> channels;
    std::vector<int16_t> data;
    Mipmap map;

    Picture(int width, int height, int n, const MipmapSettings& of, unsigned seed)
        : w(width), h(height), elements(n), settings(of) {
        std::mt19937 rng(seed);
        for (int c = 0; c < n; ++c) {
            ModelPlane plane = {w, h, {}};
            for (int i = 0; i < w * h; ++i) plane.v.push_back(static_cast<int>(rng() % 8192));
            channels.push_back(plane);
        }
        fill();
    }
    void fill() {
        mipmap_set_sizes(&map, w, h, elements, settings);
        data.assign(mipmap_data_bytes(map) / 2, 1111);
        mipmap_set_data(&map, data.data());
        for (int y = 0; y < h; ++y) {
            std::vector<std::vector<int32_t>> lines;
            const int32_t* pointers[4];
            for (const ModelPlane& plane : channels)
                lines.emplace_back(plane.v.begin() + y * w, plane.v.begin() + (y + 1) * w);
            for (size_t c = 0; c < lines.size(); ++c) pointers[c] = lines[c].data();
            mipmap_set_row(map, y, 0, pointers, w);
        }
        mipmap_fill_levels(map);
    }

    // Means of two, rounded down in x and up in y; a last one alone.
    ModelPlane level(int c, int lx, int ly) const {
        ModelPlane p = channels[static_cast<size_t>(c)];
        for (; lx > 0; --lx) {
            ModelPlane half = {ceil_half(p.w), p.h, {}};
            for (int y = 0; y < half.h; ++y)
                for (int x = 0; x < half.w; ++x)
                    half.v.push_back(2 * x + 1 < p.w ? (p.at(2 * x, y) + p.at(2 * x + 1, y)) / 2 : p.at(2 * x, y));
            p = half;
        }
        for (; ly > 0; --ly) {
            ModelPlane half = {p.w, ceil_half(p.h), {}};
            for (int y = 0; y < half.h; ++y)
                for (int x = 0; x < half.w; ++x)
                    half.v.push_back(2 * y + 1 < p.h ? (p.at(x, 2 * y) + p.at(x, 2 * y + 1) + 1) / 2 : p.at(x, 2 * y));
            p = half;
        }
        return p;
    }
};

const struct Size { int w, h; } sizes[] = {{1, 1}, {1, 7}, {6, 1}, {8, 6}, {33, 17}}, large = {190, 23};

// Positions on and between samples, at the borders and corners, and far outside.
Positions random_positions(std::mt19937& rng, const Size& size, int n) {
    Positions p;
    const auto draw = [&](int samples) {
        const int spread[] = {1, 3, 40, 20000};
        const int64_t span = int64_t{samples} * 4096 * spread[rng() % 4];
        const int64_t at = static_cast<int64_t>(rng() % static_cast<uint64_t>(2 * span)) - span + samples * 2048;
        return static_cast<int>(rng() % 4 ? at : at / 2048 * 2048);
    };
    for (int i = 0; i < n; ++i) {
        p.x[i] = draw(size.w);
        p.y[i] = draw(size.h);
    }
    return p;
}

// A line through the picture and out of it, as neighbours look it up: straight on, back, turned, in larger steps, and
// now and then a place of its own.
Positions line_positions(std::mt19937& rng, const Size& size, int n) {
    constexpr double x_steps[] = {1, 0.9, -1, 0.3, 1.7, 2.9, 0}, y_steps[] = {0, 0.01, -0.06, 0.2, 1};
    const double x_step = x_steps[rng() % 7] * 4096, y_step = y_steps[rng() % 5] * 4096;
    Positions p = random_positions(rng, size, n);
    const int x = static_cast<int>(rng() % static_cast<unsigned>(size.w)) * 4096 - (x_step < 0 ? 0 : size.w * 1024);
    const int y = static_cast<int>(rng() % static_cast<unsigned>(size.h * 4096)) - 2048;
    for (int i = 0; i < n; ++i) {
        if (rng() % 40 == 0) continue;
        p.x[i] = x + static_cast<int>(i * x_step) + static_cast<int>(rng() % 3000);
        p.y[i] = y + static_cast<int>(i * y_step);
    }
    return p;
}

class MipmapTest : public testing::TestWithParam<int> {};  // elements

void expect_bilinear(const Picture& picture, const Positions& drawn, int n) {
    const WrapKind kind_x = picture.settings.wrap_x, kind_y = picture.settings.wrap_y;
    for_each_row_target([&](int64_t) {
        const LookUp look_up = make_look_up(picture.map);
        Positions p = drawn;
        wrap_positions(look_up, p, n);
        Plane planes[4];
        FixPixel* out[4];
        for (int c = 0; c < 4; ++c) {
            planes[c].assign(static_cast<size_t>(n), 77);
            out[c] = planes[c].data();
        }
        look_up_bilinear(look_up, p, out, n);
        for (int i = 0; i < n; ++i)
            for (int c = 0; c < picture.elements; ++c)
                ASSERT_EQ(
                    planes[c][static_cast<size_t>(i)],
                    model_bilinear(picture.channels[static_cast<size_t>(c)], model_wrap(drawn.x[i], picture.w, kind_x),
                                   model_wrap(drawn.y[i], picture.h, kind_y), kind_x, kind_y))
                    << "pixel " << i << " at " << drawn.x[i] / 4096.0 << ", " << drawn.y[i] / 4096.0 << " channel "
                    << c;
    });
}

TEST_P(MipmapTest, BilinearLookUpsEqualTheModel) {
    std::mt19937 rng(5);
    const int elements = GetParam();
    for (int kinds = 0; kinds < 9; ++kinds) {
        const auto kind_x = static_cast<WrapKind>(kinds % 3), kind_y = static_cast<WrapKind>(kinds / 3);
        const MipmapSettings settings = {.wrap_x = kind_x, .wrap_y = kind_y};
        SCOPED_TRACE(testing::Message() << "wraps " << kind_x << " " << kind_y);
        for (const Size& size : sizes) {
            SCOPED_TRACE(testing::Message() << size.w << "x" << size.h);
            const FilterFrameRig rig(size.w, size.h);
            expect_bilinear(Picture(size.w, size.h, elements, settings, rng()), random_positions(rng, size, 97), 97);
        }
        const FilterFrameRig rig(large.w, large.h);
        const Picture picture(large.w, large.h, elements, settings, rng());
        for (int i = 0; i < 20; ++i) expect_bilinear(picture, line_positions(rng, large, 131), 131);
    }
}

TEST_P(MipmapTest, FilteredLookUpsEqualTheModel) {
    std::mt19937 rng(6);
    const int elements = GetParam();
    for (const Size& size : sizes)
        for (int kinds = 0; kinds < 9; ++kinds) {
            const auto kind_x = static_cast<WrapKind>(kinds % 3), kind_y = static_cast<WrapKind>(kinds / 3);
            SCOPED_TRACE(testing::Message() << size.w << "x" << size.h << " wraps " << kind_x << " " << kind_y);
            const FilterFrameRig rig(size.w, size.h);
            const Picture picture(size.w, size.h, elements, {.multi_level = true, .wrap_x = kind_x, .wrap_y = kind_y},
                                  rng());
            const int n = 61;
            const bool smooth = rng() % 2;
            const Positions drawn = smooth ? line_positions(rng, size, n) : random_positions(rng, size, n);
            std::array<int32_t, look_up_block> x_level{}, y_level{};
            for (size_t i = 0; i < n; ++i) {
                if (smooth && i % 32) {
                    x_level[i] = x_level[i - 1];
                    y_level[i] = y_level[i - 1];
                    continue;
                }
                const auto draw = [&](int highest) {
                    const int v = static_cast<int>(rng() % static_cast<unsigned>(highest + 1));
                    return rng() % 2 ? v : v & ~4095;
                };
                x_level[i] = draw(picture.map.max_x_level_fix);
                y_level[i] = draw(picture.map.max_y_level_fix);
            }
            for_each_row_target([&](int64_t) {
                const LookUp look_up = make_look_up(picture.map);
                Positions p = drawn;
                wrap_positions(look_up, p, n);
                Plane planes[4];
                FixPixel* out[4];
                for (int c = 0; c < 4; ++c) {
                    planes[c].assign(n, 77);
                    out[c] = planes[c].data();
                }
                look_up_filtered(look_up, p, x_level.data(), y_level.data(), out, n);
                for (size_t i = 0; i < n; ++i)
                    for (int c = 0; c < elements; ++c) {
                        const int fx = x_level[i] & 4095, fy = y_level[i] & 4095, both = (fx * fy) >> 12;
                        const int weights[4] = {4096 - fx - fy + both, fx - both, fy - both, both};
                        int sum = 2048;
                        for (int k = 0; k < 4; ++k) {
                            if (!weights[k]) continue;
                            const int lx = (x_level[i] >> 12) + (k & 1), ly = (y_level[i] >> 12) + (k >> 1);
                            const ModelPlane level = picture.level(c, lx, ly);
                            const auto scaled = [](int v, int to, int from) {
                                if (to == from) return v;
                                const float ratio = static_cast<float>(to) / static_cast<float>(from);
                                return static_cast<int>(std::floor(static_cast<float>(v + 2048) * ratio)) - 2048;
                            };
                            const int sx = scaled(model_wrap(drawn.x[i], size.w, kind_x), level.w, size.w);
                            const int sy = scaled(model_wrap(drawn.y[i], size.h, kind_y), level.h, size.h);
                            sum += model_bilinear(level, sx, sy, kind_x, kind_y) * weights[k];
                        }
                        ASSERT_EQ(planes[c][i], sum >> 12) << "pixel " << i << " channel " << c << " levels "
                                                           << x_level[i] / 4096.0 << ", " << y_level[i] / 4096.0;
                    }
            });
        }
}

TEST_P(MipmapTest, LevelsAreAlikeOnEveryTarget) {
    const int elements = GetParam();
    const FilterFrameRig rig(75, 40);
    const MipmapSettings settings = {.multi_level = true, .wrap_x = wrap_repeat, .wrap_y = wrap_mirror};
    Picture picture(75, 40, elements, settings, 3);
    const std::vector<int16_t> want = on_plain_target([&] {
        picture.fill();
        return picture.data;
    });
    for_each_row_target([&](int64_t) {
        picture.fill();
        EXPECT_EQ(picture.data, want);
    });
}

// Whatever a line holds; a row begins and ends anywhere.
TEST_P(MipmapTest, SamplesAreHeldToTheirRange) {
    std::mt19937 rng(8);
    const int elements = GetParam();
    constexpr int32_t ends[] = {-1, 0, 8191, 8192, 9000, 32767, 32768, -32767, -32768, 65536, INT32_MAX, INT32_MIN};
    for_each_row_target([&](int64_t) {
        for (int n = 1; n < 140; n += 1 + n / 9)
            for (const bool whole : {false, true}) {
                const int low = whole ? -32767 : 0, high = whole ? 32767 : mipmap_highest;
                std::vector<std::vector<int32_t>> lines(4, std::vector<int32_t>(static_cast<size_t>(n)));
                const int32_t* pointers[4];
                for (size_t c = 0; c < 4; ++c) {
                    for (int32_t& v : lines[c]) v = rng() % 2 ? ends[rng() % 12] : static_cast<int32_t>(rng() % 8192);
                    pointers[c] = lines[c].data();
                }
                std::vector<int16_t> out(static_cast<size_t>(n * elements + 1), 1234);
                mipmap_rows().interleave[elements - 1](pointers, out.data(), n, low, high);
                EXPECT_EQ(out.back(), 1234);
                for (int i = 0; i < n * elements; ++i) {
                    const int32_t v = lines[static_cast<size_t>(i % elements)][static_cast<size_t>(i / elements)];
                    ASSERT_EQ(out[static_cast<size_t>(i)], std::clamp(v, low, high)) << i << " of " << n;
                }
            }
    });
}

INSTANTIATE_TEST_SUITE_P(Elements, MipmapTest, testing::Range(1, 5));

// A mipmap larger than the caches is made in another order, pair by pair of rows as tasks come by them.
TEST(Mipmap, ALargeOneIsMadeOfTheSameMeans) {
    for (const int tasks : {1, 3}) {
        EngineRig rig(tasks, {.width = 1203, .height = 907});
        ASSERT_TRUE(rig.load_body("dest = (warp_filter Source (+ xy (element_of Back 0)) [1.5 2.5] [1 2])"));
        ASSERT_EQ(rig.render(), 0);
        const Mipmap& made = mipmap;
        ASSERT_GT(mipmap_data_bytes(made), size_t{16} << 20);
        Mipmap plain;
        mipmap_set_sizes(&plain, made.top_w, made.top_h, made.elements, made.settings);
        std::vector<int16_t> data(mipmap_data_bytes(plain) / 2);
        mipmap_set_data(&plain, data.data());
        std::vector<int32_t> lines[3];
        const int32_t* pointers[3];
        for (int y = 0; y < made.top_h; ++y) {
            for (int c = 0; c < 3; ++c) {
                lines[c].clear();
                for (int x = 0; x < made.top_w; ++x) {
                    const int sample = std::min(rig.source(0, x, y, c), mipmap_highest);
                    lines[c].push_back(sample);
                }
                pointers[c] = lines[c].data();
            }
            mipmap_set_row(plain, y, 0, pointers, made.top_w);
        }
        mipmap_fill_levels(plain);
        const auto samples = static_cast<size_t>(plain.row_samples) * static_cast<size_t>(plain.y_total);
        for (size_t i = 0; i < samples; ++i)
            ASSERT_EQ(made.data[i], data[i])
                << "row " << i / static_cast<size_t>(plain.row_samples) << ", " << tasks << " tasks";
    }
}

TEST(Mipmap, SizesOfLevels) {
    const struct {
        int w;
        std::vector<int> widths;  // without borders
        int highest;
    } rows[] = {{1, {1, 1}, 0}, {2, {2, 1}, 4095}, {5, {5, 3, 2, 1}, 3 * 4096 - 1}, {32767, {}, 14 * 4096 - 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.w);
        Mipmap map;
        mipmap_set_sizes(&map, row.w, 3, 3, {.multi_level = true});
        const int levels = row.widths.empty() ? max_mipmap_levels : static_cast<int>(row.widths.size());
        EXPECT_EQ(map.n_x_levels, levels);
        EXPECT_EQ(map.max_x_level_fix, row.highest);
        for (int i = 0, at = 0; i < static_cast<int>(row.widths.size()); ++i) {
            EXPECT_EQ(map.x_level_w[i], row.widths[static_cast<size_t>(i)] + 2);
            EXPECT_EQ(map.x_level_offset[i], at);
            at += map.x_level_w[i] * 3;
        }
        mipmap_set_sizes(&map, row.w, 3, 4, {});
        EXPECT_EQ(map.n_x_levels, 1);
        // What the host was asked for is enough.
        EXPECT_LE(mipmap_data_bytes(map), mipmap_bytes(row.w, 3, false));
    }
}

TEST(Mipmap, TheFirstLevelIsMadeOfNone) {
    const Messages messages;
    const FilterFrameRig rig(4, 4);
    const Picture picture(4, 4, 1, {.multi_level = true}, 1);
    forked_fill_mipmap_y_level(picture.map, 0);
    EXPECT_EQ(messages.count("8 forked_fill_mipmap_y_level should not get level 0. \n"), 1);
}

}  // namespace
