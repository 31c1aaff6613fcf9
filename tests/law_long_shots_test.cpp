// Over a still picture no effect jumps where a product of time and a speed gets so large that it wraps round: between
// two frames far into a shot the picture changes no more than it does at its start.
#include "tests/render/shipped_plugin.h"

#include <cmath>
#include <cstring>

using namespace test_render;

namespace {

constexpr int width = 96, height = 60, frames = 20000;
constexpr int places = 20, between = 90, apart = 151;
constexpr int wrap = 128;  // of products

ClipPtr still(int turn) {
    return generated_clip(frames, [turn](int, const FrameFormat& format, void* dest) {
        auto* word = static_cast<uint16_t*>(dest);
        for (int y = 0; y < format.height; ++y)
            for (int x = 0; x < format.width; ++x)
                for (int c = 0; c < 3; ++c) {
                    const int dx = x - 36 - 16 * turn, dy = y - 29;
                    int value = (x * (c + 1) * 9 + y * (turn + 1) * 7) % 2600 + 200;
                    if (dx * dx + dy * dy < 130) value = 4095 - 150 * c;
                    *word++ = static_cast<uint16_t>(value << 4);
                }
        return true;
    });
}

struct Shot {
    Shot(const std::string& family, size_t effect) : shipped(family) {
        shipped.host.format = {width, height, SPARK_DEPTH_12};
        shipped.host.total_frames = frames;
        for (const std::string name : {"v_filmtypes.text", "v_lensflares.text", "v_glares.text"}) {
            std::ifstream file(EFFECT_DATA + name, std::ios::binary);
            shipped.config.write(name, {std::istreambuf_iterator<char>(file), {}});
        }
        if (!shipped.start()) return;
        for (int i = 0; i < 4; ++i) shipped.plugin->inputs[static_cast<size_t>(i)] = still(i);
        all = describe(*shipped.plugin);
        if (all.effects.size() > 1) {
            set_control_value(*find_control(shipped.plugin->panel, SPARK_FIRST_CONTROL), 0, static_cast<float>(effect));
            use_control(*shipped.plugin, SPARK_FIRST_CONTROL, SPARK_ACTION_RELEASE);
        }
        shipped.render();
    }
    // The mean difference of two frames that follow each other, of 4095.
    double change(int frame) {
        const std::vector<unsigned char> one = shipped.render(frame), two = shipped.render(frame + 1);
        EXPECT_FALSE(one.empty() || two.empty());
        double sum = 0;
        for (size_t i = 0; i + 1 < std::min(one.size(), two.size()); i += 2) {
            uint16_t a, b;
            std::memcpy(&a, &one[i], 2), std::memcpy(&b, &two[i], 2);
            sum += std::abs((a >> 4) - (b >> 4));
        }
        return sum / (width * height * 3);
    }
    ShippedPlugin shipped;
    Described all;
};

TEST(LongShots, DoNotJump) {
    int n_moving = 0;
    for (const std::string& family : shipped_families()) {
        for (size_t effect = 0, n = 1; effect < n; ++effect) {
            Shot shot(family, effect);
            n = shot.all.effects.size();
            ASSERT_GT(n, effect);
            // What is made of the frames before begins anew in the middle of a shot.
            if (shot.all.remembers[effect]) continue;
            double usual = 0;
            for (int i = 0; i < places; ++i) {
                usual = std::max(usual, shot.change(1 + i));
                usual = std::max(usual, shot.change(between + i * apart));
            }
            n_moving += usual > 0;
            for (const double factor : {0.25, 0.3, 0.5, 1.0, 2.0, 3.0, 5.0, 8.0}) {
                const double frame = wrap / factor * static_cast<double>(shot.shipped.host.frame_rate);
                // Times are whole steps of 1/4096 second, so that the product may wrap a frame later.
                for (const int late : {static_cast<int>(frame) - 1, static_cast<int>(frame)}) {
                    EXPECT_LE(shot.change(late), 1.4 * usual + 1)
                        << family << ":" << shot.all.effects[effect] << " between frames " << late << " and "
                        << late + 1 << ", usually " << usual;
                }
            }
        }
    }
    EXPECT_GT(n_moving, 20);
}

}  // namespace
