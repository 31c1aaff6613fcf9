// Hands on the control panel of a loaded plug-in, as a user has them.
#pragma once

#include "tests/render/text_plugin.h"

namespace test_render {

// Control numbers of the standard controls of a plug-in with one or two pages of params.
enum Standard : int {
    number_fields = 30,
    number_redraw = 31,
    number_undo = 32,
    number_load_defaults = 33,
    number_res = 34,
    number_crop_enable = 65,
    number_surround = 66,
    number_crop_left = 68,
    number_add_noise = 70,
    number_surround_color = 73,
    number_crop_top = 74,
    number_crop_bottom = 76,
    number_gamma = 77,
    number_crop_input = 80,
    number_crop_right = 82,
    number_lut = 84,
    number_help = 85,
    number_page_defaults = 91
};

struct Panel {
    explicit Panel(TextPlugin& owner) : effect(owner) {}

    Control& at(int number) {
        Control* const control = find_control(effect.plugin->panel, number);
        if (!control) throw std::runtime_error("no control " + std::to_string(number));
        return *control;
    }
    float value(int number, int channel = 0) { return control_value(at(number), channel); }
    // Moves a control as the pen does and tells the plug-in; true if it rendered.
    bool set(int number, float v, int action = SPARK_ACTION_RELEASE, int channel = 0) {
        set_control_value(at(number), channel, v);
        return use_control(*effect.plugin, number, action) != nullptr;
    }
    bool push(int number) { return set(number, 1); }
    // A drag: pressed, moved through the values, released at the last one.
    void drag(int number, const std::vector<float>& values) {
        set(number, values.front(), SPARK_ACTION_PRESS);
        for (const float v : values) set(number, v, SPARK_ACTION_DRAG);
        set(number, values.back(), SPARK_ACTION_RELEASE);
    }
    std::string label(int number) { return value_text(at(number)); }
    void crop(int left, int bottom, int right, int top) {
        // Edges cannot pass each other.
        set(number_crop_left, 0);
        set(number_crop_bottom, 0);
        set(number_crop_right, static_cast<float>(right));
        set(number_crop_top, static_cast<float>(top));
        set(number_crop_left, static_cast<float>(left));
        set(number_crop_bottom, static_cast<float>(bottom));
        set(number_crop_enable, 1);
    }

    TextPlugin& effect;
};

}  // namespace test_render
