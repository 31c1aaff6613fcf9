// A shot of old film: every frame of it is the same however it comes to be rendered.
#include "tests/render/panel.h"
#include "tests/render/shipped_plugin.h"

#include <malloc.h>

using namespace test_render;

namespace {

constexpr int frames = 240, width = 48, height = 36;

// Dirt is drawn from the seed and the frame; weave, lamp and hairs go by time.
struct Reel : ShippedPlugin {
    explicit Reel(int tasks) : ShippedPlugin("old_film") {
        host.format = {width, height, SPARK_DEPTH_12};
        host.processors = tasks;
        host.total_frames = frames;
        EXPECT_TRUE(start());
    }
    std::vector<unsigned> samples(int frame) { return significant(render(frame), SPARK_DEPTH_12); }
};

}  // namespace

TEST(OldFilm, TasksCropsAndFramesAloneAreAlike) {
    std::vector<std::vector<unsigned>> shot;
    for (const int tasks : {1, 2, 5}) {
        Reel reel(tasks);
        [[maybe_unused]] size_t in_use = 0;
        for (int frame = 0; frame < frames; ++frame) {
            const std::vector<unsigned> now = reel.samples(frame);
            ASSERT_FALSE(now.empty());
            // What is kept was made by then, mirrors of stamps among it.
            if (frame == frames / 2) in_use = mallinfo2().uordblks;
            if (tasks == 1)
                shot.push_back(now);
            else
                ASSERT_EQ(now, shot[static_cast<size_t>(frame)]) << tasks << " tasks, frame " << frame;
        }
#ifndef VELLORAN_SANITIZED
        const size_t own = tasks == 1 ? shot[0].size() * sizeof(unsigned) * (frames / 2 + 1) : 0;
        EXPECT_LT(mallinfo2().uordblks, in_use + own + (size_t{64} << 10));
#endif
    }
    for (int frame = 0; frame < frames; frame += 17) {
        Reel alone(2);
        EXPECT_EQ(alone.samples(frame), shot[static_cast<size_t>(frame)]) << frame;
    }
    constexpr int left = 9, bottom = 7, right = 40, top = 30;
    Reel cropped(2);
    cropped.render(0);
    const std::pair<int, int> controls[] = {{number_crop_left, left},
                                            {number_crop_bottom, bottom},
                                            {number_crop_right, right},
                                            {number_crop_top, top},
                                            {number_crop_enable, 1}};
    for (const auto& [number, value] : controls)
        set_control_value(*find_control(cropped.plugin->panel, number), 0, static_cast<float>(value));
    constexpr int pixel = 3;
    for (int frame = 1; frame < frames; frame += 5) {
        const std::vector<unsigned> now = cropped.samples(frame), &whole = shot[static_cast<size_t>(frame)];
        ASSERT_EQ(now.size(), whole.size());
        for (int y = bottom; y < top; ++y) {
            const ptrdiff_t from = (y * width + left) * pixel, n = (right - left) * pixel;
            ASSERT_TRUE(std::equal(now.begin() + from, now.begin() + from + n, whole.begin() + from))
                << frame << " row " << y;
        }
    }
    // No frame is like another.
    EXPECT_EQ(std::set<std::vector<unsigned>>(shot.begin(), shot.end()).size(), size_t{frames});
}
