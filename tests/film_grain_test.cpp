// Grain against its model.
#include "operators/blur/blur_image.h"
#include "operators/film/film_functions.h"
#include "operators/film/grain_amounts.h"
#include "support/hash.h"
#include "testing/filter_node.h"
#include "testing/plane_statistics.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>

using namespace velloran;
using velloran_tests::correlation;
using velloran_tests::FilterFrameRig;
using velloran_tests::mean;
using velloran_tests::noise_spread;
using velloran_tests::Plane;
using velloran_tests::spread;

namespace {

constexpr int grain_width = 256, grain_height = 200;

struct GrainCall {
    double image = 0.4, amp = 0.5, midtone = 0.4, darks = 0.3, brights = 0.2, mono = 0, blur = 0, hold = 1, seed = 0;
};

// The grain on an even picture, as three planes of differences.
std::vector<Plane> grain_of(FilterFrameRig& rig, const GrainCall& call, double frame = 0) {
    the_frame->time_globals.frame = static_cast<float>(frame);
    const auto value = static_cast<FixPixel>(call.image * 4096);
    const Plane even(static_cast<size_t>(rig.width) * static_cast<size_t>(rig.height), value);
    std::vector<Plane> out = rig.run(image_grain, 3, 1,
                                     {std::vector<Plane>{even, even, even},
                                      {call.amp, call.amp, call.amp},
                                      {call.midtone, call.midtone, call.midtone},
                                      {call.darks, call.brights},
                                      call.mono,
                                      {call.blur, call.blur, call.blur},
                                      call.hold,
                                      call.seed});
    for (Plane& plane : out)
        for (FixPixel& v : plane) v = static_cast<FixPixel>(v - value);
    return out;
}

}  // namespace

TEST(Grain, IsAsStrongAsItsModel) {
    FilterFrameRig rig(grain_width, grain_height);
    for (const double midtone : {0.0, 0.25, 0.4, 1.0})
        for (const double image : {-0.3, 0.0, 0.1, 0.25, 0.4, 0.7, 1.0, 1.6})
            for (const double amp : {0.25, 1.0}) {
                const GrainCall call = {.image = image, .amp = amp, .midtone = midtone};
                const auto s = [](double u) { return u + u * u - u * u * u; };
                // Samples of 64 levels each are alike.
                const double t = std::clamp(std::floor(image * 64), 0.0, 64.0) / 64;
                const double want =
                    t < midtone ? 0.3 + 0.7 * s(t / midtone) : 0.2 + 0.8 * s((1 - t) / std::max(1 - midtone, 0.0001));
                const std::vector<Plane> out = grain_of(rig, call);
                for (const Plane& plane : out) {
                    EXPECT_NEAR(spread(plane), want * amp * noise_spread, 0.03 * want * amp * noise_spread)
                        << image << " with the midtone " << midtone;
                    EXPECT_NEAR(mean(plane), 0, 0.02 * amp * noise_spread + 1);
                }
            }
}

TEST(Grain, FramesFieldsAndChannelsAreApart) {
    FilterFrameRig rig(grain_width, grain_height);
    const GrainCall call;
    const std::vector<Plane> now = grain_of(rig, call, 7), next = grain_of(rig, call, 8);
    for (size_t c = 0; c < 3; ++c) {
        EXPECT_LT(std::abs(correlation(now[c], next[c])), 0.02);
        EXPECT_LT(std::abs(correlation(now[c], now[(c + 1) % 3])), 0.02);
    }
    const std::vector<Plane> mono = grain_of(rig, {.mono = 1}, 7);
    EXPECT_EQ(mono[0], mono[1]);
    EXPECT_EQ(mono[2], mono[1]);
    EXPECT_EQ(mono[1], now[1]);
    EXPECT_LT(std::abs(correlation(now[0], grain_of(rig, {.seed = 3}, 7)[0])), 0.02);
    const std::vector<Plane> fields = grain_of(rig, {.hold = 0}, 7);
    EXPECT_LT(std::abs(correlation(fields[0], now[0])), 0.55);  // one field of both is alike
    EXPECT_GT(std::abs(correlation(fields[0], now[0])), 0.45);
    EXPECT_EQ(grain_of(rig, call, 7.5), now);  // a second field of the same frame
}

