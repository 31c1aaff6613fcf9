// Dirt on film: how a stamp is laid over a picture, where the stamps of a frame go, hairs over time, scratches, and
// collections that are not as they should be.
#include "operators/image_files/image_file.h"
#include "operators/image_files/qmi_file.h"
#include "operators/noise/random_waves.h"
#include "operators/stamps/random_stamp_images.h"
#include "operators/stamps/scratches.h"
#include "operators/stamps/stamp_collections.h"
#include "operators/stamps/stamps_functions.h"
#include "operators/stamps/transform_and_comp_image.h"
#include "support/hash.h"
#include "support/memory.h"
#include "support/unload.h"
#include "testing/filter_node.h"
#include "testing/jpeg_bytes.h"
#include "testing/row_targets.h"
#include "testing/stamp_files.h"
#include "testing/support_messages.h"

using namespace velloran;
using namespace velloran_tests;

namespace {

using Planes = std::vector<Plane>;

class Stamps : public SupportTest {
protected:
    void TearDown() override {
        run_unload_functions();
        the_frame->time_globals.frame = 0;
        the_frame->pixel_aspect_ratio = 1;
        the_frame->failed = false;
        SupportTest::TearDown();
    }
    void stamps(const std::string& bytes, const char* collection = "dust") {
        write(std::string("stamps/") + collection + "/a.qmi", bytes);
    }
};

int64_t sum_of(const Plane& plane) {
    int64_t sum = 0;
    for (const FixPixel v : plane) sum += v;
    return sum;
}

Planes black(const FilterFrameRig& rig, int channels = 3) {
    return Planes(static_cast<size_t>(channels), Plane(static_cast<size_t>(rig.width * rig.height)));
}

// Dust that is white and all there, with what a case changes.
struct Dust {
    double density = 1, vary_density = 0, opacity = 1, vary_opacity = 0, scale = 1, vary_scale = 0, vary_color = 0,
           vary_brightness = 0, seed = 1;
    std::vector<double> color1 = {1, 1, 1}, color2 = {1, 1, 1};
    Planes draw(FilterFrameRig& rig, int frame, Planes picture) const {
        the_frame->time_globals.frame = static_cast<float>(frame);
        const int n = static_cast<int>(picture.size());
        const auto color = [](const std::vector<double>& c) { return FilterFrameRig::Arg{c[0], c[1], c[2]}; };
        return rig.run(image_dust, n, 0,
                       {std::move(picture), seed, color(color1), color(color2), vary_color, vary_brightness, opacity,
                        vary_opacity, density, vary_density, scale, vary_scale});
    }
};

// A stamp of our own making.
struct OneStamp {
    explicit OneStamp(const SupportTest&, const std::string& path) : all(new_stamp_collection()) {
        load_stamps_from_qmi(path.c_str(), all);
    }
    ~OneStamp() { free_stamp_collection(all); }
    OneStamp(const OneStamp&) = delete;
    OneStamp& operator=(const OneStamp&) = delete;
    Stamp& stamp() const { return all->stamps[0]; }
    StampCollection* all;
};

}  // namespace

