// Laws that every image function keeps. The walk asks the function table which of them have code, so that a function is
// held to them from its first day. The library's inner parts are those of this program: its allocations can be made to
// fail and its targets be chosen; the module is loaded as a host would.
#include "engine/evaluate.h"
#include "host/stub_services.h"
#include "support/abort.h"
#include "support/memory.h"
#include "support/task_state.h"
#include "testing/random_calls.h"
#include "testing/row_targets.h"
#include "tests/render/panel.h"
#include "tests/render/shipped_plugin.h"

#include <atomic>
#include <cstdlib>

// The library comes along with the module, though this program stands before it: its globals exist twice on purpose.
extern "C" const char* __asan_default_options() { return "detect_odr_violation=0"; }

using namespace test_render;
using namespace velloran_tests;
using velloran::allocate_block;
using velloran::NodeFun;

namespace {

// Brings every entry point into this program, where the module finds it before the library's own.
const void* const entry_points[] = {
    reinterpret_cast<const void*>(V4_SparkClips),    reinterpret_cast<const void*>(V4_SparkProcess),
    reinterpret_cast<const void*>(V4_SparkInteract), reinterpret_cast<const void*>(V4_init_globals),
    reinterpret_cast<const void*>(V4_split_effects),
};

constexpr int width = 33, height = 26, depth = SPARK_DEPTH_12;

// A fresh plug-in of a text.
struct Effect : TextPlugin {
    explicit Effect(const std::string& definitions, int tasks = 2) : TextPlugin(definitions) {
        host.format = {width, height, depth};
        host.processors = tasks;
        host.total_frames = 3;
        inputs = {random_clip(3), random_clip(3, 2)};
        EXPECT_NE(entry_points[0], nullptr);
        EXPECT_TRUE(start());
    }
    // Two frames in turn, so that what is kept from one to the next takes part. Empty if the first fails.
    std::vector<unsigned> samples() {
        use_host(&host);
        std::vector<unsigned> all = significant(render(0), depth);
        const std::vector<unsigned> second = significant(render(1), depth);
        all.insert(all.end(), second.begin(), second.end());
        return all;
    }
    void set(int number, float value) { set_control_value(Panel(*this).at(number), 0, value); }
};

std::vector<unsigned> picture(const std::string& text, int tasks = 2) { return Effect(text, tasks).samples(); }

class ImageFunctions : public testing::TestWithParam<const NodeFun*> {
protected:
    // body(call) for calls of every signature, and at least so many. A call may be refused, but not all of them.
    template <class Body>
    void for_each_call(int at_least, Body body) {
        const NodeFun& fun = *GetParam();
        std::mt19937 rng(static_cast<unsigned>(&fun - velloran::node_funs) + 1);
        int rendered = 0;
        const int combos = fun.arg_type_combo_number;
        for (int i = 0; i < std::max(at_least, combos); ++i) {
            const RandomCall call = draw_call(rng, fun, i % combos);
            SCOPED_TRACE(text_of(call));
            rendered += !picture(text_of(call)).empty();
            body(call);
            if (testing::Test::HasFailure()) return;
        }
        EXPECT_GT(rendered, 0) << "every call was refused";
    }
};

TEST_P(ImageFunctions, TasksTimesAndTargetsAreAlike) {
    for_each_call(8, [](const RandomCall& call) {
        const std::string text = text_of(call);
        const std::vector<unsigned> want = picture(text, 1);
        for (const int tasks : {1, 2, 5}) EXPECT_EQ(picture(text, tasks), want) << tasks << " tasks";
        for_each_row_target([&](int64_t) { EXPECT_EQ(picture(text), want); });
        // What does not follow from frames before is the same the second time in one plug-in.
        if (call.fun->fun_flags & velloran::fun_changes_each_frame) return;
        Effect effect(text);
        const std::vector<unsigned> first = effect.samples();
        EXPECT_EQ(effect.samples(), first) << "the second time";
    });
}

TEST_P(ImageFunctions, ACropShowsTheSamePicture) {
    const struct {
        int left, bottom, right, top;
    } crops[] = {{10, 8, 25, 20}, {0, 0, 7, 9}, {20, 3, width, height}, {16, 13, 17, 14}};
    int turn = 0;
    for_each_call(8, [&](const RandomCall& call) {
        const std::vector<unsigned> whole = picture(text_of(call));
        const auto& crop = crops[turn++ % 4];
        Effect effect(text_of(call));
        effect.set(number_crop_left, static_cast<float>(crop.left));
        effect.set(number_crop_bottom, static_cast<float>(crop.bottom));
        effect.set(number_crop_right, static_cast<float>(crop.right));
        effect.set(number_crop_top, static_cast<float>(crop.top));
        effect.set(number_crop_enable, 1);
        const std::vector<unsigned> cropped = effect.samples();
        ASSERT_EQ(cropped.size(), whole.size());
        for (size_t i = 0; i < whole.size(); ++i) {
            const int x = static_cast<int>(i / 3) % width, y = static_cast<int>(i / 3) / width % height;
            if (x < crop.left || x >= crop.right || y < crop.bottom || y >= crop.top) continue;
            ASSERT_EQ(cropped[i], whole[i]) << "frame " << i / (3 * width * height) << " x " << x << " y " << y
                                            << " in a crop from " << crop.left << ", " << crop.bottom;
        }
    });
}

// A constant is the same as a param of that value, and as a param that was moved to it.
TEST_P(ImageFunctions, ConstantsAndParamsAreAlike) {
    for_each_call(8, [](const RandomCall& call) {
        const std::vector<unsigned> want = picture(text_of(call));
        EXPECT_EQ(picture(text_of(call, true)), want) << text_of(call, true);
        const std::string text = text_of(call, true, 0.5f);
        Effect effect(text);
        effect.render(2);  // as it was before the params moved
        const Described described = describe(*effect.plugin);
        for (size_t a = 0; a < call.args.size(); ++a) {
            if (!call.args[a].varying.empty()) continue;
            bool found = false;
            for (const DescribedParam& param : described.params) {
                if (param.name != "p" + std::to_string(a)) continue;
                found = true;
                for (size_t e = 0; e < call.args[a].values.size(); ++e) {
                    const bool own = e < param.numbers.size();
                    Control& control = *find_control(effect.plugin->panel, param.numbers[own ? e : 0]);
                    set_control_value(control, own && param.numbers.size() > 1 ? 0 : static_cast<int>(e),
                                      call.args[a].values[e]);
                }
            }
            EXPECT_TRUE(found) << "p" << a;
        }
        if (call.fun->fun_flags & velloran::fun_changes_each_frame) return;
        EXPECT_EQ(effect.samples(), want) << text << "moved";
    });
}

TEST_P(ImageFunctions, EveryResolutionRenders) {
    for_each_call(4, [](const RandomCall& call) {
        for (const int factor : {1, 2, 3}) {
            std::vector<unsigned> pictures[2];
            for (const int tasks : {1, 3}) {
                Effect effect(text_of(call), tasks);
                effect.set(number_res, static_cast<float>(factor));
                pictures[tasks / 2] = effect.samples();
            }
            EXPECT_EQ(pictures[0], pictures[1]) << "factor " << factor;
        }
    });
}

std::atomic<long> allocations{0}, fail_at{-1};
void* counting_block(size_t bytes, size_t alignment) {
    if (allocations.fetch_add(1) == fail_at.load()) return nullptr;
    return std::aligned_alloc(alignment, (bytes + alignment - 1) / alignment * alignment);
}
int events = 0, abort_at = -1;

// The frame that ended midway leaves nothing behind: the next one is what it would have been. Ends come from the fatal
// abort at each step of a frame, and from each allocation in turn.
TEST_P(ImageFunctions, AFrameAfterOneThatEndedIsWhole) {
    const NodeFun& fun = *GetParam();
    std::mt19937 rng(static_cast<unsigned>(&fun - velloran::node_funs) + 77);
    RandomCall call;
    std::string text;
    for (int tries = 0; tries < 20 && (text.empty() || picture(text).empty()); ++tries) {
        call = draw_call(rng, fun, draw_below(rng, fun.arg_type_combo_number));
        text = text_of(call);
    }
    SCOPED_TRACE(text);
    Effect effect(text);
    const auto want = effect.render(0);
    ASSERT_FALSE(want.empty());

    velloran::eval_hook = [](velloran::EvalEvent, const velloran::Node*) {
        if (events++ == abort_at) velloran::fatal_abort(3);
    };
    events = 0;
    abort_at = -1;
    EXPECT_FALSE(effect.render(1).empty());
    const int all_events = events;
    for (int i = 0; i < all_events; ++i) {
        events = 0;
        abort_at = i;
        EXPECT_TRUE(effect.render(1).empty());
        abort_at = -1;
        EXPECT_EQ(effect.render(0), want) << "after an abort at step " << i;
    }
    velloran::eval_hook = nullptr;

    void* (*const system_block)(size_t, size_t) = allocate_block;
    allocate_block = counting_block;
    fail_at = -1;
    allocations = 0;
    EXPECT_FALSE(effect.render(1).empty());
    const long all = allocations, step = std::max(1L, all / 40);
    for (long i = 0; i < all; i += step) {
        allocations = 0;
        fail_at = i;
        effect.render(1);
        fail_at = -1;
        EXPECT_EQ(velloran::is_forked, 0);
        EXPECT_EQ(velloran::_V_jmp_set, 0);
        EXPECT_EQ(effect.render(0), want) << "after allocation " << i << " of " << all << " failed";
        if (HasFailure()) break;
    }
    allocate_block = system_block;
}

INSTANTIATE_TEST_SUITE_P(Table, ImageFunctions, testing::ValuesIn(image_functions()),
                         [](const auto& of) { return std::string(of.param->name); });

}  // namespace
