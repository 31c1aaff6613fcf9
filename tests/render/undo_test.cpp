// Undo as a person meets it: whatever a control did, one push of the button takes it back, in every effect.
#include "tests/render/hand.h"
#include "tests/render/panel.h"

using namespace test_render;

namespace {

void each_control_alone(Hand& hand, float redraw) {
    hand.act(hand.number_of("redraw_wait"), 0, redraw, SPARK_ACTION_RELEASE);
    auto picture = hand.picture();
    for (const int number : hand.changeable()) {
        for (const Way way : ways) {
            hand.begin();
            const Values before = hand.start;
            const bool swift = hand.change(number, way);
            if (!swift) picture = hand.picture();  // a drag that a busy machine cut in two is more than one step
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