TEST_F(Stamps, AStampLiesWhereItIsPutAsItIsStored) {
    constexpr int w = 8, h = 6, width = 24, height = 20;
    const OneStamp one(*this, write("a.qmi", qmi_bytes({{w, h, stamp_samples(w, h)}})));
    const float white[3] = {1, 1, 1};
    struct Case {
        double scale;
        bool flip_x, flip_y;
        int level;
    };
    for (const Case& c : {Case{1, false, false, 0},
                          {1, true, false, 0},
                          {1, false, true, 0},
                          {0.5, false, false, 1},
                          {0.5, true, true, 1}})
        for_each_row_target([&](int64_t) {
            const StampLevel& level = one.stamp().levels[c.level];
            // The middle of an even number of samples lies between two.
            const double left = 7, bottom = 5, x = left + (level.width - 1) / 2.0,
                         y = bottom + (level.height - 1) / 2.0;
            Plane plane(width * height, 0);
            FixPixel* planes[] = {plane.data(), plane.data(), plane.data()};
            const StampCanvas canvas = {planes, 1, width, height, 0, 0};
            const PlacedStamp placed = place_stamp(one.stamp(), {x, y, c.scale, c.scale, c.flip_x, c.flip_y}, white, 1);
            transform_and_comp_image(canvas, placed, 0, height);
            for (int i = 0; i < width * height; ++i) {
                const int u = i % width - static_cast<int>(left), v = i / width - static_cast<int>(bottom);
                const bool inside = u >= 0 && v >= 0 && u < level.width && v < level.height;
                const int from_x = c.flip_x ? level.width - 1 - u : u, from_y = c.flip_y ? v : level.height - 1 - v;
                const int s = inside ? level.samples[from_y * level.pitch + from_x] : 0;
                ASSERT_EQ(plane[static_cast<size_t>(i)], s + (s >> 11)) << c.scale << " " << u << " " << v;
            }
        });
}

TEST_F(Stamps, SizesAndPlacesBetweenSamplesKeepHowMuchIsCovered) {
    constexpr int w = 21, h = 17, width = 700, height = 90;
    const OneStamp one(*this, write("a.qmi", qmi_bytes({{w, h, stamp_samples(w, h)}})));
    double whole = 0;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) whole += one.stamp().levels[0].samples[y * one.stamp().levels[0].pitch + x];
    const float white[3] = {1, 1, 1};
    std::mt19937 rng(3);
    for (const auto& [sx, sy] :
         {std::pair(1.0, 1.0), {3.1, 2.2}, {0.7, 0.7}, {0.31, 0.31}, {0.05, 0.05}, {0.012, 0.012}, {25.0, 0.9}}) {
        double sum = 0;
        constexpr int times = 40;
        for (int i = 0; i < times; ++i) {
            Plane plane(width * height, 0);
            FixPixel* planes[] = {plane.data(), plane.data(), plane.data()};
            const StampCanvas canvas = {planes, 1, width, height, 100, 200};
            const double dx = static_cast<double>(rng()) / 4294967296.0, dy = static_cast<double>(rng()) / 4294967296.0;
            const PlacedStamp placed = place_stamp(
                one.stamp(), {100 + 350 + dx, 200 + 45 + dy, sx, sy, rng() % 2 > 0, rng() % 2 > 0}, white, 1);
            transform_and_comp_image(canvas, placed, 0, height);
            sum += static_cast<double>(sum_of(plane)) / times;
        }
        // Truncation takes up to a few units of each sample, all of them where hardly anything is covered.
        EXPECT_NEAR(sum / (whole * sx * sy), 1, sx < 0.02 ? 0.25 : 0.06) << sx;
    }
}

namespace {

// What image_dust draws, step by step and in floating point.
struct Model {
    const StampCollection* collection;
    int width, height;
    double aspect, samples_to_1920;
    std::vector<double> picture;  // one channel a third

    double cover(const Stamp& stamp, bool mirrored, double u, double v, double reduction) const {
        const int n = std::clamp(static_cast<int>(std::floor(std::log2(reduction) + 0.5)), 0, stamp.level_count - 1);
        if (mirrored) std::swap(u, v);
        const StampLevel& level = stamp.levels[n];
        u = (u + 0.5) / (1 << n) - 0.5;
        v = (v + 0.5) / (1 << n) - 0.5;
        const auto at = [&](double x, double y) {
            const bool inside = x >= 0 && y >= 0 && x < level.width && y < level.height;
            return inside ? level.samples[static_cast<int>(y) * level.pitch + static_cast<int>(x)] / 4095.0 : 0.0;
        };
        const double x = std::floor(u), y = std::floor(v), fx = u - x, fy = v - y;
        return (at(x, y) * (1 - fx) + at(x + 1, y) * fx) * (1 - fy) +
               (at(x, y + 1) * (1 - fx) + at(x + 1, y + 1) * fx) * fy;
    }

