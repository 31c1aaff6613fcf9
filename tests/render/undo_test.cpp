// Undo as a person meets it: whatever a control did, one push of the button takes it back, in every effect.
#include "tests/render/panel.h"
#include "tests/render/shipped_plugin.h"

#include <chrono>
#include <set>

using namespace test_render;

namespace {

using Values = std::map<std::pair<int, int>, float>;  // by control number and channel

enum class Way { release, typed, drag };
constexpr Way ways[] = {Way::release, Way::typed, Way::drag};

// What one effect of a plug-in shows, and a hand on it.
struct Hand {
    Hand(Host& h, Plugin& p, unsigned seed) : host(h), plugin(p), random(seed) {}

    int pick(int n) { return static_cast<int>((random() >> 4) % static_cast<unsigned>(n)); }

    // Controls that a change is kept of: not those that only act, nor the switches of handles, whose callback does
    // nothing.
    std::vector<int> changeable() const {
        std::set<int> left_out;
        for (const DescribedParam& p : describe(plugin).params) {
            if (p.effect >= 0) continue;
            for (const char* const key : {"doc", "undo", "load_defaults", "crop_set_default", "crop_view"})
                if (p.key == key) left_out.insert(p.numbers.begin(), p.numbers.end());
        }
        if (describe(plugin).effects.size() > 1) left_out.insert(SPARK_FIRST_CONTROL);
        std::vector<int> numbers;
        for (const auto& [number, control] : plugin.panel.controls) {
            const bool kept = control.structure && control.enabled && !left_out.count(number) &&
                              control.kind != SPARK_CONTROL_TOGGLE && control.kind != SPARK_CONTROL_STRING;
            if (kept) numbers.push_back(number);
        }
        return numbers;
    }

    int number_of(const std::string& key) const {
        for (const DescribedParam& p : describe(plugin).params)
            if (p.key == key)
                for (const int number : p.numbers)
                    if (number > 0) return number;
        ADD_FAILURE() << key;
        return 0;
    }

    Values values() const {
        Values all;
        for (const auto& [number, control] : plugin.panel.controls) {
            if (!control.structure) continue;
            for (int c = 0; c < control_channels(control); ++c) all[{number, c}] = control_value(control, c);
        }
        return all;
    }

    // The host acts. What the plug-in changes beside it has to be told to the host.
    void act(int number, int channel, float v, int action) {
        set_control_value(*find_control(plugin.panel, number), channel, v);
        const Values before = values();
        std::map<int, int> told;
        for (const auto& [n, control] : plugin.panel.controls) told[n] = control.updates;
        use_control(plugin, number, action);
        const Values after = values();
        moved |= after != start;
        for (const auto& [place, value] : after)
            if (before.at(place) != value && told[place.first] == find_control(plugin.panel, place.first)->updates)
                silent.insert(place.first);
    }

    float other_value(const Control& control, int channel) {
        const float now = control_value(control, channel);
        const auto stepped = [&](float low, float high, float step) {
            const float v = now + static_cast<float>(pick(9) + 1) * step * (pick(2) ? 1.0f : -1.0f);
            return std::clamp(v, std::max(low, -1000.0f), std::min(high, 1000.0f));
        };
        switch (control.kind) {
            case SPARK_CONTROL_FLOAT: {
                const auto& c = *static_cast<const SparkFloatStruct*>(control.structure);
                return stepped(c.Min, c.Max, std::max(c.Step, (std::min(c.Max, 10.0f) - std::max(c.Min, -10.0f)) / 20));
            }
            case SPARK_CONTROL_INT: {
                const auto& c = *static_cast<const SparkIntStruct*>(control.structure);
                return stepped(static_cast<float>(c.Min), static_cast<float>(c.Max), 1);
            }
            case SPARK_CONTROL_COLOUR:
                return static_cast<float>(pick(256));
            case SPARK_CONTROL_POPUP:
                return static_cast<float>(pick(static_cast<const SparkPopupStruct*>(control.structure)->Entries));
            default:
                return now != 0 ? 0.0f : 1.0f;
        }
    }

