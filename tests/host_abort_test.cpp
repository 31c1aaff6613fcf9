// Fatal aborts in the middle of a frame: the entry point answers null and the next frame is right. The library's inner
// parts are those of this program, so that allocations can be made to fail; the module is loaded as a host would.
#include "engine/evaluate.h"
#include "host/stub_services.h"
#include "support/abort.h"
#include "support/memory.h"
#include "support/task_state.h"
#include "tests/render/panel.h"

#include <atomic>
#include <cstdlib>

// The library comes along with the module, though this program stands before it: its globals exist twice on purpose.
extern "C" const char* __asan_default_options() { return "detect_odr_violation=0"; }

using namespace test_render;
using velloran::allocate_block;

namespace {

// Shared sub-expressions and an image function: passes into planes and a pass into the destination, which x keeps from
// being a compiled loop, so that lines are allocated.
const char* const busy_text =
    "(def_effect Busy (Source) ()\n"
    "  soft = (gamma (+ Source 0.1) 2)\n"
    "  a = (* Source 0.5)\n"
    "  dest = (+ (+ (+ a soft) x) (sin (* a (abs xy_sum))))\n"
    "  xy_sum = (+ x y)\n"
    ")\n";

// Brings every entry point into this program, where the module finds it before the library's own.
const void* const entry_points[] = {
    reinterpret_cast<const void*>(V4_SparkClips),    reinterpret_cast<const void*>(V4_SparkProcess),
    reinterpret_cast<const void*>(V4_SparkInteract), reinterpret_cast<const void*>(V4_init_globals),
    reinterpret_cast<const void*>(V4_split_effects),
};

std::atomic<long> allocations{0};
std::atomic<long> fail_at{-1};

void* counting_block(size_t bytes, size_t alignment) {
    if (allocations.fetch_add(1) == fail_at.load()) return nullptr;
    return std::aligned_alloc(alignment, (bytes + alignment - 1) / alignment * alignment);
}

// Renders with the allocation of that number failing. Whether that cost the frame.
bool fails_without(TextPlugin& plugin, long allocation) {
    void* (*const system_block)(size_t, size_t) = allocate_block;
    allocations = 0;
    fail_at = allocation;
    allocate_block = counting_block;
    const bool failed = plugin.render().empty();
    allocate_block = system_block;
    fail_at = -1;
    return failed;
}

class HostAbort : public testing::TestWithParam<int> {
protected:
    void SetUp() override {
        effect.host.format = {48, 40, SPARK_DEPTH_12};
        effect.host.processors = GetParam();
        effect.inputs = {random_clip(2)};
        effect.host.total_frames = 2;
        for (const void* entry_point : entry_points) ASSERT_NE(entry_point, nullptr);
        ASSERT_TRUE(effect.start());
        system_block = allocate_block;
        want = effect.render();
        ASSERT_FALSE(want.empty());
    }
    void TearDown() override {
        allocate_block = system_block;
        velloran::eval_hook = nullptr;
    }
    TextPlugin effect{busy_text};
    std::vector<unsigned char> want;
    void* (*system_block)(size_t, size_t) = nullptr;
};

TEST_P(HostAbort, EveryAllocationOfARenderMayFail) {
    allocate_block = counting_block;
    fail_at = -1;
    allocations = 0;
    // The other frame first, so that what is kept between frames is made anew.
    ASSERT_FALSE(effect.render(1).empty());
    const long in_a_frame = allocations;
    ASSERT_GT(in_a_frame, 2);
    int failed = 0;
    for (long i = 0; i < in_a_frame; ++i) {
        allocations = 0;
        fail_at = i;
        const auto broken = effect.render(1);
        failed += broken.empty();
        EXPECT_EQ(velloran::is_forked, 0);
        EXPECT_EQ(velloran::mp_running, 0);
        EXPECT_EQ(velloran::_V_jmp_set, 0);
        fail_at = -1;
        ASSERT_EQ(effect.render(0), want) << "after allocation " << i << " failed";
    }
    EXPECT_GT(failed, in_a_frame / 2) << "most of them are needed";
}

TEST_P(HostAbort, AnAbortOnTheHostsThreadEndsTheFrameOnly) {
    velloran::eval_hook = [](velloran::EvalEvent, const velloran::Node*) { velloran::fatal_abort(3); };
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(effect.render().empty());
    velloran::eval_hook = nullptr;
    EXPECT_EQ(effect.render(), want);
}

// The plan of images is made when an effect is chosen: one that was not made to its end may let images overwrite each
// other, so the next frame makes it again.
TEST(HostAbortInSelection, TheNextFrameSelectsAgain) {
    const char* const texts =
        "(def_effect First (Source) ()\n  dest = (* Source 0.5)\n)\n"
        "(def_effect Second (Source) ()\n  c = [1 -1 1]\n"
        "  dest = (if+ c (blur Source 0.05 1 1 0) (blur (one_minus Source) 0.1 1 1 0))\n)\n";
    const auto start = [&](TextPlugin& plugin) {
        plugin.host.format = {48, 40, SPARK_DEPTH_12};
        plugin.inputs = {random_clip(1)};
        return plugin.start();
    };
    const auto choose_second = [](TextPlugin& plugin) {
        set_control_value(*find_control(plugin.plugin->panel, 6), 0, 1);
    };
    std::vector<unsigned char> want;
    {
        TextPlugin plugin(texts);
        ASSERT_TRUE(start(plugin));
        choose_second(plugin);
        want = plugin.render();
        ASSERT_FALSE(want.empty());
    }
    int failed = 0;
    for (long i = 0; i < 12; ++i) {
        TextPlugin plugin(texts);
        ASSERT_TRUE(start(plugin));
        ASSERT_FALSE(plugin.render().empty());
        choose_second(plugin);
        failed += fails_without(plugin, i);
        EXPECT_EQ(plugin.render(), want) << "after allocation " << i << " failed";
    }
    EXPECT_GT(failed, 4);
}

// A control is moved, the frame ends midway, the control is moved back: the frame is what it was.
TEST(HostAbortOfControls, ControlsMoveBackAfterAFrameThatEnded) {
    const struct {
        const char* what;
        std::vector<std::pair<int, float>> moved;
    } cases[] = {
        {"gamma", {{number_gamma, 2.2f}}},
        {"fields", {{number_fields, 1}}},
        {"resolution", {{number_res, 2}}},
        {"noise", {{number_add_noise, 0.1f}}},
        {"crop", {{number_crop_left, 5}, {number_crop_right, 30}, {number_crop_enable, 1}}},
    };
    for (const auto& c : cases) {
        int failed = 0;
        for (long i = 0; i < 12; ++i) {
            TextPlugin plugin(
                "(def_effect Kept (Source) ()\n  kept = (gamma (sin (v3 x y x)) 2)\n"
                "  dest = (+ kept (* (blur Source 0.1 1 1 0) 0.5))\n)\n");
            plugin.host.format = {48, 40, SPARK_DEPTH_12};
            plugin.inputs = {random_clip(1)};
            ASSERT_TRUE(plugin.start());
            const auto want = plugin.render();
            ASSERT_FALSE(want.empty());
            Panel panel(plugin);
            std::vector<std::pair<int, float>> before;
            for (const auto& [number, value] : c.moved) {
                before.emplace_back(number, panel.value(number));
                set_control_value(panel.at(number), 0, value);
            }
            failed += fails_without(plugin, i);
            for (const auto& [number, value] : before) set_control_value(panel.at(number), 0, value);
            EXPECT_EQ(plugin.render(), want) << c.what << " after allocation " << i << " failed";
        }
        EXPECT_GT(failed, 1) << c.what;
    }
}

INSTANTIATE_TEST_SUITE_P(Tasks, HostAbort, testing::Values(1, 2, 5));

}  // namespace