    void draw(const Dust& d, int frame) {
        const auto fixed = [](double v) { return static_cast<uint32_t>(std::lround(v * 4096)); };
        const uint32_t first = bit_hash2(fixed(d.seed), static_cast<uint32_t>(frame));
        const double wanted = std::max(0.0, d.density - d.vary_density / 2 + unit_hash(first) * d.vary_density);
        uint32_t running = bit_hash(first);
        const int n = static_cast<int>(wanted) + (unit_hash(running) < wanted - std::floor(wanted));
        std::vector<bool> used(static_cast<size_t>(collection->count));
        for (int k = 0; k < n; ++k) {
            const uint32_t h = bit_hash(running);
            if (std::find(used.begin(), used.end(), false) == used.end()) used.assign(used.size(), false);
            uint32_t i = h % static_cast<uint32_t>(used.size());
            while (used[i]) i = (i + 1) % static_cast<uint32_t>(used.size());
            used[i] = true;
            uint32_t at = bit_hash2(h, i);
            const bool mirrored = unit_hash(at) > 0.5;
            const auto next = [&] { return unit_hash(at = bit_hash(at)); };
            const double x = next() * width - 0.5, y = next() * height - 0.5;
            const bool flip_x = next() > 0.5, flip_y = next() > 0.5;
            const double least = std::max(0.0, d.scale - d.vary_scale / 2);
            const double scale = std::max(0.0, least + next() * (d.scale + d.vary_scale / 2 - least));
            const double t = next(), bright = std::max(0.0, 1 - d.vary_brightness / 2 + next() * d.vary_brightness);
            double color[3];
            for (size_t c = 0; c < 3; ++c)
                color[c] =
                    std::max(0.0, d.color1[c] * t + d.color2[c] * (1 - t) + (next() - 0.5) * d.vary_color) * bright;
            const double opacity = std::clamp(d.opacity + (next() - 0.5) * d.vary_opacity, 0.0, 1.0);
            running = at;
            const Stamp& stamp = collection->stamps[i];
            const double sx = scale * static_cast<double>(mirrored ? stamp.y_scale : stamp.x_scale) * samples_to_1920;
            const double sy =
                scale * static_cast<double>(mirrored ? stamp.x_scale : stamp.y_scale) * samples_to_1920 / aspect;
            const int w = mirrored ? stamp.height : stamp.width, h2 = mirrored ? stamp.width : stamp.height;
            for (int py = 0; py < height; ++py)
                for (int px = 0; px < width; ++px) {
                    const double u = (px - x) / sx * (flip_x ? -1 : 1) + (w - 1) / 2.0;
                    const double v = (py - y) / sy * (flip_y ? 1 : -1) + (h2 - 1) / 2.0;
                    const double a = opacity * cover(stamp, mirrored, u, v, 1 / std::min(sx, sy));
                    for (size_t c = 0; c < 3; ++c) {
                        double& p = picture[static_cast<size_t>(py * width + px) * 3 + c];
                        p += (color[c] - p) * a;
                    }
                }
        }
    }
};

}  // namespace

