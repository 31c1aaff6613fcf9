// Controls through the callbacks of a loaded plug-in: values, sharing, Undo, defaults, setups.
#include "tests/render/hand.h"
#include "tests/render/panel.h"

#include <algorithm>
#include <fstream>
#include <sstream>

using namespace test_render;

namespace {

constexpr const char* one_effect =
    "(def_effect Flat ()\n"
    "  amount = 0.5 (min 0 max 4 step 0.01)\n"
    "  other = 0.25 (max 1)\n"
    "  kind = 0 (popup none half)\n"
    "  tint = [1 1 1] (color)\n"
    "  dest = (* (* (+ amount (+ other (* kind 0))) [0.5 0.5 0.5]) tint))\n";

struct Desktop : TextPlugin {
    explicit Desktop(const std::string& definitions) : TextPlugin(definitions) {
        host.calling_env = SPARK_ENV_DESKTOP;
        host.format = {48, 36, SPARK_DEPTH_8};
        host.total_frames = 4;
    }
};

bool any_error(const Host& host, const std::string& part) {
    const auto has = [&](const std::string& text) { return text.find(part) != std::string::npos; };
    return std::any_of(host.messages.begin(), host.messages.end(), has) ||
           std::any_of(host.errors.begin(), host.errors.end(), has);
}

TEST(Controls, ADragIsOneStepOfUndo) {
    for (const float redraw : {2.0f, 3.0f, 4.0f}) {
        SCOPED_TRACE(redraw);
        Desktop effect(one_effect);
        ASSERT_TRUE(effect.start());
        Panel panel(effect);
        effect.render();
        panel.set(number_redraw, redraw);
        const auto first = effect.render();
        panel.drag(6, {0.6f, 1.0f, 1.5f});
        panel.drag(7, {0.3f, 0.5f});
        panel.drag(6, {2.0f, 3.0f, 4.5f});
        EXPECT_EQ(panel.value(6), 4) << "held to its bound";
        const std::pair<float, float> steps[] = {{1.5f, 0.5f}, {1.5f, 0.25f}, {0.5f, 0.25f}};
        for (const auto& [amount, other] : steps) {
            panel.push(number_undo);
            EXPECT_FLOAT_EQ(panel.value(6), amount);
            EXPECT_FLOAT_EQ(panel.value(7), other);
            EXPECT_EQ(panel.value(number_undo), 0) << "the button springs back";
        }
        EXPECT_EQ(effect.render(), first);
        while (effect.host.messages.size() < 1000 && !any_error(effect.host, "Nothing to undo."))
            panel.push(number_undo);
        EXPECT_TRUE(any_error(effect.host, "Nothing to undo."));
    }
}

TEST(Controls, RedrawModesDecideWhatRenders) {
    const struct {
        float mode;
        bool drag, release, typed;
    } rows[] = {{0, false, false, false},
                {1, false, false, false},
                {2, false, true, false},
                {3, true, true, true},
                {4, true, true, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.mode);
        Desktop effect(one_effect);
        ASSERT_TRUE(effect.start());
        Panel panel(effect);
        effect.render();
        panel.set(number_redraw, row.mode);
        EXPECT_FALSE(panel.set(6, 0.6f, SPARK_ACTION_PRESS));
        EXPECT_EQ(panel.set(6, 0.7f, SPARK_ACTION_DRAG), row.drag);
        EXPECT_EQ(panel.set(6, 0.7f, SPARK_ACTION_RELEASE), row.release && row.mode < 3)
            << "only a drag that did not render is made good";
        EXPECT_EQ(panel.set(6, 0.9f, SPARK_ACTION_TYPED), row.typed);
        EXPECT_EQ(panel.set(6, 1.1f, SPARK_ACTION_RELEASE), row.release);
    }
}

TEST(Controls, APopupPastItsEndIsCorrected) {
    Desktop effect(one_effect);
    ASSERT_TRUE(effect.start());
    Panel panel(effect);
    effect.render();
    panel.set(8, 99);
    EXPECT_EQ(panel.value(8), 1);
    EXPECT_EQ(panel.label(8), "Kind: Half");
    panel.set(8, -7);
    EXPECT_EQ(panel.value(8), 0);
}

TEST(Controls, AColorIsShownByteForByte) {
    Desktop effect("(def_effect Tint () tint = [0.2 0.4 0.6] (color) dest = tint)");
    ASSERT_TRUE(effect.start());
    Panel panel(effect);
    const auto start = effect.render();
    // 0.2, 0.4 and 0.6 in steps of 4096 and in the host's bytes: trunc(819 / 16), trunc(1638 / 16), trunc(2458 / 16).
    EXPECT_EQ(std::vector<unsigned char>(start.begin(), start.begin() + 3), (std::vector<unsigned char>{51, 102, 153}));
    for (int v = 0; v < 256; v += 15) {
        panel.set(13, static_cast<float>(v), SPARK_ACTION_RELEASE, 1);
        const auto frame = effect.render();
        EXPECT_EQ(std::vector<unsigned char>(frame.begin(), frame.begin() + 3),
                  (std::vector<unsigned char>{51, static_cast<unsigned char>(v), 153}));
    }
    EXPECT_FALSE(panel.set(6, 3)) << "the name half does nothing";
}

std::string numbered_effect(const std::string& name, int n, float first) {
    std::string text = "(def_effect " + name + " () ";
    std::string sum = "0";
    for (int i = 0; i < n; ++i) {
        text += "p" + std::to_string(i) + " = " + std::to_string(first + 0.001f * static_cast<float>(i)) + " ";
        sum = "(+ " + sum + " p" + std::to_string(i) + ")";
    }
    return text + "dest = (* " + sum + " [0.01 0.01 0.01]))\n";
}

TEST(Controls, ThirtyParamsStandOnTwoPages) {
    Desktop effect(numbered_effect("Long", 30, 0.1f));
    ASSERT_TRUE(effect.start());
    Panel panel(effect);
    effect.render();
    EXPECT_FLOAT_EQ(panel.value(6 + 29), 0.129f);
    const auto pages = control_pages(effect.plugin->panel);
    ASSERT_EQ(pages.size(), 3u);
    EXPECT_EQ(pages[0].title, "Params");
    EXPECT_EQ(pages[1].title, "Params2");
    EXPECT_EQ(pages[2].title, "Crop / Help");
    EXPECT_EQ(pages[1].columns[0].at(0).number, 35);
}

TEST(Controls, ThreeEffectsShareButtonsAndKeepTheirValues) {
    Desktop effect(numbered_effect("One", 3, 0.1f) + numbered_effect("Two", 5, 0.2f) +
                   numbered_effect("Three", 2, 0.3f));
    ASSERT_TRUE(effect.start());
    Panel panel(effect);
    effect.render();
    for (int e = 0; e < 3; ++e) {
        EXPECT_TRUE(panel.set(6, static_cast<float>(e)) || e == 0);
        EXPECT_EQ(panel.label(6), (std::vector<std::string>{"One", "Two", "Three"})[static_cast<size_t>(e)]);
        EXPECT_FLOAT_EQ(panel.value(7), 0.1f * static_cast<float>(e + 1)) << "the text's own";
        panel.set(7, 10.0f + static_cast<float>(e));
        EXPECT_EQ(panel.at(10).enabled, e == 1) << "the fourth param";
    }
    for (int i = 0; i < 1000; ++i) {
        const int e = (i * 7) % 3;
        panel.set(6, static_cast<float>(e));
        ASSERT_EQ(panel.value(7), 10.0f + static_cast<float>(e)) << i;
    }
    // A frame asked for with another entry shown switches as well.
    set_control_value(panel.at(6), 0, 2);
    effect.render();
    EXPECT_EQ(panel.value(7), 12);
}

TEST(Controls, CropEdgesStopAtTheirOpposite) {
    Desktop effect(one_effect);
    ASSERT_TRUE(effect.start());
    Panel panel(effect);
    effect.render();
    EXPECT_EQ(panel.value(number_crop_right), 48);
    EXPECT_EQ(panel.value(number_crop_top), 36);
    const struct {
        int number;
        float to, stops;
    } rows[] = {
        {number_crop_right, 30, 30}, {number_crop_left, 40, 29}, {number_crop_left, 30, 29},
        {number_crop_left, 5, 5},    {number_crop_right, 5, 6},  {number_crop_bottom, 80, 35},
        {number_crop_top, 3, 36},    {number_crop_bottom, 2, 2}, {number_crop_top, 2, 3},
        {number_crop_left, -50, 0},
    };
    for (const auto& row : rows) {
        panel.set(row.number, row.to);
        EXPECT_EQ(panel.value(row.number), row.stops) << row.number << " to " << row.to;
    }
}

TEST(Controls, DefaultsComeBackAndCanBeUndone) {
    Desktop effect(one_effect);
    ASSERT_TRUE(effect.start());
    Panel panel(effect);
    const auto first = effect.render();
    panel.set(6, 3);
    panel.set(13 + 9 - 6, 0, SPARK_ACTION_RELEASE, 0);  // the tint's red, beside its name at 9
    panel.set(number_gamma, 2);
    EXPECT_TRUE(panel.push(number_load_defaults));
    EXPECT_EQ(panel.value(6), 0.5f);
    EXPECT_EQ(panel.value(16, 0), 255);
    EXPECT_EQ(panel.value(number_gamma), 1);
    EXPECT_EQ(effect.render(), first);
    EXPECT_FALSE(panel.push(number_load_defaults)) << "nothing differs";
    panel.push(number_undo);
    EXPECT_EQ(panel.value(6), 3);
    EXPECT_EQ(panel.value(16, 0), 0);

    panel.crop(4, 5, 40, 30);
    panel.set(number_add_noise, 0.5f);
    EXPECT_TRUE(panel.push(number_page_defaults));
    EXPECT_EQ(panel.value(number_crop_left), 0);
    EXPECT_EQ(panel.value(number_crop_right), 48);
    EXPECT_EQ(panel.value(number_crop_top), 36);
    EXPECT_EQ(panel.value(number_add_noise), 0);
    EXPECT_EQ(panel.value(number_page_defaults), 0);
    EXPECT_FALSE(panel.push(number_page_defaults)) << "nothing differs";
}

TEST(Controls, AnAnimatedControlIsRightInTheFirstFrameToo) {
    TextPlugin effect("(def_effect Flat () level = 0.125 (max 1) dest = (* level [1 1 1]))");
    effect.host.format = {16, 16, SPARK_DEPTH_8};
    effect.host.total_frames = 3;
    ASSERT_TRUE(effect.start());
    Panel panel(effect);
    set_key(panel.at(6).curves[0], 1, 0.25f);
    set_key(panel.at(6).curves[0], 3, 0.75f);
    // 4096 * level / 16
    EXPECT_EQ(effect.render(0).at(0), 64);
    EXPECT_EQ(effect.render(1).at(0), 128);
    EXPECT_EQ(effect.render(2).at(0), 192);
}

TEST(Controls, TransitionsRunByThemselves) {
    Desktop effect("(def_effect Mix () amount = 0 (autotrans) dest = (* amount [1 1 1]))");
    effect.host.total_frames = 5;
    ASSERT_TRUE(effect.start());
    Panel panel(effect);
    // From 0 at the first frame to 1 at the last.
    for (int frame = 0; frame < 5; ++frame) EXPECT_EQ(effect.render(frame).at(0), std::min(255, frame * 64)) << frame;
}

TEST(Controls, HelpReachesTheBrowserAsOneWord) {
    // Whatever an address holds, no shell reads it.
    Desktop effect("(def_effect Odd;`touch_here`&|$HOME () dest = 0.5)");
    effect.dir().write("browse-url.sh", "#!/bin/sh\nprintf '%s %s' \"$#\" \"$1\" > \"${0%/*}/opened\"\n");
    const std::string script = effect.dir().path() + "/browse-url.sh";
    std::filesystem::permissions(script, std::filesystem::perms::owner_all);
    ASSERT_TRUE(effect.start());
    Panel panel(effect);
    effect.render();
    const auto opened = [&] {
        std::ifstream file(effect.dir().path() + "/opened");
        std::string text;
        std::getline(file, text);
        std::filesystem::remove(effect.dir().path() + "/opened");
        return text;
    };
    panel.set(number_help, 1, SPARK_ACTION_PRESS);
    EXPECT_EQ(opened(), "") << "only the release acts";
    panel.push(number_help);
    EXPECT_EQ(opened(), "1 file:" + effect.dir().path() + "/docs/Odd;`touch_here`&|$HOME.html");
    EXPECT_EQ(panel.value(number_help), 0);
    panel.push(number_help + 1);
    EXPECT_EQ(opened(), "1 file:" + effect.dir().path() + "/docs/intro.html");
    EXPECT_TRUE(any_error(effect.host, "Browser started.  It should appear shortly."));
    std::filesystem::remove(script);
    panel.push(number_help);
    EXPECT_TRUE(any_error(effect.host, "Error starting browser."));
}

// ---- Setups

std::string setup_file(TextPlugin& effect) {
    std::ifstream file(effect.dir().path() + "/" + effect.name);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

TEST(Setups, ASessionGoesOnWhereItEnded) {
    Desktop effect(one_effect);
    ASSERT_TRUE(effect.start());
    {
        Panel panel(effect);
        effect.render();
        panel.set(6, 1.25f);
        panel.set(8, 1);
        panel.set(16, 77, SPARK_ACTION_RELEASE, 2);
        panel.set(number_gamma, 1.5f);
        panel.set(number_surround_color, 255, SPARK_ACTION_RELEASE, 2);
    }
    const auto last = effect.render();
    effect.plugin.reset();
    EXPECT_EQ(setup_file(effect).substr(0, 48), "Velloran-save-file 4\n1 0\n4  1.25 0.25 1 5111807\n")
        << setup_file(effect);
    ASSERT_TRUE(effect.start());
    EXPECT_EQ(effect.render(), last);
    Panel panel(effect);
    EXPECT_EQ(panel.value(6), 1.25f);
    EXPECT_EQ(panel.value(16, 2), 77);
    EXPECT_EQ(panel.value(number_surround_color, 2), 255);
}

TEST(Setups, PositionsFollowTheFrameSize) {
    Desktop effect(
        "(def_effect Place () center = [100 50] (screen_center) spot = [90 243] (screen_to_norm) at = [10 20] (screen)"
        " dest = (* (+ (element_of center 0) (+ (element_of spot 0) (element_of at 0))) [0 0 0]))");
    effect.host.format = {720, 486, SPARK_DEPTH_8};
    ASSERT_TRUE(effect.start());
    {
        Panel panel(effect);
        effect.render();
        panel.set(10, 33);
        panel.crop(100, 51, 301, 400);
    }
    effect.plugin.reset();
    effect.host.format = {1440, 972, SPARK_DEPTH_8};
    ASSERT_TRUE(effect.start());
    Panel panel(effect);
    effect.render();
    const struct {
        int number;
        float value;
    } rows[] = {{6, 200},
                {7, 100},
                {8, 180},
                {9, 486},
                {10, 66},
                {11, 40},
                {number_crop_left, 200},
                {number_crop_bottom, 102},
                {number_crop_right, 602},
                {number_crop_top, 800}};
    for (const auto& row : rows) EXPECT_NEAR(panel.value(row.number), row.value, 1e-3f) << row.number;
}

// Every control moved, the plug-in closed and opened again: nothing of it shows in the picture.
TEST(Setups, BringTheSameFrameBackInEveryEffect) {
    for (const std::string& family : shipped_families()) {
        for (int index = 0, n = 1; index < n; ++index) {
            Chosen chosen(family, index);
            ASSERT_TRUE(chosen.started);
            ShippedPlugin& shipped = chosen.shipped;
            n = static_cast<int>(describe(*shipped.plugin).effects.size());
            SCOPED_TRACE(family + " " + std::to_string(index));
            Hand hand(shipped.host, *shipped.plugin, 11u + static_cast<unsigned>(index));
            std::set<int> left_out = chosen.animated;  // a new instance moves them by itself again
            for (const DescribedParam& p : describe(*shipped.plugin).params)
                if (p.key == "redraw_wait") left_out.insert(p.numbers.begin(), p.numbers.end());  // NEVER hides all
            for (const int number : hand.changeable())
                if (!left_out.count(number)) hand.change(number, Way::release);
            const auto picture = hand.picture();
            Values values = hand.values();
            std::erase_if(values,
                          [&](const auto& v) { return !find_control(shipped.plugin->panel, v.first.first)->enabled; });
            shipped.plugin.reset();
            ASSERT_TRUE(shipped.start());
            Hand again(shipped.host, *shipped.plugin, 1);
            EXPECT_TRUE(again.picture() == picture);
            EXPECT_EQ(difference(again, values), "");
        }
    }
}

TEST(Setups, AnInstanceThatNeverRenderedSavesNothing) {
    Desktop effect(one_effect);
    ASSERT_TRUE(effect.start());
    effect.plugin.reset();
    EXPECT_EQ(setup_file(effect), "");
}

// ---- A long session

TEST(Session, TenThousandRandomCalls) {
    const char* const environment = std::getenv("VELLORAN_TEST_SEED");
    const unsigned seed = environment ? static_cast<unsigned>(std::atoi(environment)) : 20240607u;
    std::minstd_rand random(seed);
    SCOPED_TRACE(testing::Message() << "VELLORAN_TEST_SEED=" << seed);
    const auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };

    Desktop effect(
        "(def_effect Soft (Source) amount = 0.5 (max 2) place = [3 4] (screen widget center.center) kind = 1 (popup a "
        "b c)"
        " tint = [1 0.5 0.25] (color)"
        " dest = (* (* Source (+ amount (* kind (* 0 (element_of place 0))))) tint))"
        "(def_effect Hard (Source) gain = 2 (min 0 max 8) steps = 3 (int max 9) lift = 0 (max 1) mode = 0 (popup x y)"
        " shade = [0 1 0] (color) on = 1 (boolean)"
        " dest = (+ (* Source (+ gain (+ on (+ steps (* mode lift))))) shade))");
    effect.host.format = {24, 18, SPARK_DEPTH_8};
    effect.host.processors = 2;
    effect.inputs = {random_clip(4)};
    ASSERT_TRUE(effect.start());
    Panel panel(effect);
    effect.render();
    std::vector<int> numbers;
    for (const auto& [number, control] : effect.plugin->panel.controls)
        if (control.structure && number != number_help && number != number_help + 1 && number != number_help + 2)
            numbers.push_back(number);
    for (int call = 0; call < 10000; ++call) {
        const int what = pick(20);
        effect.host.frame = pick(4);
        if (what < 14) {
            const int number = numbers[static_cast<size_t>(pick(static_cast<int>(numbers.size())))];
            if (number == number_undo && pick(4)) continue;  // it waits when there is nothing to undo
            const Control& control = panel.at(number);
            const float reach = control.kind == SPARK_CONTROL_FLOAT ? 0.1f * static_cast<float>(pick(100) - 30)
                                : control.kind == SPARK_CONTROL_INT ? static_cast<float>(pick(40) - 5)
                                                                    : static_cast<float>(pick(6) - 1);
            panel.set(number, reach, pick(4), control.kind == SPARK_CONTROL_COLOUR ? pick(3) : 0);
        } else if (what < 16) {
            effect.render(pick(4));
        } else if (what < 19) {
            interact(*effect.plugin,
                     {static_cast<float>(pick(24)), static_cast<float>(pick(18)), pick(2) ? 1.0f : 0.0f},
                     pick(2) ? 1.0f : -2.0f);
        } else {
            panel.set(6, static_cast<float>(pick(2)));
        }
        ASSERT_TRUE(effect.plugin->failure.empty()) << effect.plugin->failure;
    }
    EXPECT_TRUE(effect.host.errors.empty()) << effect.host.errors.front();
    // What was saved comes back, and is saved again the same.
    panel.set(number_redraw, 1);
    effect.render();
    effect.plugin.reset();
    const std::string saved = setup_file(effect);
    ASSERT_TRUE(effect.start());
    effect.render();
    effect.plugin.reset();
    EXPECT_EQ(setup_file(effect), saved);
}

}  // namespace