// Of which frame of film the fields of five frames are, by the beginning of the pattern.
TEST(Grain, IsHeldAsFilmOnVideo) {
    for (int hold = 2; hold < 8; ++hold) {
        std::map<uint32_t, int> fields;
        uint32_t before = 0;
        for (int frame = 0; frame < 40; ++frame) {
            const FieldSeeds seeds = grain_field_seeds(hold, frame);
            const int n = (frame - hold) * 2 + 20;
            EXPECT_EQ(seeds.first, static_cast<uint32_t>(n / 5 * 2 + (n % 5 >= 2)));
            EXPECT_EQ(seeds.second, static_cast<uint32_t>((n + 1) / 5 * 2 + ((n + 1) % 5 >= 2)));
            EXPECT_GE(seeds.first, before);
            before = seeds.second;
            ++fields[seeds.first];
            ++fields[seeds.second];
        }
        int twos = 0, threes = 0;
        for (auto at = std::next(fields.begin()); at != std::prev(fields.end()); ++at) {
            twos += at->second == 2;
            threes += at->second == 3;
        }
        EXPECT_EQ(twos + threes, static_cast<int>(fields.size()) - 2);
        EXPECT_LE(std::abs(twos - threes), 1);
    }
    EXPECT_EQ(grain_field_seeds(0, 9).second, 19u);
    EXPECT_EQ(grain_field_seeds(1, 9).second, 18u);
    // Far before the pattern's own beginning it goes on as it is.
    for (int frame = -60; frame < -30; ++frame)
        EXPECT_EQ(grain_field_seeds(2, frame).first + 4, grain_field_seeds(2, frame + 5).first);
    // Which rows the first field has, by the height of the frame, or by what is rendered.
    for (const auto& [height, odd_first] : {std::pair{486, false}, {576, true}, {1080, false}, {487, true}}) {
        FilterFrameRig rig(64, height);
        const Plane both = grain_of(rig, {.hold = 0}, 5)[0], same = grain_of(rig, {.hold = 1}, 5)[0];
        for (int y = 0; y < height; ++y)
            ASSERT_EQ(std::equal(both.begin() + y * 64, both.begin() + y * 64 + 64, same.begin() + y * 64),
                      (y & 1) == odd_first)
                << height << " rows, row " << y;
    }
    FilterFrameRig rig(64, 486);
    const Plane whole = grain_of(rig, {.hold = 0}, 5)[0];
    for (const int field : {2, 1}) {  // even rows first
        the_frame->render_field = field;
        const Plane own = grain_of(rig, {.hold = 0}, field == 2 ? 5 : 5.5)[0];
        for (int y = field == 2 ? 0 : 1; y < 486; y += 2)
            ASSERT_TRUE(std::equal(own.begin() + y * 64, own.begin() + y * 64 + 64, whole.begin() + y * 64)) << y;
    }
}

TEST(Grain, BlurKeepsSomeOfItsStrength) {
    FilterFrameRig rig(grain_width, grain_height);
    for (const double pixels : {0.25, 0.5, 1.0, 1.75, 3.0}) {
        const double blur = pixels * 8 / grain_width;
        // Boxes along one axis, mixed of the two nearest whole ones.
        const auto box = [](double r) {
            std::vector<double> weights(41);
            const int lo = static_cast<int>(r), hi = static_cast<int>(std::ceil(r));
            for (int i = -20; i <= 20; ++i) {
                const double part = r - lo;
                weights[static_cast<size_t>(i + 20)] =
                    (std::abs(i) <= lo ? (1 - part) / (2 * lo + 1) : 0) + (std::abs(i) <= hi ? part / (2 * hi + 1) : 0);
            }
            return weights;
        };
        const std::vector<double> first = box(pixels), second = box(std::max(pixels - 0.5, 0.0));
        double squares = 0;
        for (int at = -40; at <= 40; ++at) {
            double sum = 0;
            for (int i = -20; i <= 20; ++i)
                if (std::abs(at - i) <= 20)
                    sum += first[static_cast<size_t>(i + 20)] * second[static_cast<size_t>(at - i + 20)];
            squares += sum * sum;
        }
        const double want = 0.5 * noise_spread * squares * (0.8 * pixels + 1);
        EXPECT_NEAR(spread(grain_of(rig, {.blur = blur})[1]), want, 0.05 * want) << pixels;
    }
}

