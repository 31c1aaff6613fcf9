// Effects that read around a pixel and what they made last, through the whole road of a frame: whole and cropped.
#include "tests/render/panel.h"

#include <algorithm>
#include <random>

using namespace test_render;

namespace {

constexpr int depth = SPARK_DEPTH_12, width = 40, height = 30;

struct Effects : TextPlugin {
    explicit Effects(const std::string& definitions, const char* setting = "use_curves_in_fields: 0")
        : TextPlugin(definitions) {
        std::string settings = ConfigDir::default_config();
        settings.replace(settings.find("use_curves_in_fields: 0"), 23, setting);
        config = std::make_unique<ConfigDir>(settings);
        host.format = {width, height, depth};
        host.processors = 2;
        host.total_frames = 4;
        inputs = {random_clip(4)};
        EXPECT_TRUE(start());
    }
    std::vector<unsigned> samples(int frame) {
        use_host(&host);
        return significant(render(frame), depth);
    }
};

std::string effect(const std::string& name, const std::string& body) {
    return "(def_effect " + name + " (Source) ()\n dest = " + body + "\n)\n";
}

// An effect goes on from its own output, not from what another effect of the plug-in made of the frame before.
TEST(CropAndFeedback, EffectsDoNotFeedOnEachOther) {
    const std::string both = effect("Trail", "(+ (* (get_prev_dest 0) 0.5) (* Source 0.5))") +
                             effect("Hold", "(+ (* (get_prev_dest Source) 0.5) 0.25)");
    const auto choose = [](Effects& plugin, int index) { set_control_value(Panel(plugin).at(6), 0, (float)index); };
    Effects plugin(both);
    plugin.samples(0);
    choose(plugin, 1);
    const auto held = plugin.samples(1);
    const auto source = significant(clip_bytes(*plugin.inputs[0], 1, plugin.host.format), depth);
    for (size_t i = 0; i < held.size(); ++i) ASSERT_EQ(held[i], source[i] / 2 + 1024) << i;
    choose(plugin, 0);
    const auto trail = plugin.samples(2);
    const auto next = significant(clip_bytes(*plugin.inputs[0], 2, plugin.host.format), depth);
    for (size_t i = 0; i < trail.size(); ++i) ASSERT_EQ(trail[i], next[i] / 2) << i;
}

// Inside the crop there is the same picture, from the first frame on. A filter reads further up and down while fields
// are rendered.
TEST(CropAndFeedback, CropsShowTheSamePicture) {
    constexpr int left = 10, bottom = 8, right = 25, top = 20;
    for (const char* body :
         {"(sharpen (* Source 0.5) 1 0.1)", "(+ (* (get_prev_dest 0) 0.5) (* (blur Source 0.2 1 1 0) 0.5))",
          "(+ (* (blur (get_prev_dest 0) 0.2 1 1 0) 0.5) (* Source 0.5))",
          "(blur (+ (* (get_prev_dest Source) 0.5) (* Source 0.5)) 0.2 1 1 0)",
          "(convolve Source (sin (* [1 2 3] x)) [4 4] [12 12] [0 0] [1 1] 1 1 1 0 [1 1] 1 [0 0 0] 0 0.8)",
          "(max (* Source 0.5) (convolve (sin (* (v3 x y x) 9)) (sin (* [1 2 3] x)) [4 4] [12 12] [0 0] [1 1] 1 1 1 0 "
          "[1 1] 1 [0 0 0] 0 0.8))"})
        for (const int fields : {0, 1, 2}) {
            Effects whole(effect("Trail", body)), cropped(effect("Trail", body));
            for (Effects* plugin : {&whole, &cropped})
                set_control_value(Panel(*plugin).at(number_fields), 0, (float)fields);
            const std::pair<int, int> edges[] = {{number_crop_left, left},
                                                 {number_crop_bottom, bottom},
                                                 {number_crop_right, right},
                                                 {number_crop_top, top},
                                                 {number_crop_enable, 1}};
            for (const auto& [number, value] : edges) set_control_value(Panel(cropped).at(number), 0, (float)value);
            for (int frame = 0; frame < 3; ++frame) {
                const auto got = cropped.samples(frame), want = whole.samples(frame);
                ASSERT_NE(got, want) << "there is a crop";
                for (int y = bottom; y < top; ++y)
                    for (int i = (y * width + left) * 3; i < (y * width + right) * 3; ++i)
                        ASSERT_EQ(got[(size_t)i], want[(size_t)i])
                            << body << " fields " << fields << " frame " << frame;
            }
        }
}

// The second field has a moment of its own, and its filters may read further than those of the first: by curves of
// params, or by functions of time. Whatever moves with time, a crop shows what the whole frame shows there.
TEST(CropAndFeedback, FieldsHaveTheirOwnReach) {
    struct {
        const char* amount;
        const char* curves;
    } const rows[] = {
        {"amount", "use_curves_in_fields: 1"},
        {"(* (get_frame_number) 0.3)", "use_curves_in_fields: 0"},
        {"(* (get_frame_number) 0.3)", "use_curves_in_fields: 1"},
        {"(- 0.5 (* (get_time) 9))", "use_curves_in_fields: 0"},
        {"(* (get_percent_time) amount)", "use_curves_in_fields: 0"},
    };
    std::mt19937 random(5);
    const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    for (const auto& row : rows)
        for (const int fields : {1, 2}) {
            const std::string amount = row.amount;
            const std::string text =
                "(def_effect Soft (Source) ()\n amount = 0 (max 2)\n dest = (max (blur Source (max 0 " + amount +
                ") 1 1 0) (sharpen Source 1 (max 0 " + amount + ")))\n)\n";
            Effects whole(text, row.curves), cropped(text, row.curves);
            for (Effects* plugin : {&whole, &cropped}) {
                Panel panel(*plugin);
                set_key(panel.at(6).curves[0], 1, 0.0f);
                set_key(panel.at(6).curves[0], 2, 0.6f);
                set_key(panel.at(6).curves[0], 3, 0.1f);
                set_control_value(panel.at(number_fields), 0, static_cast<float>(fields));
            }
            for (int round = 0; round < 12; ++round) {
                const int frame = below(3);
                const int left = 5 + below(15), right = left + 1 + below(20);
                const int bottom = 4 + below(10), top = bottom + 1 + below(12);
                const std::pair<int, int> edges[] = {{number_crop_left, left},
                                                     {number_crop_bottom, bottom},
                                                     {number_crop_right, right},
                                                     {number_crop_top, top},
                                                     {number_crop_enable, 1}};
                Panel panel(cropped);
                for (const auto& [number, value] : edges)
                    set_control_value(panel.at(number), 0, static_cast<float>(value));
                const auto got = cropped.samples(frame), want = whole.samples(frame);
                ASSERT_EQ(got.size(), want.size());
                for (int y = bottom; y < top; ++y)
                    for (int i = (y * width + left) * 3; i < (y * width + right) * 3; ++i)
                        ASSERT_EQ(got[(size_t)i], want[(size_t)i])
                            << row.amount << " fields " << fields << " frame " << frame << " crop " << left << ","
                            << bottom << " to " << right << "," << top << " row " << y;
            }
        }
}

// A run of frames is broken by a jump for effects that remember, and for them alone.
TEST(CropAndFeedback, RunsAreOfEffectsThatRemember) {
    for (const int jump : {0, 1}) {
        Effects plugin(effect("Trail", "(+ (* (get_prev_dest 0) 0.5) (* Source 0.5))"));
        const auto source = [&](int frame) {
            return significant(clip_bytes(*plugin.inputs[0], frame, plugin.host.format), depth);
        };
        const auto first = plugin.samples(0), second = plugin.samples(1 + jump);
        const auto a = source(0), b = source(1 + jump);
        for (size_t i = 0; i < second.size(); ++i) {
            ASSERT_EQ(first[i], a[i] / 2);
            ASSERT_EQ(second[i], jump ? b[i] / 2 : first[i] / 2 + b[i] / 2) << i;
        }
    }
}

}  // namespace