    // One change by a person. False: the machine was too slow for a drag to be one.
    bool change(int number, Way way) {
        const Control& control = *find_control(plugin.panel, number);
        const int channel = pick(std::max(1, control_channels(control)));
        const auto started = std::chrono::steady_clock::now();
        if (way == Way::drag) {
            act(number, channel, control_value(control, channel), SPARK_ACTION_PRESS);
            for (int i = 0; i < 3; ++i) act(number, channel, other_value(control, channel), SPARK_ACTION_DRAG);
            act(number, channel, control_value(control, channel), SPARK_ACTION_RELEASE);
        } else {
            const float v = other_value(control, channel);
            act(number, channel, v, way == Way::typed ? SPARK_ACTION_TYPED : SPARK_ACTION_RELEASE);
        }
        return std::chrono::steady_clock::now() - started < std::chrono::milliseconds(900);
    }
    void push(const std::string& key) { act(number_of(key), 0, 1, SPARK_ACTION_RELEASE); }
    void undo() { push("undo"); }

    std::vector<unsigned char> picture() {
        process_start(plugin, 0);
        const auto* const rendered = static_cast<const unsigned char*>(process(plugin, 0));
        return rendered ? std::vector<unsigned char>(rendered, rendered + host.format.bytes())
                        : std::vector<unsigned char>();
    }

