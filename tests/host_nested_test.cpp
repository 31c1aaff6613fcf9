// A frame that the host has another plug-in make while one is being made. The library's inner parts are those of this
// program, so that a function can ask for frames; the modules are loaded as a host would.
#include "engine/evaluate.h"
#include "frame/host_buffers.h"
#include "frame/lut_files.h"
#include "frame/other_frames.h"
#include "functions/function_table.h"
#include "genotype/node_fun_table.h"
#include "host/stub_services.h"
#include "records/run_state.h"
#include "support/abort.h"
#include "support/memory.h"
#include "tests/render/text_plugin.h"

// The library comes along with the module, though this program stands before it: its globals exist twice on purpose.
extern "C" const char* __asan_default_options() { return "detect_odr_violation=0"; }

using namespace test_render;
using namespace velloran;

namespace {

// Brings every entry point into this program, where the module finds it before the library's own.
const void* const entry_points[] = {
    reinterpret_cast<const void*>(V4_SparkClips),    reinterpret_cast<const void*>(V4_SparkProcess),
    reinterpret_cast<const void*>(V4_SparkInteract), reinterpret_cast<const void*>(V4_init_globals),
    reinterpret_cast<const void*>(V4_split_effects),
};

constexpr FrameFormat format = {48, 40, SPARK_DEPTH_12};
bool asks_host = false;

// Each sample becomes the mean of those from the row's start on. The sums stand in a long image too large for the
// buffers that the host gives, and in the middle of it the host is asked for frame 1 of the input.
void image_asking(Node* node) {
    const int w = the_frame->temp_raster_info.width, h = the_frame->temp_raster_info.height;
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
    for (int e = 0; e < node->elnum; ++e) {
        int32_t* sums = spark_set_long_image(2 * w, h);
        for (int i = 0; i < w * h; ++i) sums[i] = node->images[e][i] + (i % w ? sums[i - 1] : 0);
        if (asks_host) {
            auto* other = frame_array<unsigned char>((size_t)spark_info_ptr->FrameBytes);
            get_frame_from_host(0, 1, other);
            frame_free(other);
        }
        for (int i = 0; i < w * h; ++i) node->images[e][i] = (FixPixel)(sums[i] / (1 + i % w));
    }
}

// What another plug-in does to the library's state in a frame of its own.
struct InnerCase {
    const char* text;
    FrameFormat format;
    int inputs;
    bool fails;
};
const InnerCase inner_cases[] = {
    {"(def_effect Inner (Source) ()\n dest = (one_minus Source)\n)\n", format, 1, false},
    {"(def_effect Inner (Source Back) ()\n a = (* Source Back) dest = (+ (get_prev_dest 0) (+ a (gamma a 2)))\n)\n",
     format, 2, false},
    {"(def_effect Inner (Source) ()\n dest = (+ (sharpen (+ Source 0.1) 1 0.1) (gamma Source 2))\n)\n", format, 1,
     false},
    {"(def_effect Inner (Source) ()\n dest = (+ (sharpen (+ Source 0.1) 1 0.1) (gamma Source 2))\n)\n",
     {8, 6, SPARK_DEPTH_8},
     1,
     false},
    {"(def_effect Inner (Source) ()\n dest = (+ (gamma (+ Source 0.1) 0.5) 0.1)\n)\n", {8, 6, SPARK_DEPTH_8}, 1, true},
};

class HostNested : public testing::TestWithParam<int> {
protected:
    void SetUp() override {
        for (const void* entry_point : entry_points) ASSERT_NE(entry_point, nullptr);
        fill_node_fun_tables();
        fun = const_cast<NodeFun*>(find_node_fun("sharpen"));
        real = fun->pixel_funs[0];
        use(image_asking);
    }
    void TearDown() override {
        use(real);
        eval_hook = nullptr;
        asks_host = false;
    }
    void use(PixelFun function) {
        for (int c = 0; c < fun->arg_type_combo_number; ++c) fun->pixel_funs[c] = function;
    }
    NodeFun* fun = nullptr;
    PixelFun real = nullptr;
};

TEST_P(HostNested, FramesOfOtherPluginsInBetweenDisturbNothing) {
    for (const InnerCase& c : inner_cases) {
        TextPlugin inner(c.text, "inner");
        inner.host.format = c.format;
        inner.host.processors = GetParam();
        for (int i = 0; i < c.inputs; ++i) inner.inputs.push_back(random_clip(2, 8 + (unsigned)i));
        ASSERT_TRUE(inner.start());
        TextPlugin outer(
            "(def_effect Outer (Source Back) ()\n  a = (* Source Back) kept = (gamma (sin (* (v3 x y x) 3)) 2)\n"
            "  dest = (+ (+ a kept) (- (sharpen a 1 0.1) (+ (gamma a 2) (gamma (+ Back Source) 0.5))))\n)\n",
            "outer");
        outer.host.format = format;
        outer.host.processors = GetParam();
        outer.host.total_frames = 4;
        int made = 0;
        const ClipPtr source = random_clip(4, 1);
        outer.inputs = {generated_clip(4,
                                       [&](int frame, const FrameFormat& of, void* dest) {
                                           if (frame != 1) return read_clip(*source, frame, of, dest);
                                           Host* const host_before = use_host(&inner.host);
                                           asks_host = false;
                                           if (c.fails) eval_hook = [](EvalEvent, const Node*) { fatal_abort(3); };
                                           EXPECT_EQ(inner.render().empty(), c.fails);
                                           eval_hook = nullptr;
                                           set_gamma(2.2f);  // a control of the inner plug-in
                                           asks_host = true;
                                           use_host(host_before);
                                           ++made;
                                           return true;
                                       }),
                        random_clip(4, 2)};
        ASSERT_TRUE(outer.start());
        std::vector<unsigned char> want[4];
        for (const int frame : {0, 2, 3}) {
            asks_host = false;
            want[frame] = outer.render(frame);
            ASSERT_FALSE(want[frame].empty());
        }
        for (const bool asks : {true, true, false})
            for (const int frame : {0, 2, 3}) {
                asks_host = asks;
                EXPECT_EQ(outer.render(frame), want[frame]) << c.text << " frame " << frame;
            }
        EXPECT_EQ(made, 18) << "for three elements of six frames";
    }
}

// A frame that is wanted of the plug-in that is in the middle of one, or that the host has not, is none; and neither is
// the frame that wanted it.
TEST_P(HostNested, FramesThatDoNotComeAreNotMadeUp) {
    TextPlugin plugin("(def_effect Outer (Source) ()\n  dest = (sharpen Source 1 0.1)\n)\n", "outer");
    plugin.host.format = format;
    plugin.host.processors = GetParam();
    plugin.host.total_frames = 4;
    const ClipPtr source = random_clip(4, 1);
    bool itself = false;
    int asked = 0;
    plugin.inputs = {generated_clip(4, [&](int frame, const FrameFormat& of, void* dest) {
        if (frame != 1) return read_clip(*source, frame, of, dest);
        ++asked;
        if (!itself) return false;
        asks_host = false;
        SparkInfoStruct info = *spark_info_ptr;
        return V4_SparkProcess(info) != nullptr;
    })};
    ASSERT_TRUE(plugin.start());
    const auto want = plugin.render(2);
    ASSERT_FALSE(want.empty());
    for (const bool of_itself : {false, true, false}) {
        itself = of_itself;
        asks_host = true;
        EXPECT_TRUE(plugin.render(2).empty());
        asks_host = false;
        EXPECT_EQ(plugin.render(2), want);
    }
    EXPECT_GE(asked, 3);
}

INSTANTIATE_TEST_SUITE_P(Tasks, HostNested, testing::Values(1, 3));

}  // namespace
