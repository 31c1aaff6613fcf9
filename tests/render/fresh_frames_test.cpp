// A frame follows from its number and from what the controls show, and from nothing that was rendered before: what a
// plug-in keeps from frame to frame must never be seen. The measure is a plug-in loaded for that one frame.
#include "tests/render/panel.h"
#include "tests/render/shipped_plugin.h"

#include <random>
#include <set>

using namespace test_render;

namespace {

// Controls that show in a picture, by number. Left out are those that act, the one that may forbid rendering, and
// noise, which differs among plug-ins that are loaded together.
std::vector<int> pictured(const Plugin& plugin) {
    std::set<int> left_out;
    for (const DescribedParam& p : describe(plugin).params)
        for (const char* const key :
             {"doc", "undo", "load_defaults", "crop_set_default", "crop_view", "redraw_wait", "add_noise"})
            if (p.effect < 0 && p.key == key) left_out.insert(p.numbers.begin(), p.numbers.end());
    if (describe(plugin).effects.size() > 1) left_out.insert(SPARK_FIRST_CONTROL);
    std::vector<int> numbers;
    for (const auto& [number, control] : plugin.panel.controls)
        if (control.structure && control.enabled && !left_out.count(number) && control.kind != SPARK_CONTROL_STRING)
            numbers.push_back(number);
    return numbers;
}

struct Dice {
    std::minstd_rand random;
    int below(int n) { return static_cast<int>((random() >> 4) % static_cast<unsigned>(std::max(n, 1))); }
    float between(float low, float high) { return low + (high - low) * static_cast<float>(below(1001)) / 1000; }
};

float any_value(const Control& control, Dice& dice) {
    switch (control.kind) {
        case SPARK_CONTROL_FLOAT: {
            const auto& c = *static_cast<const SparkFloatStruct*>(control.structure);
            return dice.between(std::max(c.Min, -2.0f), std::min(c.Max, 2.0f));
        }
        case SPARK_CONTROL_INT: {
            const auto& c = *static_cast<const SparkIntStruct*>(control.structure);
            return static_cast<float>(std::max(c.Min, 0) + dice.below(std::min(c.Max, 24) - std::max(c.Min, 0) + 1));
        }
        case SPARK_CONTROL_COLOUR:
            return static_cast<float>(dice.below(256));
        case SPARK_CONTROL_POPUP:
            return static_cast<float>(dice.below(static_cast<const SparkPopupStruct*>(control.structure)->Entries));
        default:
            return static_cast<float>(dice.below(2));
    }
}

void turn_some(Plugin& plugin, Dice& dice) {
    const std::vector<int> numbers = pictured(plugin);
    for (int n = 1 + dice.below(5); n > 0; --n) {
        Control& control = *find_control(plugin.panel, numbers[static_cast<size_t>(dice.below((int)numbers.size()))]);
        const int channel = dice.below(control_channels(control));
        set_control_value(control, channel, any_value(control, dice));
    }
}

void show_the_same(const Plugin& from, Plugin& to) {
    for (const int number : pictured(from)) {
        const Control& control = *find_control(from.panel, number);
        for (int c = 0; c < control_channels(control); ++c)
            set_control_value(*find_control(to.panel, number), c, control_value(control, c));
    }
}

std::string shown(const Plugin& plugin) {
    std::string text;
    for (const int number : pictured(plugin)) {
        const Control& control = *find_control(plugin.panel, number);
        text += control_title(control) + " " + value_text(control) + "; ";
    }
    return text;
}

TEST(FreshFrames, ShippedEffectsRememberNothing) {
    for (const std::string& family : shipped_families()) {
        int effects = 1;
        {
            ShippedPlugin plugin(family);
            if (!plugin.start()) continue;
            effects = static_cast<int>(describe(*plugin.plugin).effects.size());
        }
        for (int effect = 0; effect < effects; ++effect) {
            Dice dice{std::minstd_rand(static_cast<unsigned>(effect + 1))};
            Chosen lasting(family, effect);
            ASSERT_TRUE(lasting.started);
            for (int round = 0; round < 4; ++round) {
                turn_some(*lasting.shipped.plugin, dice);
                const int frame = dice.below(4);
                use_host(&lasting.shipped.host);
                const auto got = lasting.shipped.render(frame);
                Chosen fresh(family, effect);
                ASSERT_TRUE(fresh.started);
                show_the_same(*lasting.shipped.plugin, *fresh.shipped.plugin);
                lose_buffers(fresh.shipped.plugin->buffers);
                ASSERT_TRUE(got == fresh.shipped.render(frame))
                    << family << " " << effect << " frame " << frame << " round " << round << "\n"
                    << shown(*lasting.shipped.plugin);
            }
        }
    }
}

// Parts that stand still from frame to frame, among parts that move.
#define STILL "(sin (* (v3 x y x) 9))"
#define SPREAD "(convolve " STILL " (sin (* [1 2 3] x)) [4 4] [12 12] [0 0] [1 1] 1 1 1 0 [1 1] 1 [0 0 0] 0 0.8)"
const char* const still_parts[] = {
    "(+ (* Source 0.5) (* (sin (* x a)) 0.5))",
    "(+ Source (blur " STILL " a 1 1 0))",
    "(max " SPREAD " (* Source a))",
    SPREAD,
    "(blur " SPREAD " 0.1 1 1 0)",
    "(* (gamma " STILL " 2) (get_percent_time))",
    "(+ (sharpen " STILL " 1 a) (* (get_aspect_ratio) Source))",
    "(interp (gamma Source 2) (gamma " STILL " 0.5) b)",
    "(if+ (- a 0.5) (blur Source b 1 1 0) (blur " STILL " b 1 1 0))",
    "(max (copy (blur " STILL " a 1 1 0)) (blur (copy (sin Source)) b 1 1 0))",
};

TEST(FreshFrames, KeptImagesAreNotSeen) {
    for (size_t i = 0; i < std::size(still_parts); ++i) {
        const std::string text =
            "(def_effect Still (Source) ()\n  a = 0.3 (min 0 max 1)\n  b = 0.2 (min 0 max 1)\n"
            "  dest = " +
            std::string(still_parts[i]) + "\n)\n";
        const auto load = [&](TextPlugin& plugin) {
            plugin.host.format = {24, 18, SPARK_DEPTH_12};
            plugin.host.processors = 2;
            plugin.host.total_frames = 4;
            plugin.inputs = {random_clip(4)};
            return plugin.start() && !plugin.render().empty();
        };
        Dice dice{std::minstd_rand(static_cast<unsigned>(i + 1))};
        TextPlugin lasting(text);
        if (!load(lasting)) {
            ADD_FAILURE() << still_parts[i];
            continue;
        }
        for (int round = 0; round < 18; ++round) {
            if (round < 12) {
                turn_some(*lasting.plugin, dice);
            } else {
                // What was made for one crop must not be shown in another.
                Panel(lasting).crop(dice.below(10), dice.below(8), 12 + dice.below(10), 10 + dice.below(7));
            }
            const int frame = dice.below(4);
            use_host(&lasting.host);
            const auto got = lasting.render(frame);
            TextPlugin fresh(text);
            ASSERT_TRUE(load(fresh));
            show_the_same(*lasting.plugin, *fresh.plugin);
            lose_buffers(fresh.plugin->buffers);
            ASSERT_EQ(significant(got, SPARK_DEPTH_12), significant(fresh.render(frame), SPARK_DEPTH_12))
                << still_parts[i] << " frame " << frame << " round " << round << "\n"
                << shown(*lasting.plugin);
        }
    }
}

}  // namespace