    Host& host;
    Plugin& plugin;
    std::minstd_rand random;
    std::set<int> silent;  // controls that changed without a word to the host
    // Whether anything was different since begin(): a drag that comes back to where it began is a step of Undo too.
    Values start;
    bool moved = false;
    void begin() {
        start = values();
        moved = false;
    }
};

std::string difference(Hand& hand, const Values& wanted) {
    std::string text;
    const Values got = hand.values();
    for (const auto& [place, value] : wanted)
        if (got.at(place) != value)
            text += "control " + std::to_string(place.first) + " channel " + std::to_string(place.second) + " is " +
                    std::to_string(got.at(place)) + ", was " + std::to_string(value) + "; ";
    return text;
}

void each_control_alone(Hand& hand, float redraw) {
    hand.act(hand.number_of("redraw_wait"), 0, redraw, SPARK_ACTION_RELEASE);
    const auto picture = hand.picture();
    for (const int number : hand.changeable()) {
        for (const Way way : ways) {
            hand.begin();
            const Values before = hand.start;
            const bool swift = hand.change(number, way);
            if (!hand.moved || !swift) continue;
            hand.undo();
            EXPECT_EQ(difference(hand, before), "")
                << control_title(*find_control(hand.plugin.panel, number)) << ", way " << static_cast<int>(way);
        }
        EXPECT_TRUE(hand.picture() == picture) << control_title(*find_control(hand.plugin.panel, number));
    }
}

void one_session(Hand& hand, int changes) {
    const std::vector<int> numbers = hand.changeable();
    std::vector<Values> steps;
    std::string story;  // what was done, for the one who reads a failure
    hand.picture();
    int defaults = 2;  // what is kept is bounded, and defaults take the most
    for (int i = 0; i < changes; ++i) {
        hand.begin();
        const Values before = hand.start;
        const int what = hand.pick(20);
        bool swift = true;
        if (what < 2 && defaults > 0) {
            --defaults;
            hand.push(what == 0 ? "load_defaults" : "crop_set_default");
            story += what == 0 ? " load_defaults" : " crop_set_default";
        } else if (what == 2 && !steps.empty()) {
            hand.undo();
            story += " undo";
            ASSERT_EQ(difference(hand, steps.back()), "") << "in the middle:" << story;
            steps.pop_back();
            continue;
        } else {
            const int number = numbers[static_cast<size_t>(hand.pick(static_cast<int>(numbers.size())))];
            const int way = hand.pick(3);
            swift = hand.change(number, ways[way]);
            story += " " + std::to_string(number) + (way == 2 ? "d" : way == 1 ? "t" : "r");
        }
        if (!swift) return;
        if (hand.moved)
            steps.push_back(before);
        else
            story += "=";
        if (hand.pick(10) == 0) hand.picture();
    }
    for (; !steps.empty(); steps.pop_back()) {
        hand.undo();
        const std::string text = difference(hand, steps.back());
        ASSERT_EQ(text, "") << "to before the change " << steps.size() << " of:" << story;
    }
}

// body(hand) in a fresh plug-in for every shipped effect.
template <class Body>
void each_effect(Body body) {
    ASSERT_FALSE(shipped_families().empty());
    for (const std::string& family : shipped_families()) {
        for (int effect = 0, n = 1; effect < n; ++effect) {
            Chosen chosen(family, effect);
            ASSERT_TRUE(chosen.started) << family;
            const Described described = describe(*chosen.shipped.plugin);
            n = static_cast<int>(described.effects.size());
            SCOPED_TRACE(family + ":" + described.effects[static_cast<size_t>(effect)]);
            Hand hand(chosen.shipped.host, *chosen.shipped.plugin, 20241123u + static_cast<unsigned>(effect));
            body(hand);
            EXPECT_TRUE(hand.silent.empty()) << "control " << *hand.silent.begin() << " changed without an update";
        }
    }
}

TEST(Undo, TakesBackEveryChangeOfEveryControlOfEveryEffect) {
    each_effect([](Hand& hand) {
        for (const float redraw : {4.0f, 1.0f}) {
            SCOPED_TRACE(redraw);
            each_control_alone(hand, redraw);
        }
    });
}

TEST(Undo, TakesBackWholeSessions) {
    each_effect([](Hand& hand) {
        for (int session = 0; session < 3; ++session) one_session(hand, 25);
    });
}

TEST(Undo, TheCropInputComesBackWithItsSurround) {
    TextPlugin effect("(def_effect Wrap (Source Back) (warp_crop) amount = 0.5 dest = (* Source amount))");
    effect.host.calling_env = SPARK_ENV_DESKTOP;
    effect.host.format = {24, 16, SPARK_DEPTH_8};
    effect.inputs = {random_clip(1, 1), random_clip(1, 2)};
    ASSERT_TRUE(effect.start());
    Panel panel(effect);
    effect.render();
    panel.crop(4, 4, 20, 12);
    Hand hand(effect.host, *effect.plugin, 7);
    for (const float surround : {0.0f, 1.0f, 2.0f}) {
        panel.set(number_surround, surround);
        for (const float redraw : {4.0f, 1.0f}) {
            panel.set(number_redraw, redraw);
            // On, off, on with another surround in between: the way back meets every state again.
            std::vector<Values> steps = {hand.values()};
            for (const auto& [number, v] : {std::pair{number_crop_input, 1},
                                            {number_crop_input, 0},
                                            {number_surround, 1 - (surround == 1)},
                                            {number_crop_input, 1},
                                            {number_crop_input, 0}}) {
                panel.set(number, static_cast<float>(v));
                if (hand.values() != steps.back()) steps.push_back(hand.values());
            }
            for (steps.pop_back(); !steps.empty(); steps.pop_back()) {
                panel.push(32);
                EXPECT_EQ(difference(hand, steps.back()), "") << steps.size();
                const bool on = panel.value(number_crop_input) != 0;
                EXPECT_EQ(static_cast<SparkPopupStruct*>(panel.at(number_surround).structure)->Entries, on ? 1 : 3);
            }
        }
    }
    for (int session = 0; session < 20; ++session) one_session(hand, 20);
}

TEST(Undo, AMovedRedrawControlShowsTheFrameAgain) {
    ShippedPlugin shipped("color");
    ASSERT_TRUE(shipped.start());
    const auto picture = shipped.render();
    Hand hand(shipped.host, *shipped.plugin, 1);
    const int redraw = hand.number_of("redraw_wait");
    hand.act(redraw, 0, 0, SPARK_ACTION_RELEASE);
    EXPECT_EQ(hand.picture(), std::vector<unsigned char>(picture.size(), 0)) << "NEVER is black";
    set_control_value(*find_control(shipped.plugin->panel, redraw), 0, 3);
    const auto* const shown =
        static_cast<const unsigned char*>(use_control(*shipped.plugin, redraw, SPARK_ACTION_RELEASE));
    ASSERT_NE(shown, nullptr) << "nothing else would take the black frame away";
    EXPECT_EQ(std::vector<unsigned char>(shown, shown + picture.size()), picture);
}

}  // namespace
