// A user who has seen enough while frames are fetched, and a fatal abort in the host's answer: the frame ends, memory
// comes back, and the next frame is whole.
#include "engine/evaluate.h"
#include "support/abort.h"
#include "support/user_abort.h"
#include "testing/engine_rig.h"
#include "testing/numbered_clip.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace velloran;
using namespace velloran_tests;

namespace {

double now = 0;

class TimeAbort : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        abort_clock = [] { return now; };
        rig.host.host.read_pen = [this] { return spark_host::Pen{0, 0, pen_down ? 1.0f : 0.0f}; };
        rig.host.info.TotalFrameNo = frames;
        const spark_host::ClipPtr numbered = source.clip(frames);
        rig.clips() = {spark_host::generated_clip(
            frames, [this, numbered](int frame, const spark_host::FrameFormat& format, void* dest) {
                if (frame == pen_at) pen_down = true;
                if (frame == fatal_at) fatal_abort(3);
                now += 3;  // the next look at the pen finds it held
                return numbered->read(frame, format, dest);
            })};
    }
    void TearDown() override {
        abort_clock = clock;
        rig.clips().clear();
    }
    static constexpr int frames = 8;
    double (*const clock)() = abort_clock;
    EngineRig rig{2};
    NumberedClip source;
    bool pen_down = false;
    int pen_at = -1, fatal_at = -1;
};

TEST_P(TimeAbort, EndsTheFrameAndNoMore) {
    ASSERT_TRUE(rig.load_body(GetParam()));
    ASSERT_EQ(rig.render(), 0);
    const HostFrame want = rig.dest;
    const std::vector<int> all = source.asked;
    ASSERT_GE(all.size(), 2u);
    for (size_t i = 0; i < all.size(); ++i) {
        source.asked.clear();
        pen_at = all[i];
        rig.render();
        EXPECT_TRUE(render_aborted_p());
        EXPECT_EQ(source.asked.size(), i + 1) << "the host was asked on after the abort";
        pen_at = -1;
        pen_down = false;

        fatal_at = all[i];
        EXPECT_EQ(rig.render(), -2);
        fatal_at = -1;
        EXPECT_EQ(rig.render(), 0);
        EXPECT_EQ(rig.dest, want) << "after an end at frame " << all[i];
    }
}

INSTANTIATE_TEST_SUITE_P(Calls, TimeAbort,
                         testing::Values("dest = (time_warp Source 2.5 1)", "dest = (time_warp Source (+ 3 (* x 2)) 1)",
                                         "dest = (interlace_get_frames Source 1 0 Source 5 1 0 0)"),
                         [](const auto& of) { return "Call" + std::to_string(of.index); });

}  // namespace
