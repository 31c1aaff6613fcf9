// Every shipped effect over one picture: it loads, it renders, and it looks as it did. The hashes of the pictures stand
// in tests/effect_hashes.txt, which scripts/renew-hashes writes anew; a changed look is a line of the changelog.
#include "tests/render/shipped_plugin.h"

#include <cstdlib>
#include <fstream>
#include <map>

using namespace test_render;

namespace {

constexpr int width = 96, height = 64, depth = SPARK_DEPTH_12;

// Slopes, an edge, a bright disc and a little grain: something for every kind of effect. Other pictures by turn.
ClipPtr scene(int turn) {
    return generated_clip(3, [turn](int frame, const FrameFormat& format, void* dest) {
        auto* const words = static_cast<uint16_t*>(dest);
        std::minstd_rand random(static_cast<unsigned>(frame * 8 + turn + 1));
        for (int y = 0; y < format.height; ++y)
            for (int x = 0; x < format.width; ++x)
                for (int c = 0; c < 3; ++c) {
                    const int dx = x - 30 - 20 * turn - frame, dy = y - 36 + 6 * turn;
                    int value = (x * (c + 1) * 12 + y * (turn + 1) * 9) % 3000;
                    if (x + turn * 16 > 70) value /= 3;
                    if (dx * dx + dy * dy < 90) value = 4095 - 200 * c;
                    value += static_cast<int>((random() >> 8) % 128);
                    words[(y * format.width + x) * 3 + c] = static_cast<uint16_t>(std::min(value, 4095) << 4);
                }
        return true;
    });
}
// A kernel of few samples: sums of them are exact, where those of a transform are as exact as its library.
ClipPtr kernel() {
    return generated_clip(3, [](int, const FrameFormat& format, void* dest) {
        auto* const words = static_cast<uint16_t*>(dest);
        std::fill(words, words + format.width * format.height * 3, uint16_t{0});
        for (int i = -2; i <= 2; ++i)
            for (int c = 0; c < 3; ++c)
                words[((format.height / 2 + i) * format.width + format.width / 2 + i * 2) * 3 + c] =
                    static_cast<uint16_t>((4095 - 700 * std::abs(i)) << 4);
        return true;
    });
}

// FNV-1a over the significant samples.
std::string hash_of(const std::vector<unsigned>& samples) {
    uint64_t hash = 14695981039346656037u;
    for (const unsigned sample : samples)
        for (const unsigned byte : {sample & 255, sample >> 8}) hash = (hash ^ byte) * 1099511628211u;
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

// The second frame of an effect with its params as they come.
std::string picture_hash(const std::string& family, int effect) {
    ShippedPlugin shipped(family);
    shipped.host.format = {width, height, depth};
    if (!shipped.start()) return "not loaded";
    for (int i = 0; i < 4; ++i) shipped.plugin->inputs[static_cast<size_t>(i)] = scene(i);
    if (family == "convolve") shipped.plugin->inputs[1] = kernel();
    if (describe(*shipped.plugin).effects.size() > 1) {
        set_control_value(*find_control(shipped.plugin->panel, SPARK_FIRST_CONTROL), 0, static_cast<float>(effect));
        use_control(*shipped.plugin, SPARK_FIRST_CONTROL, SPARK_ACTION_RELEASE);
    }
    const auto rendered = shipped.render(1);
    return rendered.empty() ? "not rendered" : hash_of(significant(rendered, depth));
}

TEST(Effects, LookAsTheyDid) {
    std::map<std::string, std::string> now, before;
    for (const std::string& family : shipped_families()) {
        ShippedPlugin shipped(family);
        ASSERT_TRUE(shipped.start());
        const std::vector<std::string> effects = describe(*shipped.plugin).effects;
        for (size_t i = 0; i < effects.size(); ++i) {
            std::string name = family + ":" + effects[i];
            std::replace(name.begin(), name.end(), ' ', '_');
            now[name] = picture_hash(family, static_cast<int>(i));
            EXPECT_EQ(now[name].size(), 16u) << name << " " << now[name];
        }
    }
    EXPECT_FALSE(now.empty());
    if (const char* const out = std::getenv("VELLORAN_RENEW_HASHES")) {
        std::ofstream file(out);
        for (const auto& [name, hash] : now) file << name << ' ' << hash << '\n';
        return;
    }
    std::ifstream file(EFFECT_HASHES);
    for (std::string name, hash; file >> name >> hash;) before[name] = hash;
    for (const auto& [name, hash] : now) EXPECT_EQ(hash, before[name]) << name << " looks otherwise";
    for (const auto& [name, hash] : before) EXPECT_TRUE(now.count(name)) << name << " is gone";
}

}  // namespace
