// A frame of half or a quarter of the size is what the large one shows, made smaller: controls mean shares of the frame
// and not pixels. VELLORAN_EFFECT_SIZES names a file that gets each effect's differences.
#include "tests/render/shipped_plugin.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <map>

using namespace test_render;

namespace {

constexpr int full_width = 640, full_height = 400;

// Mean difference allowed, of 1; what is not named has the first. Lines as thin as a pixel get thicker in a small
// frame, and their edges with them; pictures of a few pixels get softer.
constexpr double usual = 0.006;
// Hard dots mean grey as a mean alone, white noise and grain have a number for each pixel, fibres and joints are finer
// than one, blocks and rows are counted in pixels, and strokes are chance. The lines of a tube and of a tape run
// together where there are fewer pixels than lines.
const std::map<std::string, double> own = {{"Edges", 0.02},
                                           {"Grain", 0.03},
                                           {"Bleach Bypass", 0.03},
                                           {"Sepia", 0.03},
                                           {"Film Look", 0.03},
                                           {"Cross Process", 0.03},
                                           {"Slope Colors", 0.02},
                                           {"Emboss", 0.02},
                                           {"Posterise", 0.02},
                                           {"Lens Flare", 0.015},
                                           {"Flare Behind", 0.015},
                                           {"Random Halftone", 0.2},
                                           {"TV Snow", 0.15},
                                           {"Grain", 0.04},
                                           {"Bleach Bypass", 0.02},
                                           {"Sepia", 0.03},
                                           {"Wood", 0.02},
                                           {"Hex Mosaic", 0.03},
                                           {"Flys Eye", 0.02},
                                           {"Floor", 0.02},
                                           {"Jpeg", 0.05},
                                           {"Transmission Damage", 0.05},
                                           {"Paint", 0.04},
                                           {"Sketch", 0.05},
                                           {"Halftone", 0.2},
                                           {"Comic", 0.06},
                                           {"Tube", 0.08},
                                           {"Worn Tape", 0.02},
                                           {"Edge Glow", 0.03},
                                           {"Glare", 0.015},
                                           {"Glints", 0.015},
                                           {"Rainbow Glints", 0.02},
                                           {"Lightning From Edges", 0.008},
                                           {"Lightning From Matte", 0.03},
                                           {"Lightning To Object", 0.008},
                                           {"Interlace Clips", 0.2}};

enum Scene { picture, mask, star };

// The same picture at every size, in coordinates of 0 to 1 from the bottom left: a soft disc, a slope and slow waves; a
// mask or the second picture of a transition; a small kernel.
double scene(double u, double v, int c, Scene which) {
    if (which == star) return std::max(0.0, 1 - std::hypot((u - 0.5) * 16, (v - 0.5) * 10));
    const double disc = 1 / (1 + std::exp((std::hypot(u - 0.45, (v - 0.5) * 0.625) - 0.16) * 50));
    if (which == mask) return disc;
    const double wave = 0.5 + 0.5 * std::sin(u * (9 + 3 * c) + v * 7 + c);
    return 0.15 + 0.5 * disc + 0.25 * wave * v;
}
ClipPtr clip_of(Scene which) {
    return generated_clip(1, [which](int, const FrameFormat& format, void* dest) {
        auto* word = static_cast<uint16_t*>(dest);
        for (int y = 0; y < format.height; ++y)
            for (int x = 0; x < format.width; ++x)
                for (int c = 0; c < 3; ++c)
                    *word++ = static_cast<uint16_t>(
                        static_cast<int>(4095 * scene((x + 0.5) / format.width, (y + 0.5) / format.height, c, which))
                        << 4);
        return true;
    });
}

// The first frame at a part of the full size, in native samples; places stand at the same share of the frame.
std::vector<unsigned> render_part(const std::string& family, size_t effect, int part) {
    ShippedPlugin shipped(family);
    shipped.host.format = {full_width / part, full_height / part, SPARK_DEPTH_12};
    if (!shipped.start()) return {};
    Plugin& plugin = *shipped.plugin;
    const Described described = describe(plugin);
    for (size_t i = 0; i < 4; ++i) {
        const auto& inputs = described.inputs[effect];
        plugin.inputs[i] = clip_of(i == 0 ? picture : i < inputs.size() && inputs[i] == "Kernel" ? star : mask);
    }
    if (described.effects.size() > 1) {
        set_control_value(*find_control(plugin.panel, SPARK_FIRST_CONTROL), 0, static_cast<float>(effect));
        use_control(plugin, SPARK_FIRST_CONTROL, SPARK_ACTION_RELEASE);
    }
    shipped.render();
    int place = 0;
    for (const DescribedParam& p : described.params) {
        if (p.effect != static_cast<int>(effect)) continue;
        const auto set = [&](size_t channel, double value) {
            Control& control = *find_control(plugin.panel, p.numbers[std::min(channel, p.numbers.size() - 1)]);
            for (Curve& curve : control.curves) curve = {};
            set_control_value(control, p.numbers.size() > channel ? 0 : static_cast<int>(channel),
                              static_cast<float>(value));
            use_control(plugin, p.numbers[std::min(channel, p.numbers.size() - 1)], SPARK_ACTION_RELEASE);
        };
        if (p.name == "transition") set(0, 0.4);
        if (p.pixels && p.numbers.size() == 2) {
            set(0, (96 - 144 * place) / part);
            set(1, 32 * place / part);
            place++;
        }
    }
    const auto rendered = shipped.render();
    return rendered.empty() ? std::vector<unsigned>() : significant(rendered, SPARK_DEPTH_12);
}

// The mean difference, of 1, between a small frame and the full one made smaller.
double difference(const std::vector<unsigned>& full, const std::vector<unsigned>& small, int part) {
    const int w = full_width / part, h = full_height / part;
    double sum = 0;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c) {
                double mean = 0;
                for (int n = 0; n < part * part; ++n)
                    mean +=
                        full[static_cast<size_t>(((y * part + n / part) * full_width + x * part + n % part) * 3 + c)];
                sum += std::abs(mean / (part * part) - small[static_cast<size_t>((y * w + x) * 3 + c)]) / 4095;
            }
    return sum / (w * h * 3);
}

TEST(Effects, MeanTheSameAtEverySize) {
    std::ofstream table;
    if (const char* const out = std::getenv("VELLORAN_EFFECT_SIZES")) table.open(out);
    for (const std::string& family : shipped_families()) {
        ShippedPlugin shipped(family);
        ASSERT_TRUE(shipped.start());
        const std::vector<std::string> effects = describe(*shipped.plugin).effects;
        for (size_t i = 0; i < effects.size(); ++i) {
            SCOPED_TRACE(family + ":" + effects[i]);
            const auto full = render_part(family, i, 1);
            ASSERT_FALSE(full.empty());
            const auto bound = own.find(effects[i]);
            table << family << ':' << effects[i];
            for (const int part : {2, 4}) {
                const auto small = render_part(family, i, part);
                ASSERT_FALSE(small.empty());
                const double found = difference(full, small, part);
                EXPECT_LT(found, bound == own.end() ? usual : bound->second) << "at 1/" << part;
                table << '\t' << found;
            }
            table << '\n';
        }
    }
}

}  // namespace