TEST_F(Stamps, AFramesDustIsDrawnAsTheNumbersSay) {
    stamps(qmi_bytes({{40, 31, stamp_samples(40, 31, 1), 0, 50, 25},
                      {17, 26, stamp_samples(17, 26, 2), 0, 20, 20},
                      {64, 64, stamp_samples(64, 64, 3)}}));
    const struct {
        Dust dust;
        double aspect;
        int step;
    } cases[] = {{{}, 1, 1},
                 {{.density = 8}, 1, 1},  // more than there are stamps: all of them, then all again
                 {{.density = 5.4,
                   .vary_density = 4,
                   .opacity = 0.6,
                   .vary_opacity = 0.5,
                   .scale = 1.4,
                   .vary_scale = 1.8,
                   .vary_color = 0.4,
                   .vary_brightness = 0.9,
                   .seed = 7.25,
                   .color1 = {0.9, 0.2, 0.1},
                   .color2 = {0.1, 0.4, 1.5}},
                  1.5,
                  1},
                 {{.density = 3, .scale = 3}, 1, 2}};
    for (const auto& c : cases)
        for (const int frame : {0, 1, 77}) {
            FilterFrameRig rig(320, 200, 2, c.step);
            the_frame->pixel_aspect_ratio = static_cast<float>(c.aspect);
            StampCollection* const collection = load_stamp_collection("dust");
            ASSERT_EQ(collection->count, 3);
            Planes picture = {random_plane(rig.width, rig.height, 0, 4095, 1),
                              random_plane(rig.width, rig.height, 0, 4095, 2),
                              random_plane(rig.width, rig.height, -900, 9000, 3)};
            Model model = {collection, rig.width, rig.height, c.aspect, 320.0 / 1920 / c.step, {}};
            for (size_t i = 0; i < picture[0].size(); ++i)
                for (const Plane& plane : picture) model.picture.push_back(plane[i] / 4096.0);
            model.draw(c.dust, frame);
            const Planes drawn = c.dust.draw(rig, frame, picture);
            for (size_t i = 0; i < picture[0].size(); ++i)
                for (size_t e = 0; e < 3; ++e)
                    ASSERT_NEAR(drawn[e][i], model.picture[3 * i + e] * 4096, 30) << frame << " " << i << " " << e;
        }
}

TEST_F(Stamps, DensityIsWhatFramesHaveOnAverage) {
    stamps(qmi_bytes({{32, 32, std::string(1024, '\xff'), 0, 1, 1}}));  // covers every frame
    FilterFrameRig rig(192, 108);
    constexpr int frames = 200;
    struct Case {
        Dust dust;
        double mean;
        int least, most;
    };
    for (const Case& c : {Case{{.density = 0.5}, 0.5, 0, 1},
                          {{.density = 2.25}, 2.25, 2, 3},
                          {{.density = 1, .vary_density = 2}, 1, 0, 2}}) {
        int total = 0;
        for (int frame = 0; frame < frames; ++frame) {
            // Light is added up in a channel that starts far below, so that stamps over each other count twice.
            Dust dust = c.dust;
            dust.opacity = 0.001;
            dust.color1 = dust.color2 = {7.9, 7.9, 7.9};
            dust.scale = 10;
            const Planes drawn = dust.draw(rig, frame, black(rig));
            const int level = *std::max_element(drawn[0].begin(), drawn[0].end());
            const int n = (level + 15) / 31;
            EXPECT_GE(n, c.least);
            EXPECT_LE(n, c.most);
            total += n;
        }
        EXPECT_NEAR(total / double(frames), c.mean, 0.12);
    }
}

TEST_F(Stamps, AlphaIsCoveredToo) {
    stamps(qmi_bytes({{2, 2, "\xff\xff\xff\xff", 0, 1, 1}}));
    FilterFrameRig rig(96, 64);
    const Dust dust = {.density = 3, .opacity = 0.5, .scale = 3, .color1 = {1, 1, 1}, .color2 = {1, 1, 1}};
    Planes picture = black(rig, 4);
    const Planes drawn = dust.draw(rig, 0, picture);
    EXPECT_GT(sum_of(drawn[3]), 0);
    EXPECT_EQ(drawn[3], drawn[0]);  // white over clear
}

