#include "testing/params_fixture.h"

#include <random>
#include <set>

namespace velloran {
namespace {

using Layout = ParamsTest;

int count_said(const std::string& text) {
    int n = 0;
    for (const std::string& line : reported) n += line.find(text) != std::string::npos;
    return n;
}

TEST_F(Layout, OneEffectStartsAtSixTwoAtSeven) {
    Param* const a = add_param(add_effect("A"), param_float, "a");
    show(0);
    EXPECT_EQ(param_control_number(a, 0), 6);
    EXPECT_EQ(a->controls[0], &at->floats[6]);
    Param* const b = add_param(add_effect("B"), param_float, "b");
    a->first_button = -1;
    show(1);
    EXPECT_EQ(param_control_number(a, 0), 7);
    EXPECT_EQ(param_control_number(b, 0), 7) << "two effects share the button";
    EXPECT_EQ(record.button_table[1].param, b);
    EXPECT_TRUE(reported.empty());
}

TEST_F(Layout, AColorTakesThePotBesideIt) {
    Genotype* const e = add_effect("E");
    Param* const tint = add_param(e, param_color, "tint");
    tint->first_button = 10;
    Param* const moved = add_param(e, param_float, "moved");
    moved->first_button = 17;
    show(0);
    EXPECT_EQ(tint->controls[0], &at->colours[23]);
    EXPECT_EQ(tint->controls[1], &at->floats[16]) << "its name half";
    EXPECT_EQ(moved->first_button, 18);
    EXPECT_EQ(count_said("7 E.moved ch. 0: button 17 is already used, skipping to next.\n"), 1);
    EXPECT_EQ(record.button_table[17].param, tint);
}

TEST_F(Layout, ChannelsGoRoundAPot) {
    Genotype* const e = add_effect("E");
    add_param(e, param_color, "tint");  // 0 and 7
    for (int i = 0; i < 5; ++i) add_param(e, param_float, "one");
    Param* const pair = add_param(e, param_float, "pair", 2);
    show(0);
    EXPECT_EQ(param_control_number(pair, 0), 12);
    EXPECT_EQ(param_control_number(pair, 1), 14) << "13 is the pot";
    EXPECT_EQ(pair->controls[1], &at->floats[14]);
    EXPECT_EQ(record.button_table[8].param, pair);
    EXPECT_TRUE(reported.empty());
}

TEST_F(Layout, OutOfOrderPlacesAreReportedOnce) {
    Genotype* const e = add_effect("E");
    add_param(e, param_float, "a")->first_button = 5;
    Param* const b = add_param(e, param_float, "b");
    b->first_button = 3;
    show(0);
    EXPECT_EQ(b->first_button, 6);
    EXPECT_EQ(count_said("7 E.b button assignment 3 (orig 3, ch. 0) out of order (must be > 5, which is a)."), 1);
}

TEST_F(Layout, WhatMayShareAButton) {
    enum { plain_color = 100, color_only, color_pot };
    const struct {
        int first, second;
        const char* message;  // null: fine
    } rows[] = {
        {param_float, param_int, nullptr},
        {param_float, plain_color, nullptr},
        {plain_color, param_int, nullptr},
        {param_popup, param_popup, nullptr},
        {color_only, color_only, nullptr},
        {plain_color, plain_color, nullptr},
        {param_float, param_popup,
         "p1(first) is float; it can only share with floats, ints or color-names, not type 4"},
        {param_float, color_only, "p1(first) is float; it can only share with floats, ints or color-names, not type 3"},
        {param_boolean, param_int,
         "p2(second) is float; it can only share with floats, ints or color-names, not p1's type 5"},
        {color_only, plain_color, "types are incompatible"},
        {param_boolean, param_popup, "types are incompatible"},
        {param_unknown, param_float, "p1 is of unknown type"},
        {param_float, param_unknown, "p2 is of unknown type"},
    };
    const auto make = [](int kind, const char* name) {
        Param* const p = new_param(kind >= 100 ? param_color : kind, name);
        if (kind == color_only) p->kind_flags |= kind_color_only;
        p->buttons[0] = 3;
        return p;
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.first << " " << row.second);
        Param* const p1 = make(row.first, "first");
        Param* const p2 = make(row.second, "second");
        char buffer[200];
        EXPECT_STREQ(sharing_error(p1, p2, 3, false, buffer, sizeof(buffer)), row.message);
        free_param(p1);
        free_param(p2);
    }
    // The second half of a colour.
    Param* const color = make(plain_color, "color");
    Param* const number = make(param_float, "number");
    char buffer[200];
    EXPECT_STREQ(sharing_error(color, number, 10, false, buffer, sizeof(buffer)),
                 "p1(color) is a color; it can only share with other colors, not type 1");
    EXPECT_STREQ(sharing_error(number, color, 3, true, buffer, sizeof(buffer)),
                 "p2(color) is a color; it can only share with other colors, not type 1");
    free_param(color);
    free_param(number);
}

TEST_F(Layout, ConflictsAreReportedAndTheLaterParamTakesTheButton) {
    Param* const a = add_param(add_effect("A"), param_float, "a");
    Param* const b = add_param(add_effect("B"), param_popup, "b");
    show(1);
    EXPECT_EQ(count_said("7 layout: Incompatible params a and b at button 1: p1(a) is float; it can only share with "
                         "floats, ints or color-names, not type 4."),
              1);
    EXPECT_EQ(a->first_button, 1);
    EXPECT_EQ(record.button_table[1].param, b);
}

TEST_F(Layout, ThirtyParamsNeedTwoPages) {
    for (const int n : {3, 30, 12}) {
        Genotype* const e = add_effect("E");
        for (int i = 0; i < n; ++i) add_param(e, param_float, ("p" + std::to_string(i)).c_str());
    }
    show(1);
    EXPECT_EQ(record.n_param_pages, 2);
    EXPECT_EQ(record.crop_page, 2);
    set_control_titles();
    EXPECT_EQ(plugin.panel.page_titles[0], "Params");
    EXPECT_EQ(plugin.panel.page_titles[1], "Params2");
    EXPECT_EQ(plugin.panel.page_titles[2], "Crop / Help");
    EXPECT_EQ(plugin.panel.page_titles[3], " ");
    EXPECT_EQ(param_control_number(record.genotypes[1]->params[29], 0), 36);
    // The standard controls of page 0 find their places taken and say so; their copies elsewhere stay.
    EXPECT_EQ(count_said("button 25 already used for p24; can't put global button Redraw Wait there.\n"), 1);
    EXPECT_EQ(record.button_table[25 + 29].param, global(global_redraw_wait));
}

TEST_F(Layout, StandardControlsStandWhereTheTableSays) {
    add_param(add_effect("A"), param_float, "a");
    show(0);
    const struct {
        int index, first, second;
        void* control;
    } rows[] = {
        {global_redraw_wait, 31, 89, &at->popups[31]},
        {global_load_defaults, 33, 0, &at->booleans[33]},
        {global_res_factor, 34, 92, &at->popups[34]},
        {global_crop_enable, 65, 0, &at->booleans[65]},
        {global_crop_left, 68, 0, &at->ints[68]},
        {global_surround_color, 73, 0, &at->colours[73]},
        {global_load_page_defaults, 91, 0, &at->booleans[91]},
        {global_gamma, 77, 0, &at->floats[77]},
        {global_on_fields, 30, 0, &at->popups[30]},
    };
    for (const auto& row : rows) {
        const Param* const p = global(row.index);
        SCOPED_TRACE(p->name);
        EXPECT_EQ(global_control_number(p, 0), row.first);
        EXPECT_EQ(global_control_number(p, 1), row.second);
        EXPECT_EQ(p->controls[0], row.control);
        EXPECT_EQ(record.button_table[row.first - 6].param, p);
    }
    EXPECT_EQ(global(global_crop_input), nullptr) << "no effect takes one";
    EXPECT_EQ(at->popups[31].Value, 4) << "DRAG AUTO RES";
    EXPECT_EQ(at->ints[74].Value, 486);
    EXPECT_EQ(at->ints[82].Value, 720);
}

TEST_F(Layout, EffectsKeepTheirValuesThroughAThousandSwitches) {
    Genotype* effects[2];
    for (int i = 0; i < 2; ++i) {
        effects[i] = add_effect(i ? "B" : "A");
        add_param(effects[i], param_float, "amount")->max_value = 100;
        add_param(effects[i], param_color, "tint");
        Param* const popup = add_param(effects[i], param_popup, "kind");
        for (int k = 0; k < 3 + i; ++k) popup->popup_entries[k] = safe_strdup(i ? "b" : "a");
        popup->n_popup_entries = static_cast<uint8_t>(3 + i);
        popup->max_value = static_cast<float>(3 + i);
    }
    show(0);
    const float amounts[2] = {1.5f, 72};
    const uint32_t tints[2] = {0x123456, 0x00ff10};
    const int kinds[2] = {1, 3};
    for (int i = 0; i < 2; ++i) {
        setup_effect_buttons(i, 0);
        at->floats[7].Value = amounts[i];
        at->colours[15].Value = tints[i];
        at->popups[9].Value = kinds[i];
        sync_effect_params(effects[i]);
    }
    for (int i = 0; i < 1000; ++i) {
        const int e = i % 2;
        setup_effect_buttons(e, 0);
        ASSERT_EQ(at->floats[7].Value, amounts[e]) << i;
        ASSERT_EQ(at->colours[15].Value, tints[e]) << i;
        ASSERT_EQ(at->popups[9].Value, kinds[e]) << i;
        ASSERT_EQ(at->popups[9].Entries, 3 + e) << i;
        ASSERT_EQ(sync_effect_params(effects[e]), 0) << i;
    }
    EXPECT_TRUE(reported.empty());
}

TEST_F(Layout, OldHostsSeeUnusedControlsBlank) {
    host.api_version = 4.0f;
    Genotype* const e = add_effect("A");
    add_param(e, param_float, "amount");
    add_param(e, param_color, "tint");  // 7, with its pot at 14
    at->floats[20].Title = "left over";
    at->colours[20].Value = 5;
    show(0);
    EXPECT_STREQ(at->floats[20].Title, "");
    EXPECT_EQ(at->colours[20].Value, 0x91919191u);
    EXPECT_EQ(plugin.panel.controls[20].name, "     <not used>");
    EXPECT_EQ(plugin.panel.controls[6].name.substr(0, 6), "Amount");
    EXPECT_EQ(plugin.panel.controls[7].name.substr(0, 4), "Tint");
    EXPECT_EQ(plugin.panel.controls[14].name, "") << "the pot is in use";
}

// Plug-ins of 1 to 49 effects, their params of any kind: whatever stands where, the laws of the grid hold.
TEST_F(Layout, AnyEffectsFindTheirPlaces) {
    std::minstd_rand random(41);
    const auto pick = [&](int n) { return static_cast<int>((random() >> 4) % static_cast<unsigned>(n)); };
    constexpr int types[] = {param_float, param_float, param_float,   param_int,
                             param_color, param_popup, param_boolean, param_string};
    for (int round = 0; round < 150; ++round) {
        SCOPED_TRACE(round);
        forget_effects();
        record.n_effects = 0;
        const int n_effects = round < 49 ? round + 1 : 1 + pick(49);
        for (int e = 0; e < n_effects; ++e) {
            Genotype* const effect = add_effect("E");
            // Half of all effects fill the grid to its last button or past what keeps vectors together.
            const int room = n_effects >= 2 ? 84 : 85, aim = pick(2) ? room : pick(60);
            for (int used = 0; used < aim;) {
                const int type = types[pick(8)];
                const int channels = type == param_float ? std::min(1 + pick(4), aim - used) : 1;
                if (type == param_color) break;
                add_param(effect, type, "p", channels);
                used += channels;
            }
            // Colours as long as nothing stands behind them that they could push out.
            if (aim < 60)
                for (int k = pick(3); k > 0; --k) add_param(effect, param_color, "tint");
        }
        record.crop_page = 0;
        do_layout_and_init_widgets();
        for (int e = 0; e < n_effects; ++e) {
            const Genotype* const effect = record.genotypes[e];
            std::set<int> taken;
            int last = n_effects >= 2 ? 0 : -1, numbers = 0;
            for (int i = 0; i < effect->param_number; ++i) numbers += effect->params[i]->n_buttons;
            for (int i = 0; i < effect->param_number; ++i) {
                const Param* const p = effect->params[i];
                for (int channel = 0; channel < p->n_buttons; ++channel) {
                    const int index = p->buttons[channel];
                    ASSERT_GT(index, last) << "in the order of declaration";
                    ASSERT_LT(index, MAX_PARAM_BUTTONS);
                    last = index;
                    EXPECT_TRUE(taken.insert(index).second) << index;
                    if (p->type == param_color) {
                        EXPECT_TRUE(taken.insert(index + BESIDE).second) << index;
                        EXPECT_EQ(p->controls[0], &at->colours[index + BESIDE + BUTTON_BASE]);
                    }
                    EXPECT_NE(p->controls[channel], nullptr);
                }
                // A column of 7 holds two vectors of 3 or one of 4 and more, so 48 numbers always fit together.
                const auto column = [](int index) {
                    return index / BUTTONS_PER_PAGE * 100 + index % BUTTONS_PER_PAGE / 7;
                };
                if (numbers <= 48 && p->n_buttons >= 3) {
                    EXPECT_EQ(column(p->buttons[0]), column(p->buttons[p->n_buttons - 1])) << i << " of effect " << e;
                }
            }
        }
    }
}

TEST_F(Layout, WidgetEnablesAreSharedByButton) {
    for (const char* const name : {"A", "B"}) {
        Param* const p = add_param(add_effect(name), param_float, "center", 2);
        p->widget_list = safe_new_zeroed<ParamWidgetData>();
        p->widget_list->widget_type = safe_strdup("center");
        p->widget_list->part_name = safe_strdup("center");
        p->widget_list->default_on = p->widget_list->enable_index = -1;
        p->widget_list->number = -1;
    }
    show(0);
    Param* const enable = record.genotypes[0]->widgets->widgets[0].enable_param;
    EXPECT_STREQ(enable->name, "Center Widget");
    EXPECT_EQ(param_control_number(enable, 0), 37);
    EXPECT_EQ(enable->controls[0], &at->toggles[37]);
    EXPECT_EQ(record.genotypes[1]->widgets->widgets[0].enable_param, enable);
    EXPECT_EQ(enable->ref_count, 2);
    EXPECT_EQ(record.n_param_pages, 2);
    EXPECT_EQ(at->toggles[37].Value, 1) << "on unless the text says otherwise";
    EXPECT_TRUE(reported.empty());
}

}  // namespace
}  // namespace velloran
