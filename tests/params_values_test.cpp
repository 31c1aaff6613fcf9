#include "testing/params_fixture.h"

#include <cmath>
#include <limits>

namespace velloran {
namespace {

using ParamValues = ParamsTest;

TEST_F(ParamValues, ScreenModesConvertBothWays) {
    // A frame of 720 x 486 whose pixels are 1.1 high, controls in half-size steps of 0.5 and 0.25.
    const ScreenGeometry g = {720, 486, 1.1f, 0.5f, 0.25f};
    const float h = 486.0f * 0.5f / (720.0f * 0.25f) * 1.1f;  // norm height
    const struct {
        ScreenMode mode;
        int conversion, channel;
        float button, internal;
    } rows[] = {
        {screen_none, 1, 0, 7, 7},
        {screen_screen, 1, 0, 100, 200},
        {screen_screen, 1, 1, 100, 400},
        {screen_screen, 0, 0, 100, 100},  // the scales only on request
        {screen_center, 0, 0, 0, 360},
        {screen_center, 0, 1, 0, 243},
        {screen_center, 1, 0, -360, 0},
        {screen_center, 1, 1, 10, (10 + 243) * 4.0f},
        {screen_center0, 1, 0, 3, 6},
        {screen_center0, 1, 1, 3, 12},
        {screen_normalize, 1, 0, 3, 3},
        {screen_normalize_scale, 1, 0, 3, 7.5f},
        {screen_to_norm, 1, 0, 0, -1},
        {screen_to_norm, 1, 0, 720, 1},
        {screen_to_norm, 1, 1, 486, h},
        {screen_to_norm, 1, 1, 0, -h},
        {screen_center_to_norm, 1, 0, 360, 1},
        {screen_center_to_norm, 1, 1, -243, -h},
        {screen_x, 1, 0, 2, 4},
        {screen_y, 1, 0, 2, 8},
    };
    for (const auto& row : rows) {
        Param p = {};
        p.scale_flags = row.mode;
        p.normalize_scale = 2.5f;
        SCOPED_TRACE(testing::Message() << "mode " << int(row.mode) << " channel " << row.channel);
        EXPECT_NEAR(button_to_param(&p, row.channel, row.button, g, row.conversion), row.internal, 1e-4f);
        EXPECT_NEAR(param_to_button(&p, row.channel, row.internal, g, row.conversion), row.button, 1e-3f);
    }
    Param p = {};
    p.scale_flags = screen_screen;
    for (const float tiny : {0.0001f, 0.0f, -3.0f})
        EXPECT_EQ(button_to_param(&p, 0, 5, {720, 486, 1, tiny, tiny}, convert_with_scales), 5) << tiny;
}

TEST_F(ParamValues, ControlsAreReadByKind) {
    Genotype* const e = add_effect("E");
    Param* const number = add_param(e, param_float, "number", 2);
    number->max_value = 10;
    Param* const whole = add_param(e, param_int, "whole");
    whole->max_value = 10;
    Param* const flag = add_param(e, param_boolean, "flag");
    Param* const push = add_param(e, param_button, "push");
    show(0);
    at->floats[6].Value = 12;  // beyond the bound
    at->floats[7].Value = 2.25f;
    at->floats[8].Value = 3.5f;  // the half rounds up
    at->booleans[9].Value = 7;
    at->booleans[10].Value = 1;
    for (Param* const p : {number, whole, flag}) EXPECT_EQ(param_sync_from_button(p), 1) << p->name;
    EXPECT_EQ(number->value[0], 10);
    EXPECT_EQ(number->value[1], 2.25f);
    EXPECT_EQ(whole->value[0], 4);
    EXPECT_EQ(flag->value[0], 1);
    EXPECT_EQ(param_get_value(push, 0), 0) << "whatever the control holds";
    for (Param* const p : {number, whole, flag, push}) EXPECT_EQ(param_sync_from_button(p), 0) << p->name;
    at->floats[7].Value = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(param_get_value(number, 1), 2.25f);
}

TEST_F(ParamValues, PopupHoldsToItsEntries) {
    Genotype* const e = add_effect("E");
    Param* const p = add_param(e, param_popup, "popup");
    for (int i = 0; i < 3; ++i) p->popup_entries[i] = safe_strdup("entry");
    p->n_popup_entries = 3;
    p->max_value = 3;
    show(0);
    for (const auto& [held, read] : {std::pair(99, 2), {3, 2}, {-4, 0}, {1, 1}}) {
        at->popups[6].Value = held;
        EXPECT_EQ(param_get_value(p, 0), static_cast<float>(read)) << held;
        EXPECT_EQ(at->popups[6].Value, read) << "the control is corrected";
    }
    param_set_value(p, 0, 3, 0);
    EXPECT_EQ(at->popups[6].Value, 2);
}

TEST_F(ParamValues, TextsDefaultStandsUntilTheControlMoves) {
    Genotype* const e = add_effect("E");
    Param* const below = add_param(e, param_float, "below");
    below->default_value[0] = -5;  // no bound was declared
    Param* const color = add_param(e, param_color, "tint");
    const float text[3] = {0.3f, 0.3f, 0.3f};
    std::copy(text, text + 3, color->default_value);
    reset_params_to_defaults(e);
    show(0);
    EXPECT_EQ(at->floats[6].Value, -5);
    sync_effect_params(e);
    EXPECT_EQ(below->value[0], -5);
    EXPECT_EQ(color->value[1], 0.3f) << "not 77 / 255";
    at->floats[6].Value = -4;
    at->colours[14].Value = 0x00ff8000;  // red 0, green 128, blue 255
    sync_effect_params(e);
    EXPECT_EQ(below->value[0], 0);
    EXPECT_FLOAT_EQ(color->value[0], 0.0f);
    EXPECT_FLOAT_EQ(color->value[1], 128 / 255.0f);
    EXPECT_FLOAT_EQ(color->value[2], 1.0f);
    set_param_default(below, 0);
    set_param_default(color, 0);
    EXPECT_EQ(below->value[0], -5);
    EXPECT_EQ(color->value[1], 0.3f);
    EXPECT_EQ(at->colours[14].Value & 255u, 77u) << "0.3 * 255 = 76.5 rounds up";
}

TEST_F(ParamValues, ColorsAreSetWhole) {
    Genotype* const e = add_effect("E");
    Param* const p = add_param(e, param_color, "tint");
    show(0);
    EXPECT_EQ(param_set_value(p, 1, 0.5f, 0), 0);
    EXPECT_EQ(reported.at(0), "7 param_set_values(tint): colors must be set all at once, not 1/1");
    param_set_value_c1(p, 2, 0x0000ff, 0);
    EXPECT_EQ(reported.at(1), "7 param_set_value_c1(tint): setting channel 2 of a packed color.");
    EXPECT_EQ(p->value[0], 1) << "goes on with channel 0";
    EXPECT_EQ(param_get_value_c1(p, 1), 255);
    EXPECT_EQ(reported.at(2), "7 param_get_value_c1(tint): getting channel 1 of a packed color.");
    const float blue[3] = {0, 0, 1};
    param_set_values(p, 0, 3, blue, set_leave_color);
    EXPECT_EQ(at->colours[13].Value, 0xffu) << "the control stays";
    EXPECT_EQ(param_set_values(p, 3, 1, blue, 0), 0) << "past the channels";
}

TEST_F(ParamValues, SettingUpdatesTheControlsThatChanged) {
    Genotype* const e = add_effect("E");
    Param* const p = add_param(e, param_float, "pair", 2);
    p->max_value = 10;
    show(0);
    const auto updates = [&](int number) { return spark_host::find_control(plugin.panel, number)->updates; };
    const int before6 = updates(6), before7 = updates(7);
    const float values[] = {3, 99, 5};
    EXPECT_EQ(param_set_values(p, 0, 3, values, set_update_control), 1);
    EXPECT_EQ(at->floats[6].Value, 3);
    EXPECT_EQ(at->floats[7].Value, 10) << "clamped";
    EXPECT_EQ(updates(6), before6 + 1);
    EXPECT_EQ(updates(7), before7 + 1);
    EXPECT_EQ(param_set_values(p, 0, 2, p->value, set_update_control), 0);
    EXPECT_EQ(updates(6), before6 + 1) << "nothing changed";
    EXPECT_EQ(param_set_value(p, 0, 4, set_no_control), 1);
    EXPECT_EQ(at->floats[6].Value, 3);
}

TEST_F(ParamValues, Granularity) {
    EXPECT_FLOAT_EQ(calc_slider_granularity(0, 100), 0.01f);
    EXPECT_FLOAT_EQ(calc_slider_granularity(-5, 5), 0.001f);
    EXPECT_FLOAT_EQ(calc_slider_granularity(0, 1), 0.0001f);
    testing::internal::CaptureStdout();
    EXPECT_FLOAT_EQ(calc_slider_granularity(20, 0), 0.01f);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "*** calc_slider_granularity: min 20 > max 0 \n");
}

TEST_F(ParamValues, NamesArePaddedToTheNumber) {
    const struct {
        int type, channels;
        const char* name;
        float step;
        std::string format, shown;  // of the last channel
    } rows[] = {
        {param_float, 1, "edge_softness", 0.001f, "Edge Softness" + std::string(9, ' ') + ": %.3f",
         "Edge Softness" + std::string(9, ' ') + ":"},
        {param_float, 1, "size", 0.01f, "Size" + std::string(19, ' ') + ": %.2f", "Size" + std::string(19, ' ') + ":"},
        {param_float, 2, "shift", 0.5f, "Shift Y" + std::string(17, ' ') + ": %.1f",
         "Shift Y" + std::string(17, ' ') + ":"},
        {param_float, 1, "wipe%", 1.0f, "Wipe%%" + std::string(20, ' ') + ": %.0f",
         "Wipe%" + std::string(20, ' ') + ":"},
        {param_int, 1, "seed", 1, "Seed" + std::string(24, ' ') + ": %d", "Seed" + std::string(24, ' ') + ":"},
        {param_color, 1, "tint", 1, "Tint" + std::string(19, ' ') + ":", "Tint" + std::string(19, ' ') + ":"},
        {param_boolean, 1, "invert", 1, "Invert", "Invert"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Param* const p = new_param(row.type, row.name);
        p->n_buttons = static_cast<int8_t>(row.channels);
        p->step = row.step;
        make_button_format(p);
        EXPECT_EQ(p->button_formats[row.channels - 1], row.format);
        char name[100];
        format_to_name(name, sizeof(name), p->button_formats[row.channels - 1]);
        EXPECT_EQ(name, row.shown);
        free_param(p);
    }
    EXPECT_TRUE(reported.empty());
    Param* const p = new_param(param_float, "a_name_that_is_much_too_long_for_a_panel");
    make_button_format(p);
    EXPECT_EQ(reported.at(0), "7 Warning: param name too long: a_name_that_is_much_too_long_for_a_panel \n");
    EXPECT_EQ(std::string(p->button_formats[0]), "A Name That Is Much To: %.3f");
    free_param(p);
}

TEST_F(ParamValues, CopiesOfAStandardControlAreOneValue) {
    add_effect("E");
    show(0);
    Param* const res = global(global_res_factor);
    ASSERT_EQ(res->n_global_buttons, 2);
    auto* const first = static_cast<SparkPopupStruct*>(res->global_controls[0]);
    auto* const second = static_cast<SparkPopupStruct*>(res->global_controls[1]);
    second->Value = 20;  // past its nine entries
    EXPECT_EQ(global_param_sync_from_button(res, 1), 1);
    EXPECT_EQ(first->Value, 8);
    EXPECT_EQ(second->Value, 8);
    EXPECT_EQ(get_popup_res_factor(), 32);
    global_param_set_value(global_res_factor, 3);
    EXPECT_EQ(second->Value, 3);

    auto* const gamma = static_cast<SparkFloatStruct*>(global(global_gamma)->global_controls[0]);
    gamma->Value = 9;
    global_param_set_min_max(global_gamma, 0.5f, 4);
    EXPECT_EQ(gamma->Value, 4);
    EXPECT_EQ(gamma->Max, 4);
    global_param_adjust_min(global_gamma, 1.5f);
    EXPECT_EQ(gamma->Min, 1.5f);
    EXPECT_EQ(gamma->Max, 4);
    EXPECT_EQ(global_param_get_value(global_gamma), 4);
}

TEST_F(ParamValues, ACurveIsReadBetweenFramesByAnyHost) {
    Genotype* const e = add_effect("E");
    add_param(e, param_color, "tint");  // 6, its pot on 13
    for (int i = 0; i < 5; ++i) add_param(e, param_float, "one");
    Param* const pair = add_param(e, param_float, "pair", 2);  // 12 and 14
    pair->scale_flags = screen_normalize_scale;
    pair->normalize_scale = 0.5f;
    pair->max_value = 7;
    pair->value[0] = 0.3f;
    show(0);
    spark_host::set_key(plugin.panel.controls[14].curves[0], 2, 4);
    spark_host::set_key(plugin.panel.controls[14].curves[0], 3, 8);
    for (const float api : {4.0f, 2.4f}) {
        host.api_version = api;
        EXPECT_EQ(param_value_at(pair, 0, 2.25f), 0.3f) << "no curve, no change";
        EXPECT_EQ(param_value_at(pair, 1, 2.25f), 2.5f) << "5, of which the param takes half";
        EXPECT_EQ(param_value_at(pair, 1, 3), 3.5f) << "held to the bounds, as when the control shows it";
    }
}

}  // namespace
}  // namespace velloran