TEST_F(Stamps, AHairStaysForItsTimeAndTrembles) {
    stamps(coarse_stamps(5), "hairs");
    FilterFrameRig rig(96, 64);
    const auto hairs = [&](int frame, double most, double frequency, double threshold, double amp) {
        the_frame->time_globals.frame = static_cast<float>(frame);
        return rig.run(image_hairs, 3, 0, {black(rig), 3, {1, 1, 1}, 1, most, frequency, threshold, 0.2, 0, amp, 0.5});
    };
    int seen = 0, changed = 0, moved = 0;
    constexpr int frames = 400;
    Planes before, trembling_before;
    for (int frame = 0; frame < frames; ++frame) {
        const Planes now = hairs(frame, 1, 0.3, 0.6, 0), trembling = hairs(frame, 1, 0.3, 0.6, 0.1);
        const bool there = sum_of(now[0]) > 0;
        seen += there;
        if (frame) {
            const bool same = now == before;
            changed += !same;
            // A hair that stays moves, and only then.
            if (same && there) moved += trembling != trembling_before;
            EXPECT_TRUE(there || sum_of(trembling[0]) == 0);
        }
        before = now;
        trembling_before = trembling;
    }
    EXPECT_NEAR(seen / double(frames), 0.4, 0.15);
    // Changes from nothing to nothing are not seen.
    EXPECT_GT(changed, frames / 10);
    EXPECT_LT(changed, frames * 3 / 10);
    EXPECT_GT(moved, seen / 3);
    // Slots go their own ways: a second one leaves the first where it is.
    for (int frame = 0; frame < 20; ++frame) {
        const Planes one = hairs(frame, 1, 0.1, 0.2, 0), two = hairs(frame, 2, 0.1, 0.2, 0);
        for (size_t i = 0; i < one[0].size(); ++i) ASSERT_GE(two[0][i], one[0][i]);
    }
}

TEST_F(Stamps, AFieldHasWhatItsFrameHas) {
    stamps(coarse_stamps(3));
    FilterFrameRig rig(96, 64);
    const Dust dust = {.density = 4};
    const Planes whole = dust.draw(rig, 5, black(rig));
    the_frame->time_globals.frame = 5.5f;
    StampSettings s = {{1, 1, 1}, {1, 1, 1}, 0, 0, 1, 0, 4, 0, 1, 0};
    Planes second = black(rig);
    FixPixel* planes[] = {second[0].data(), second[1].data(), second[2].data()};
    random_stamp_images(planes, 3, "dust", 4096, s);
    EXPECT_EQ(second, whole);
}

namespace {

ScratchParams whole_scratch() {
    ScratchParams p = {};
    p.seed = 5;
    p.n_scratches = 1;
    p.length = 10000;
    p.width = 40;  // of 1920: 4 of 192
    p.luma[0] = 0.5f;
    p.luma[1] = 0.25f;
    p.luma[2] = 0.125f;
    p.alpha = 0.5f;
    return p;
}

Planes scratched(FilterFrameRig& rig, int frame, const ScratchParams& p, int channels = 3, int level = 1000) {
    the_frame->time_globals.frame = static_cast<float>(frame);
    Planes planes(static_cast<size_t>(channels),
                  Plane(static_cast<size_t>(rig.width * rig.height), static_cast<FixPixel>(level)));
    std::vector<FixPixel*> images;
    for (Plane& plane : planes) images.push_back(plane.data());
    render_scratches(images.data(), channels, p);
    return planes;
}

// Of row y: the light that was added, and its middle.
struct RowLight {
    double sum, middle;
};
RowLight row_light(const FilterFrameRig& rig, const Plane& plane, int y, int level = 1000) {
    RowLight light = {0, 0};
    for (int x = 0; x < rig.width; ++x) {
        const double v = plane[static_cast<size_t>(y * rig.width + x)] - level;
        light.sum += v;
        light.middle += v * x;
    }
    if (light.sum != 0) light.middle /= light.sum;
    return light;
}

}  // namespace

