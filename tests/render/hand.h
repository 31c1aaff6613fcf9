// A hand on the controls of a plug-in, which does at random what a person does, and looks at what came of it.
#pragma once

#include "tests/render/shipped_plugin.h"

#include <chrono>
#include <set>

namespace test_render {

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

inline std::string difference(Hand& hand, const Values& wanted) {
    std::string text;
    const Values got = hand.values();
    for (const auto& [place, value] : wanted)
        if (got.at(place) != value)
            text += "control " + std::to_string(place.first) + " channel " + std::to_string(place.second) + " is " +
                    std::to_string(got.at(place)) + ", was " + std::to_string(value) + "; ";
    return text;
}

}  // namespace test_render
