// What a plug-in that goes leaves behind: nothing that grows.
#include "tests/render/text_plugin.h"

#include <malloc.h>

using namespace test_render;

// A host loads and unloads plug-ins all day long. Kernels, spectra, plans and accumulators of a frame's size go with
// the last of them.
TEST(Unload, GivesBackWhatFramesMade) {
    const std::string body =
        "(def_effect Spread (Source) ()\n"
        " line = (dir_blur (blur Source 0.3 2 1 1) [1 1 1] 0.1 [0 0 0] 1 1 0 1)\n"
        " far = (convolve line Source [0 0] [200 150] [0 0] [1 1] 1.5 1 1 1 [1 1] 2 [0 0 0] 0 0.8)\n"
        " dest = (masked_blur far (monochrome Source) 0.5 2 1)\n)\n";
    const auto in_use = [] {
        const struct mallinfo2 info = mallinfo2();
        return static_cast<double>(info.uordblks + info.hblkhd);
    };
    std::vector<double> after;
    for (int round = 0; round < 4; ++round) {
        {
            TextPlugin plugin(body);
            plugin.host.format = {640, 480, SPARK_DEPTH_8};
            plugin.host.processors = 2;
            plugin.inputs = {random_clip(1)};
            ASSERT_TRUE(plugin.start());
            ASSERT_FALSE(plugin.render().empty());
        }
        after.push_back(in_use());
    }
    // The first round also pays for what the program itself sets up once. Less than a plane for each round: nothing of
    // a frame's size is left.
    EXPECT_LT((after.back() - after[1]) / 2, 640 * 480 * 2.0);
}