TEST_F(Stamps, AScratchIsALineOfItsWidthAndLight) {
    FilterFrameRig rig(192, 108);
    ScratchParams p = whole_scratch();
    // A frame where the line is well within.
    int frame = 0;
    while (row_light(rig, scratched(rig, frame, p)[0], 0).sum < 4000) ASSERT_LT(++frame, 100000) << "no scratch";
    const Planes light = scratched(rig, frame, p), next = scratched(rig, frame + 1, p);
    const RowLight first = row_light(rig, light[0], 0);
    for (int y = 0; y < rig.height; ++y) {
        ASSERT_NEAR(row_light(rig, light[0], y).sum, 4 * 0.5 * 0.5 * 4096, 8);
        ASSERT_NEAR(row_light(rig, light[1], y).sum, 4 * 0.5 * 0.25 * 4096, 8);
        ASSERT_NEAR(row_light(rig, light[2], y).sum, 4 * 0.5 * 0.125 * 4096, 8);
        ASSERT_NEAR(row_light(rig, light[0], y).middle, first.middle, 0.02);
        ASSERT_NEAR(row_light(rig, next[0], y).middle, first.middle, 0.02);
    }
    p.dark = 1;
    const Planes dark = scratched(rig, frame, p);
    for (size_t i = 0; i < dark[0].size(); ++i) ASSERT_EQ(1000 - dark[0][i], light[0][i] - 1000);
    p.dark = 0;
    // Brightness where there is no colour; alpha stays.
    const Planes grey = scratched(rig, frame, p, 1), with_alpha = scratched(rig, frame, p, 4);
    EXPECT_NEAR(row_light(rig, grey[0], 9).sum, 4 * 0.5 * 4096 * (0.2126 * 0.5 + 0.7152 * 0.25 + 0.0722 * 0.125), 8);
    EXPECT_EQ(with_alpha[3], Plane(with_alpha[3].size(), 1000));
    EXPECT_EQ(with_alpha[2], light[2]);
    // It wanders, and goes on in the next frame where it left this one.
    p.distance = 0.05f;
    p.speed = 1;
    const Planes wandering = scratched(rig, frame, p), later = scratched(rig, frame + 1, p);
    double least = 1e9, most = -1e9;
    for (int y = 0; y < rig.height; ++y) {
        const double middle = row_light(rig, wandering[0], y).middle;
        least = std::min(least, middle);
        most = std::max(most, middle);
        ASSERT_NEAR(middle, row_light(rig, wandering[0], std::max(y - 1, 0)).middle, 1.5);
    }
    EXPECT_GT(most - least, 0.5);
    EXPECT_NEAR(row_light(rig, later[0], 0).middle, row_light(rig, wandering[0], rig.height - 1).middle, 1.5);
    p.distance = p.speed = 0;
    // It breaks up.
    double left[4] = {};
    const float sputters[4] = {0, 0.3f, 0.7f, 1};
    for (size_t i = 0; i < 4; ++i) {
        p.sputter = sputters[i];
        for (int f = 0; f < 20; ++f) left[i] += static_cast<double>(sum_of(scratched(rig, frame + f, p, 1, 0)[0]));
    }
    EXPECT_GT(left[1], 0.4 * left[0]);
    EXPECT_LT(left[1], 0.99 * left[0]);
    EXPECT_LT(left[2], 0.6 * left[1]);
    EXPECT_GT(left[2], 0);
    EXPECT_LT(left[3], 0.05 * left[0]);
}

TEST_F(Stamps, ScratchesBeginAndEnd) {
    FilterFrameRig rig(192, 108);
    ScratchParams p = whole_scratch();
    p.length = 2;
    p.taper = 1;
    // All rows of many frames, one behind the other, are one strip of film.
    std::vector<double> strip;
    for (int frame = 0; frame < 120; ++frame) {
        const Planes planes = scratched(rig, frame, p);
        for (int y = 0; y < rig.height; ++y) strip.push_back(row_light(rig, planes[0], y).sum);
    }
    std::vector<int> lengths;
    double widest = 0;
    for (size_t i = 0, n; i < strip.size(); i += n) {
        for (n = 1; i + n < strip.size() && (strip[i + n] > 0) == (strip[i] > 0);) ++n;
        if (strip[i] <= 0 || i == 0 || i + n >= strip.size()) continue;
        lengths.push_back(static_cast<int>(n));
        // It widens to its middle. Some stick out of the frame.
        const double middle = strip[i + n / 2];
        widest = std::max(widest, middle);
        if (middle < 4000) continue;
        EXPECT_LT(strip[i], 0.2 * middle);
        EXPECT_NEAR(strip[i + n / 4], 0.5 * middle, 0.1 * middle);
    }
    ASSERT_GT(lengths.size(), 20u);
    double mean = 0;
    for (const int n : lengths) {
        EXPECT_GE(n, rig.height - 2);  // half of the length to one and a half
        EXPECT_LE(n, 3 * rig.height + 2);
        mean += n / double(lengths.size());
    }
    EXPECT_NEAR(mean / rig.height, 2, 0.5);
    EXPECT_NEAR(widest, 4 * 0.5 * 0.5 * 4096, 60);
    // Nothing at all.
    for (float ScratchParams::*const size :
         {&ScratchParams::n_scratches, &ScratchParams::length, &ScratchParams::width, &ScratchParams::alpha}) {
        ScratchParams none = whole_scratch();
        none.*size = 0;
        EXPECT_EQ(scratched(rig, 3, none)[0], Plane(static_cast<size_t>(rig.width * rig.height), 1000));
    }
}

