// What the standard controls do to the picture, against arithmetic: resolution, crop and surround, fields, gamma, LUTs.
#include "tests/render/panel.h"

#include <algorithm>
#include <cmath>
#include <sstream>

using namespace test_render;

namespace {

constexpr const char* through = "(def_effect Through (Source Back) () dest = Source)";

struct Depth {
    const char* name;
    int depth, bits;
};
constexpr Depth depths[] = {{"8", SPARK_DEPTH_8, 8}, {"10", SPARK_DEPTH_10, 10}, {"12", SPARK_DEPTH_12, 12}};

// Significant samples of a frame, three a pixel, bottom row first.
struct Samples {
    std::vector<unsigned> of;
    int width, height;
    unsigned at(int x, int y, int channel) const { return of[static_cast<size_t>((y * width + x) * 3 + channel)]; }
};

struct Scene : TextPlugin {
    Scene(const std::string& definitions, int width, int height, int depth) : TextPlugin(definitions) {
        host.format = {width, height, depth};
        host.processors = 2;
        inputs = {random_clip(3, 1), random_clip(3, 2)};
    }
    Samples samples(const std::vector<unsigned char>& bytes) const {
        return {significant(bytes, host.format.depth), host.format.width, host.format.height};
    }
    Samples source(int input) const { return samples(clip_bytes(*inputs[static_cast<size_t>(input)], 0, host.format)); }
    Samples rendered(int frame = 0) { return samples(render(frame)); }
};

// The first place where a picture is not as it should be.
template <class Expected>
std::string first_difference(const Samples& got, Expected expected) {
    for (int y = 0; y < got.height; ++y)
        for (int x = 0; x < got.width; ++x)
            for (int c = 0; c < 3; ++c) {
                const unsigned want = expected(x, y, c);
                if (got.at(x, y, c) == want) continue;
                std::ostringstream text;
                text << "x " << x << " y " << y << " c " << c << ": " << got.at(x, y, c) << ", not " << want;
                return text.str();
            }
    return "";
}

// The pixel that stands for the block of step pixels that holds x.
int block_sample(int x, int step, int size) { return std::min(x / step * step + (step - 1) / 2, size - 1); }

TEST(StandardControls, EveryResolutionShowsOnePixelOfEachBlock) {
    constexpr int factors[] = {1, 2, 3, 4, 6, 8, 12, 16, 32};
    const std::pair<int, int> sizes[] = {{70, 37}, {33, 65}, {31, 5}};
    for (const Depth& depth : depths) {
        for (const auto& [width, height] : sizes) {
            Scene scene(through, width, height, depth.depth);
            ASSERT_TRUE(scene.start());
            Panel panel(scene);
            const Samples source = scene.source(0);
            for (int i = 0; i < 9; ++i) {
                panel.set(number_res, static_cast<float>(i));
                const int step = factors[i];
                EXPECT_EQ(first_difference(scene.rendered(),
                                           [&, w = width, h = height](int x, int y, int c) {
                                               return source.at(block_sample(x, step, w), block_sample(y, step, h), c);
                                           }),
                          "")
                    << depth.name << " bits, " << width << "x" << height << ", 1/" << step;
            }
        }
    }
}

TEST(StandardControls, TheCropShowsItsSurround) {
    const struct {
        int left, bottom, right, top;
    } crops[] = {{0, 0, 70, 37}, {5, 3, 64, 30}, {0, 36, 70, 37}, {69, 0, 70, 1}, {20, 0, 50, 37}, {0, 10, 70, 20}};
    for (const Depth& depth : depths) {
        Scene scene(through, 70, 37, depth.depth);
        ASSERT_TRUE(scene.start());
        Panel panel(scene);
        scene.render();
        const Samples sources[] = {scene.source(0), scene.source(1)};
        EXPECT_EQ(panel.label(number_surround), "Surround: COLOR =>");
        for (const auto& crop : crops) {
            panel.crop(crop.left, crop.bottom, crop.right, crop.top);
            for (int surround = 0; surround < 4; ++surround) {
                // 0 black, 1 and 2 the inputs, 3 a colour.
                panel.set(number_surround, static_cast<float>(surround % 3));
                const int color[3] = {surround == 3 ? 200 : 0, surround == 3 ? 100 : 0, surround == 3 ? 255 : 0};
                for (int c = 0; c < 3; ++c)
                    panel.set(number_surround_color, static_cast<float>(color[c]), SPARK_ACTION_RELEASE, c);
                const auto expected = [&](int x, int y, int c) {
                    const bool inside = x >= crop.left && x < crop.right && y >= crop.bottom && y < crop.top;
                    if (inside) return sources[0].at(x, y, c);
                    if (surround == 1 || surround == 2) return sources[surround - 1].at(x, y, c);
                    const int fix = std::min(4095, static_cast<int>(static_cast<float>(color[c]) / 255.0f * 4096.0f));
                    return static_cast<unsigned>(fix >> (12 - depth.bits));
                };
                EXPECT_EQ(first_difference(scene.rendered(), expected), "")
                    << depth.name << " bits, surround " << surround << ", crop from " << crop.left << ","
                    << crop.bottom;
            }
        }
    }
}

TEST(StandardControls, TheCropHoldsAtLowResolution) {
    Scene scene(through, 70, 37, SPARK_DEPTH_8);
    ASSERT_TRUE(scene.start());
    Panel panel(scene);
    scene.render();
    const Samples source = scene.source(0);
    panel.crop(7, 4, 61, 29);
    for (const int entry : {2, 5}) {
        panel.set(number_res, static_cast<float>(entry));
        const int step = entry == 2 ? 3 : 8;
        EXPECT_EQ(first_difference(scene.rendered(),
                                   [&](int x, int y, int c) {
                                       if (x < 7 || x >= 61 || y < 4 || y >= 29) return 0u;
                                       return source.at(block_sample(x, step, 70), block_sample(y, step, 37), c);
                                   }),
                  "")
            << step;
    }
}

TEST(StandardControls, EachFieldShowsItsOwnTime) {
    for (const int mode : {1, 2}) {
        for (const int curves : {0, 1}) {
            Scene scene("(def_effect Level () level = 0 (max 1) dest = (* level [1 1 1]))", 20, 11, SPARK_DEPTH_8);
            scene.inputs.clear();
            scene.host.total_frames = 3;
            std::string config = ConfigDir::default_config();
            if (curves) config.replace(config.find("use_curves_in_fields: 0"), 23, "use_curves_in_fields: 1");
            scene.config = std::make_unique<ConfigDir>(config);
            ASSERT_TRUE(scene.start());
            Panel panel(scene);
            set_key(panel.at(6).curves[0], 1, 0.0f);
            set_key(panel.at(6).curves[0], 3, 1.0f);
            panel.set(number_fields, static_cast<float>(mode));
            // Frame 1 shows 0.5 and half a frame later 0.75; the first field of mode 1 is the even rows.
            const Samples got = scene.rendered(1);
            EXPECT_EQ(first_difference(got,
                                       [&](int, int y, int) {
                                           const bool first_field = (y & 1) == (mode == 1 ? 0 : 1);
                                           return first_field || !curves ? 128u : 192u;
                                       }),
                      "")
                << "mode " << mode << ", curves " << curves;
        }
    }
}

double held_pow(double x, double e) { return x <= 0 ? 0 : std::clamp(std::pow(x, e), x / 16, x * 16); }
int rounded(double v) { return static_cast<int>(v + 0.5); }

// A sample of the host through gamma in and out, with the tables' own steps.
unsigned through_gamma(unsigned v, const Depth& depth, double gamma) {
    const double x = depth.bits == 8 ? v / 255.0 : std::min(4095u, depth.bits == 10 ? (v << 2) | (v >> 8) : v) / 4095.0;
    const int sample = rounded(held_pow(x, gamma) * 4095);
    if (depth.bits == 8) return static_cast<unsigned>(rounded(held_pow(sample / 4095.0, 1 / gamma) * 255));
    const int out = rounded(held_pow(sample / 4095.0, 1 / gamma) * 4095);
    return static_cast<unsigned>(out >> (12 - depth.bits));
}

TEST(StandardControls, GammaGoesInAndComesOut) {
    for (const Depth& depth : depths) {
        Scene scene(through, 64, 64, depth.depth);
        ASSERT_TRUE(scene.start());
        Panel panel(scene);
        const Samples source = scene.source(0);
        for (const float gamma : {2.2f, 0.45f, 1.0f}) {
            panel.set(number_gamma, gamma);
            const Samples got = scene.rendered();
            EXPECT_EQ(first_difference(got,
                                       [&](int x, int y, int c) {
                                           const unsigned v = source.at(x, y, c);
                                           if (gamma == 1.0f) return v;
                                           return through_gamma(v, depth, static_cast<double>(gamma));
                                       }),
                      "")
                << depth.name << " bits, gamma " << gamma;
        }
    }
}

// A table of 256 entries that halves, and one that leaves as it is: what comes out is half of what went in.
TEST(StandardControls, ALutPairIsApplied) {
    std::string half = "LUT: 1 256\n", straight = "LUT: 1 256\n";
    for (int i = 0; i < 256; ++i) {
        half += std::to_string(i == 255 ? 255 : i / 2) + "\n";
        straight += std::to_string(i) + "\n";
    }
    for (const Depth& depth : depths) {
        Scene scene(through, 64, 64, depth.depth);
        std::filesystem::create_directory(scene.dir().path() + "/luts");
        scene.dir().write("luts/dim-in.lut", half);
        scene.dir().write("luts/dim-out.lut", straight);
        ASSERT_TRUE(scene.start());
        Panel panel(scene);
        const Samples source = scene.source(0);
        scene.render();
        panel.set(number_lut, 1);
        EXPECT_EQ(panel.label(number_lut), "LUT: Dim");
        const Samples got = scene.rendered();
        const int white = (1 << depth.bits) - 1;
        int worst = 0;
        for (size_t i = 0; i < got.of.size(); ++i) {
            const double x = static_cast<double>(source.of[i]) / white;
            if (x > 0.99) continue;
            // Interpolated between steps of 1 / 255, each rounded down to a half of 255.
            worst = std::max(worst, std::abs(static_cast<int>(got.of[i]) - static_cast<int>(x / 2 * white)));
        }
        EXPECT_LE(worst, 1 + white / 255);
        panel.set(number_lut, 0);
        EXPECT_EQ(scene.rendered().of, source.of);
    }
}

TEST(StandardControls, NeverRendersBlack) {
    Scene scene(through, 16, 16, SPARK_DEPTH_8);
    ASSERT_TRUE(scene.start());
    Panel panel(scene);
    panel.set(number_redraw, 0);
    EXPECT_EQ(first_difference(scene.rendered(), [](int, int, int) { return 0u; }), "");
}

TEST(StandardControls, TheCropInputWrapsInsteadOfCropping) {
    Scene scene("(def_effect Wrap (Source Back) (warp_crop) dest = Source)", 32, 32, SPARK_DEPTH_8);
    scene.host.calling_env = SPARK_ENV_DESKTOP;
    ASSERT_TRUE(scene.start());
    Panel panel(scene);
    scene.render();
    const Samples source = scene.source(0);
    panel.crop(4, 4, 20, 20);
    panel.set(number_surround, 2);
    panel.set(number_crop_input, 1);
    EXPECT_EQ(panel.value(number_surround), 0);
    EXPECT_EQ(static_cast<SparkPopupStruct*>(panel.at(number_surround).structure)->Entries, 1);
    EXPECT_EQ(scene.rendered().of, source.of) << "nothing is cut off";
    panel.set(number_crop_input, 0);
    EXPECT_EQ(panel.value(number_surround), 2);
    EXPECT_EQ(panel.label(number_surround), "Surround: Back");
}

}  // namespace
