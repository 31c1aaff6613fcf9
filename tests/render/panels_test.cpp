// What stands on the control pages, for every effect of every family and for plug-ins of many effects.
#include "tests/render/panel.h"
#include "tests/render/shipped_plugin.h"

#include <cctype>
#include <cmath>
#include <set>

using namespace test_render;

namespace {

// Each word with a capital, underscores as blanks.
std::string display_name(std::string name) {
    bool start = true;
    for (char& c : name) {
        if (c == '_') c = ' ';
        if (start) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        start = c == ' ';
    }
    return name;
}

int column(int number) {
    const int place = number - SPARK_FIRST_CONTROL;
    return place / SPARK_CONTROLS_PER_PAGE * 100 + place % SPARK_CONTROLS_PER_PAGE / SPARK_CONTROLS_PER_COLUMN;
}

// Body(described, effect, plugin) with every shipped effect in force.
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
            body(described, effect, *chosen.shipped.plugin);
        }
    }
}

TEST(Panels, ShowTheEffectInForceAndNothingElse) {
    each_effect([](const Described& described, int effect, Plugin& plugin) {
        std::set<int> of_effect;
        for (const DescribedParam& p : described.params) {
            if (p.effect >= 0 && p.effect != effect) continue;
            for (const int number : p.numbers) {
                of_effect.insert(number);
                // The name of a colour stands on the control before its pot.
                if (p.kind == "color" && p.effect >= 0 && !p.color_only)
                    of_effect.insert(number - SPARK_CONTROLS_PER_COLUMN);
                if (p.effect < 0 || p.kind == "popup") continue;
                const Control* const control = find_control(plugin.panel, number);
                ASSERT_NE(control, nullptr) << p.name;
                EXPECT_EQ(control_title(*control).rfind(display_name(p.name).substr(0, 12), 0), 0u)
                    << number << " reads " << control_title(*control) << ", not " << p.name;
                EXPECT_EQ(control->group, display_name(p.group)) << p.name;
                EXPECT_TRUE(control->enabled);
            }
        }
        if (described.effects.size() > 1) of_effect.insert(SPARK_FIRST_CONTROL);
        for (const auto& [number, control] : plugin.panel.controls) {
            if (!control.structure || of_effect.count(number)) continue;
            if (control.kind == SPARK_CONTROL_TOGGLE && control.enabled) continue;
            EXPECT_FALSE(control.enabled) << number;
            EXPECT_EQ(control_title(control), "") << number << " is out of use";
            EXPECT_EQ(control.group, "") << number;
            if (control.kind == SPARK_CONTROL_POPUP) {
                EXPECT_EQ(static_cast<SparkPopupStruct*>(control.structure)->Entries, 0) << number;
            }
        }
        for (const ControlPage& page : control_pages(plugin.panel))
            for (const auto& shown : page.columns)
                for (const ShownControl& control : shown) EXPECT_NE(control.name, "") << control.number;
    });
}

TEST(Panels, HandlesHaveTheirSwitchWhileTheyShow) {
    each_effect([](const Described& described, int effect, Plugin& plugin) {
        const auto handles = [&](int e) {
            return std::any_of(described.params.begin(), described.params.end(),
                               [e](const DescribedParam& p) { return p.effect == e && p.on_screen; });
        };
        bool any = false;
        for (int e = 0; e < static_cast<int>(described.effects.size()); ++e) any |= handles(e);
        int known = 0, shown = 0;
        for (const auto& [number, control] : plugin.panel.controls)
            known += control.structure && control.kind == SPARK_CONTROL_TOGGLE;
        for (const ControlPage& page : control_pages(plugin.panel))
            for (const auto& controls : page.columns)
                for (const ShownControl& control : controls) shown += control.kind == SPARK_CONTROL_TOGGLE;
        EXPECT_EQ(known > 0, any) << "the host hears of the switches of all effects at once";
        EXPECT_EQ(shown > 0, handles(effect));
    });
}

TEST(Panels, VectorsStandInOneColumn) {
    each_effect([](const Described& described, int effect, Plugin&) {
        for (const DescribedParam& p : described.params) {
            if (p.effect != effect || p.numbers.size() < 3) continue;
            EXPECT_EQ(column(p.numbers.front()), column(p.numbers.back())) << p.name << " from " << p.numbers.front();
        }
    });
}

TEST(Panels, NumbersHaveAField) {
    each_effect([](const Described& described, int effect, Plugin& plugin) {
        for (const DescribedParam& p : described.params) {
            if ((p.effect >= 0 && p.effect != effect) || (p.kind != "float" && p.kind != "int")) continue;
            const Control* const found = find_control(plugin.panel, p.numbers.at(0));
            ASSERT_NE(found, nullptr) << p.name << " on " << p.numbers[0];
            const Control& control = *found;
            const char* const title = control.kind == SPARK_CONTROL_INT
                                          ? static_cast<SparkIntStruct*>(control.structure)->Title
                                          : static_cast<SparkFloatStruct*>(control.structure)->Title;
            EXPECT_NE(std::string(title).find(p.kind == "int" ? ": %d" : ": %."), std::string::npos)
                << p.name << " reads \"" << title << '"';
        }
    });
}

TEST(Panels, AnglesMoveByADegree) {
    each_effect([](const Described& described, int effect, Plugin&) {
        for (const DescribedParam& p : described.params) {
            const bool angle = p.name.find("angle") != std::string::npos || p.name.find("rotat") != std::string::npos;
            if (p.effect == effect && angle) {
                EXPECT_NEAR(p.step * 360, 1, 1e-4) << p.name;
            }
        }
    });
}

// A family with as many effects as a text can hold, each a grey of its own.
TEST(Panels, EveryEffectOfManyCanBeChosen) {
    constexpr int most = 49;
    for (const int n : {1, 2, 31, 32, 33, most}) {
        std::string text;
        for (int e = 0; e < n; ++e)
            text += "(def_effect E" + std::to_string(e) + " () level = " + std::to_string(0.0625 + e / 64.0) +
                    " (max 1) dest = (* level [1 1 1]))\n";
        TextPlugin effect(text);
        effect.host.calling_env = SPARK_ENV_DESKTOP;
        effect.host.format = {16, 8, SPARK_DEPTH_8};
        ASSERT_TRUE(effect.start());
        Panel panel(effect);
        for (int e = n - 1; e >= 0; --e) {
            if (n > 1) {
                panel.set(SPARK_FIRST_CONTROL, static_cast<float>(e));
                EXPECT_EQ(panel.label(SPARK_FIRST_CONTROL), "E" + std::to_string(e));
            }
            // 4096 * level / 16, of 255 at the most.
            EXPECT_EQ(effect.render().at(0), std::min(255, 16 + 4 * e)) << e << " of " << n;
        }
    }
}

}  // namespace