TEST_F(Stamps, TwoSetsOfScratches) {
    FilterFrameRig rig(192, 108);
    const auto run = [&](FilterFrameRig::Arg n) {
        Planes grey(1, Plane(static_cast<size_t>(rig.width * rig.height), 1000));
        return rig.run(image_scratches, 1, 0,
                       {std::move(grey),
                        2,
                        std::move(n),
                        {10000, 10000},
                        {40, 0, 20, 0},
                        {0.5, 0.5, 0.5},
                        {0.5, 0, 0.25, 0},
                        {0, 0},
                        {0, 0, 0, 0},
                        0});
    };
    const double light = 108 * 4 * 0.25 * 4096, dark = 108 * 2 * 0.125 * 4096;
    const double base = 192 * 108 * 1000;
    EXPECT_NEAR(static_cast<double>(sum_of(run({10})[0])) - base, 10 * light, 0.3 * 10 * light);
    EXPECT_NEAR(static_cast<double>(sum_of(run({0, 10})[0])) - base, -10 * dark, 0.3 * 10 * dark);
    EXPECT_EQ(sum_of(run({0, 0})[0]), static_cast<int64_t>(base));
}

TEST_F(Stamps, CollectionsAreSortedFilesOfTheirDirectory) {
    FilterFrameRig rig(96, 64);
    EXPECT_EQ(load_stamp_collection("none")->count, 0);
    std::filesystem::create_directories(dir + "/stamps/empty");
    EXPECT_EQ(load_stamp_collection("empty")->count, 0);
    EXPECT_EQ(messages(), "");
    const auto one = [](int w) { return qmi_bytes({{w, 1, std::string(static_cast<size_t>(w), 'x')}}); };
    const auto jpeg = [](int w) { return jpeg_bytes(w, 2, std::vector<uint8_t>(static_cast<size_t>(2 * w), 90)); };
    write("stamps/mixed/c.qmi", one(3));
    write("stamps/mixed/B.jpg", jpeg(2));
    write("stamps/mixed/a.jpeg", jpeg(4));
    write("stamps/mixed/.hidden.qmi", one(9));
    write("stamps/mixed/.qmi", one(9));
    write("stamps/mixed/bad.qmi", "QMIFx");
    write("stamps/mixed/d.png", "no stamp");
    write("stamps/mixed/e.JPG", jpeg(9));
    StampCollection* const mixed = load_stamp_collection("mixed");
    ASSERT_EQ(mixed->count, 3);
    EXPECT_EQ(mixed->stamps[0].width, 2);
    EXPECT_EQ(mixed->stamps[1].width, 4);
    EXPECT_EQ(mixed->stamps[2].width, 3);
    EXPECT_EQ(messages(),
              "8 QMI file format error: EOF in header.\n8 The stamp file is " + dir + "/stamps/mixed/bad.qmi\n");
    write("stamps/mixed/f.qmi", one(9));
    EXPECT_EQ(load_stamp_collection("mixed"), mixed);  // read once
    // Too many in files, and too many files.
    write("stamps/full/a.qmi", qmi_bytes(std::vector<QmiImage>(349, {1, 1, "x"})));
    for (const char* const name : {"b", "c", "d"}) write(std::string("stamps/full/") + name + ".jpg", jpeg(2));
    EXPECT_EQ(load_stamp_collection("full")->count, 350);
    EXPECT_EQ(messages(), "7 load_stamp_collection(full): too many stamps 352, max=350 (ignoring extras)\n");
    for (int i = 0; i < 352; ++i)
        write("stamps/files/" + std::to_string(1000 + i) + ".qmi", i < 350 ? qmi_bytes({}) : one(1));
    EXPECT_EQ(load_stamp_collection("files")->count, 0);
    EXPECT_EQ(messages(), "7 Too many stamps in list_stamp_file(files=350) -- ignoring extras\n");
}