// The short way and the long way are one blur, but for rounding.
TEST(Grain, ASmallBlurIsTheBlurOfAWideOne) {
    constexpr int width = 90, height = 60;
    FilterFrameRig rig(width, height, 3);
    for (const double pixels : {0.1, 0.5, 1.3, 2.5, 4.75, 6.0, 7.5}) {
        const double blur = pixels * 8 / width;
        const int radius = (float_to_fix(static_cast<float>(blur)) * width) >> 3;
        const GrainBlur boxes = make_grain_blur(radius);
        EXPECT_EQ(boxes.second_radius, std::max(radius - 2048, 0));
        EXPECT_NEAR(boxes.gain, 0.8 * radius + 4096, 1);
        Plane want = grain_of(rig, {.amp = 0.9})[2];
        BlurSettings box = {.x_radius = radius, .y_radius = radius, .passes = 1, .subpixel = true};
        for (const int second : {0, 1}) {
            if (second) box.x_radius = box.y_radius = boxes.second_radius;
            if (second) box.gain = boxes.gain;
            blur_image(want.data(), want.data(), box, {width, height});
        }
        const Plane got = grain_of(rig, {.amp = 0.9, .blur = blur})[2];
        for (size_t i = 0; i < got.size(); ++i) ASSERT_NEAR(got[i], want[i], 4 + 2 * pixels) << pixels << " at " << i;
    }
}

// To the last bit, by the hash of its four samples, on every target; the part of the frame in hand does not show.
TEST(Grain, IsTheHashOfItsPlace) {
    constexpr int width = 103, height = 41, left = 13, bottom = 5;
    const Plane picture = velloran_tests::random_plane(width, height, -600, 5000);
    float amounts[grain_levels];
    fill_grain_amounts(amounts, 0.375f, 0.25f, 0.125f, 0.875f);
    Plane want = picture;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            // A frame of odd height has its first field on the odd rows.
            const uint32_t field = 2 * 9 + (~y & 1), seed = 3 * 4096 + 7 * field + width * height * field + 10001;
            const uint32_t h = bit_hash(seed + static_cast<uint32_t>(y * width + x / 4 * 4));
            const int values[] = {static_cast<int>(h & 255) * 16 - 2048, static_cast<int>(h >> 8 & 255) * 16 - 2048,
                                  static_cast<int>(h >> 16 & 255) * 16 - 2048,
                                  static_cast<int>(h >> 20 & 0xff0) - 2048};
            FixPixel& v = want[static_cast<size_t>(y * width + x)];
            v = static_cast<FixPixel>(
                v + static_cast<int>(static_cast<float>(values[x % 4]) * amounts[std::clamp(v >> 6, 0, 64)]));
        }
    const auto run = [&](FilterFrameRig& rig, const Plane& image) {
        the_frame->time_globals.frame = 9;
        return rig.run(image_grain, 3, 1,
                       {std::vector<Plane>{image, image, image},
                        {0.875, 0.875, 0.875},
                        {0.375, 0.375, 0.375},
                        {0.25, 0.125},
                        0.0,
                        {0, 0, 0},
                        0.0,
                        3.0})[1];
    };
    velloran_tests::for_each_row_target([&](int64_t) {
        FilterFrameRig rig(width, height, 3);
        EXPECT_EQ(run(rig, picture), want);
    });
    constexpr int part_width = width - left, part_height = height - bottom;
    Plane part, want_part;
    for (int y = bottom; y < height; ++y) {
        part.insert(part.end(), picture.begin() + y * width + left, picture.begin() + (y + 1) * width);
        want_part.insert(want_part.end(), want.begin() + y * width + left, want.begin() + (y + 1) * width);
    }
    FilterFrameRig rig(part_width, part_height, 2);
    the_frame->render_info.full_ren = {0, 0, width, height};
    the_frame->temp_raster_info.x = left;
    the_frame->temp_raster_info.y = bottom;
    EXPECT_EQ(run(rig, part), want_part);
}
