// A picture of half or a quarter of the size is rendered to what the large one shows, made smaller: controls mean
// shares of the frame and not pixels.
#include "tests/render/cli_rig.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <map>
#include <set>

using namespace test_cli;

namespace {

constexpr int full_width = 640, full_height = 400;

// The same picture at every size: a soft disc, a slope and slow waves, in coordinates of 0 to 1.
double scene(double u, double v, int c, int which) {
    const double disc = 1 / (1 + std::exp((std::hypot(u - 0.45, (v - 0.5) * 0.625) - 0.16) * 50));
    const double wave = 0.5 + 0.5 * std::sin(u * (9 + 3 * c) + v * 7 + c);
    if (which == 1) return disc;  // a mask, or the second picture of a transition
    return 0.15 + 0.5 * disc + 0.25 * wave * (1 - v);
}
double star(double u, double v) {
    const double x = (u - 0.5) * 16, y = (v - 0.5) * 10;
    return std::max(0.0, 1 - std::hypot(x, y));
}

}  // namespace

TEST_F(Cli, EveryEffectMeansTheSameAtEverySize) {
    for (const int part : {1, 2, 4}) {
        const int w = full_width / part, h = full_height / part;
        const std::string end = std::to_string(part) + ".png";
        for (int which = 0; which < 3; which++)
            picture((which == 0   ? "a"
                     : which == 1 ? "b"
                                  : "k") +
                        end,
                    w, h, 3, OIIO::TypeDesc::UINT16, [&](int x, int y, int c) {
                        const double u = (x + 0.5) / w, v = (y + 0.5) / h;
                        return static_cast<int>(65535 * (which == 2 ? star(u, v) : scene(u, v, c, which)));
                    });
    }
    // Mean difference allowed, of 1; what is not named has the first. Lines as thin as a pixel get thicker in a small
    // frame, and their edges with them; pictures of a few pixels get softer.
    const double usual = 0.006;
    // Hard dots mean grey as a mean alone, white noise has a number for each pixel, fibres and joints are finer than
    // one, blocks and rows are counted in pixels, and strokes are chance.
    const std::map<std::string, double> own = {{"Edges", 0.02},
                                               {"Slope Colors", 0.02},
                                               {"Emboss", 0.02},
                                               {"Posterise", 0.02},
                                               {"Lens Flare", 0.015},
                                               {"Flare Behind", 0.015},
                                               {"Random Halftone", 0.2},
                                               {"TV Snow", 0.15},
                                               {"Wood", 0.02},
                                               {"Hex Mosaic", 0.03},
                                               {"Flys Eye", 0.02},
                                               {"Floor", 0.02},
                                               {"Jpeg", 0.05},
                                               {"Transmission Damage", 0.05},
                                               {"Paint", 0.04},
                                               {"Sketch", 0.05},
                                               {"Edge Glow", 0.03},
                                               {"Glare", 0.015},
                                               {"Glints", 0.015},
                                               {"Rainbow Glints", 0.02},
                                               {"Lightning From Matte", 0.03},
                                               {"Interlace Clips", 0.2}};
    const auto families = nlohmann::json::parse(velloran("list --json").out, nullptr, false);
    ASSERT_GE(families.size(), 6u);
    for (const auto& family : families) {
        const std::string plugin = family["plugin"];
        const auto described = nlohmann::json::parse(velloran("list " + plugin + " --json").out, nullptr, false);
        for (const auto& described_effect : described["effects"]) {
            const std::string effect = described_effect["name"];
            const auto& wanted = described_effect["inputs"];
            std::string name = plugin + ":" + effect;
            std::replace(name.begin(), name.end(), ' ', '_');
            SCOPED_TRACE(name);
            Samples made[3];
            const int parts[] = {1, 2, 4};
            for (int i = 0; i < 3; i++) {
                const std::string end = std::to_string(parts[i]) + ".png ";
                std::string inputs;
                for (const std::string input : wanted)
                    inputs += std::string(inputs.empty() ? " -i a" : input == "Kernel" ? "-i k" : "-i b") + end;
                if (inputs.empty())
                    inputs = " --size " + std::to_string(full_width / parts[i]) + "x" +
                             std::to_string(full_height / parts[i]) + " -f 1 ";
                std::string values = plugin == "transitions" ? "-p transition=0.4 " : "";
                // Places count in pixels.
                const std::string at = std::to_string(-48 / parts[i]) + "," + std::to_string(32 / parts[i]) + " ";
                if (effect == "Lens Flare" || effect == "Flare Behind") values = "-p hotspot=" + at;
                if (effect == "Lightning To Object") values = "-p center=" + at;
                if (effect == "Lightning")
                    values = "-p end=" + at + "-p start=" + std::to_string(96 / parts[i]) + ",0 ";
                const Outcome ran = velloran("render " + name + inputs + values + "-o o.png");
                ASSERT_EQ(ran.status, 0) << ran.err;
                made[i] = samples("o.png");
            }
            const auto bound = own.find(effect);
            for (int i = 1; i < 3; i++) {
                const int part = parts[i];
                double sum = 0;
                for (int y = 0; y < made[i].height; y++)
                    for (int x = 0; x < made[i].width; x++)
                        for (int c = 0; c < 3; c++) {
                            double mean = 0;
                            for (int n = 0; n < part * part; n++)
                                mean += made[0].at(x * part + n % part, y * part + n / part, c);
                            sum += std::abs(mean / (part * part) - made[i].at(x, y, c)) / 65535;
                        }
                EXPECT_LT(sum / static_cast<double>(made[i].values.size()), bound == own.end() ? usual : bound->second)
                    << "at 1/" << part;
            }
        }
    }
}