namespace {

int opens_left;
FILE* opened_or_not(const char* path) {
    if (opens_left-- <= 0) {
        V_error(level_error, "Open of %s failed: cut off\n", path);
        return nullptr;
    }
    return std::fopen(path, "rb");
}

size_t allocations_left;
void* (*allocate_before)(size_t, size_t);

}  // namespace

TEST_F(Stamps, WhatCannotBeReadNowFailsTheFrameAndNoMore) {
    FilterFrameRig rig(96, 64);
    stamps(coarse_stamps(2));
    write("stamps/dust/b.jpg", jpeg_bytes(8, 8, std::vector<uint8_t>(64, 200), {1, 2}));
    write("stamps/dust/c.jpg", jpeg_bytes(9, 8, std::vector<uint8_t>(72, 100), {1, 2}));
    const Dust dust = {.density = 6, .opacity = 0.5};
    const Planes want = dust.draw(rig, 0, black(rig));
    EXPECT_GT(sum_of(want[0]), 0);
    const auto outer = open_image_stream;
    open_image_stream = opened_or_not;
    for (int n = 0; n < 5; ++n) {
        run_unload_functions();
        opens_left = n;
        the_frame->failed = false;
        dust.draw(rig, 0, black(rig));
        EXPECT_TRUE(the_frame->failed) << n;
        EXPECT_NE(messages(), "") << n;
        opens_left = 1000;
        the_frame->failed = false;
        EXPECT_EQ(dust.draw(rig, 0, black(rig)), want) << n;
        EXPECT_FALSE(the_frame->failed);
    }
    open_image_stream = outer;
    // Memory gives out at each allocation in turn, of collections, pixels and mirrors.
    allocate_before = allocate_block;
    int failed = 0;
    for (bool whole = false; !whole && failed < 200; ++failed) {
        run_unload_functions();
        allocations_left = static_cast<size_t>(failed);
        allocate_block = [](size_t bytes, size_t alignment) -> void* {
            return allocations_left-- == 0 ? nullptr : allocate_before(bytes, alignment);
        };
        static Planes planes;
        planes = black(rig);
        static FixPixel* images[3];
        for (size_t c = 0; c < 3; ++c) images[c] = planes[c].data();
        whole = abort_status([] {
                    random_stamp_images(images, 3, "dust", 4096, {{1, 1, 1}, {1, 1, 1}, 0, 0, 0.5f, 0, 6, 0, 1, 0});
                }) == 0;
        allocate_block = allocate_before;
        EXPECT_TRUE(!whole || planes == want);
        ASSERT_EQ(dust.draw(rig, 0, black(rig)), want) << failed;
    }
    EXPECT_GT(failed, 8);
    EXPECT_LT(failed, 200);
    EXPECT_EQ(n_abort_cleanups(), 0);
}

TEST_F(Stamps, ABadDeferredStampLeavesTheOthersWhereTheyAre) {
    FilterFrameRig rig(96, 64);
    const std::string good = jpeg_bytes(8, 8, std::vector<uint8_t>(64, 200), {1, 2});
    write("stamps/dust/a.jpg", good.substr(0, good.size() - 12));
    const Dust dust = {.density = 6};
    const Planes none = dust.draw(rig, 0, black(rig));
    EXPECT_EQ(none, black(rig));
    EXPECT_FALSE(the_frame->failed);
    const std::string told = messages();
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1) << told;
    dust.draw(rig, 1, black(rig));
    EXPECT_EQ(messages(), "");
}
