#include "operators/fields/field_pattern.h"
#include "params/control_callbacks.h"

#include "params/effect_selection.h"
#include "params/render_request.h"
#include "params/resolution.h"
#include "testing/params_fixture.h"

namespace velloran {
namespace {

int renders;
double now;
int wanted_res;
char frame;

class Callbacks : public ParamsTest {
protected:
    Callbacks() {
        effect = add_effect("E");
        amount = add_param(effect, param_float, "amount");
        amount->max_value = 100;
        other = add_param(effect, param_float, "other");
        other->max_value = 100;
        for (const char* const name : {"kernel_crop1_x", "kernel_crop1_y", "kernel_crop2_x", "kernel_crop2_y"}) {
            Param* const p = add_param(effect, param_float, name);
            p->max_value = 1000;
            record.kernel_crop_params[effect->param_number - 3] = p;
        }
        hold = add_param(effect, param_button, "hold");
        hold->scale_flags |= scale_hold_action;
        show(0);
        renders = 0;
        now = 100;
        wanted_res = 1;
        record.last_res_factor = 1;
        change_clock = [] { return now; };
        render_requests = {[](SparkInfoStruct*) -> void* {
                               ++renders;
                               EXPECT_EQ(spark_process_from_callback_p, 1);
                               return &frame;
                           },
                           [](const SparkInfoStruct*) { return wanted_res; }};
        forget_last_change();
    }
    ~Callbacks() override { render_requests = {}; }

    bool move(int number, float v, int action) {
        at->floats[number].Value = v;
        return callbkfun(action, &info, number) != nullptr;
    }
    void redraw(int mode) { global_param_set_value(global_redraw_wait, static_cast<float>(mode)); }
    int steps() {
        UndoList* const list = get_undo_list(effect);
        int n = 0;
        for (const UndoRecord* r = list->newest; r; r = r->older) n += r->boundary;
        return n;
    }
    Genotype* effect;
    Param *amount, *other, *hold;
};

TEST_F(Callbacks, AButtonWithoutAParamDoesNothing) {
    EXPECT_EQ(callbkfun(SPARK_ACTION_RELEASE, &info, 25), nullptr);
    EXPECT_EQ(callbkfun(SPARK_ACTION_RELEASE, &info, 93), nullptr);
    EXPECT_EQ(callbkfun(SPARK_ACTION_RELEASE, &info, -1), nullptr);
    EXPECT_EQ(renders, 0);
    EXPECT_EQ(spark_info_ptr, &info);
}

TEST_F(Callbacks, APauseOfASecondBeginsANewStep) {
    redraw(redraw_drag);
    move(6, 1, SPARK_ACTION_DRAG);
    now += 0.9;
    move(6, 2, SPARK_ACTION_DRAG);
    EXPECT_EQ(steps(), 1);
    now += 1.1;
    move(6, 3, SPARK_ACTION_DRAG);
    EXPECT_EQ(steps(), 2);
    move(7, 1, SPARK_ACTION_DRAG);
    EXPECT_EQ(steps(), 3) << "another param";
    move(7, 5, SPARK_ACTION_RELEASE);
    EXPECT_EQ(steps(), 3) << "the drag's own end";
    move(7, 6, SPARK_ACTION_RELEASE);
    EXPECT_EQ(steps(), 4);
    move(7, 7, SPARK_ACTION_TYPED);
    EXPECT_EQ(steps(), 5);
}

TEST_F(Callbacks, ADragThatDidNotRenderIsMadeGoodAtItsEnd) {
    redraw(redraw_pen_up);
    EXPECT_FALSE(move(6, 1, SPARK_ACTION_DRAG));
    EXPECT_TRUE(move(6, 1, SPARK_ACTION_RELEASE)) << "no change of its own, but one was pending";
    EXPECT_FALSE(move(6, 1, SPARK_ACTION_RELEASE));
    EXPECT_FALSE(move(6, 2, SPARK_ACTION_DRAG));
    EXPECT_FALSE(move(7, 0, SPARK_ACTION_RELEASE)) << "another param's change is not pending here";
    EXPECT_EQ(record.dragging, 0);
}

TEST_F(Callbacks, TheEndOfADragRefines) {
    redraw(redraw_drag_auto_res);
    EXPECT_TRUE(move(6, 1, SPARK_ACTION_DRAG));
    record.last_res_factor = 4;
    EXPECT_TRUE(move(6, 1, SPARK_ACTION_RELEASE)) << "same value, better picture";
    record.last_res_factor = 1;
    EXPECT_FALSE(move(6, 1, SPARK_ACTION_RELEASE));
}

TEST_F(Callbacks, WhatMayRender) {
    const struct {
        int mode, action;
        float api;
        bool wanted;
    } rows[] = {
        {redraw_never, 1, 5, false},     {redraw_process, 1, 5, false},      {redraw_pen_up, 0, 5, false},
        {redraw_pen_up, 1, 5, true},     {redraw_pen_up, 2, 5, false},       {redraw_pen_up, 3, 5, false},
        {redraw_pen_up, 3, 4.03f, true}, {redraw_pen_up, 1, 4.03f, true},    {redraw_drag, 0, 5, true},
        {redraw_drag, 2, 5, false},      {redraw_drag_auto_res, 3, 5, true},
    };
    for (const auto& row : rows) {
        redraw(row.mode);
        host.api_version = row.api;
        EXPECT_EQ(want_process(&info, row.action), row.wanted) << row.mode << " " << row.action << " " << row.api;
    }
}

TEST_F(Callbacks, ASlowDragLowersTheResolution) {
    redraw(redraw_drag_auto_res);
    const struct {
        float seconds;
        int last, dragging, width, height, res;
    } rows[] = {
        {0.2f, 3, 1, 720, 486, 3},  {0.8f, 1, 1, 720, 486, 2}, {0.81f, 1, 1, 1920, 1080, 3},
        {20.0f, 1, 1, 720, 486, 4}, {0.8f, 6, 1, 720, 486, 6}, {0.8f, 2, 1, 1920, 1080, 4},
        {0.8f, 4, 0, 720, 486, 1},
    };
    for (const auto& row : rows) {
        record.last_render_seconds = row.seconds;
        record.last_res_factor = row.last;
        record.dragging = row.dragging;
        info.FrameWidth = row.width;
        info.FrameHeight = row.height;
        EXPECT_EQ(get_res_factor(&info), row.res) << row.seconds << " s at 1/" << row.last;
    }
}

TEST_F(Callbacks, KernelEdgesPushTheirOpposite) {
    // 8 left, 9 bottom, 10 right, 11 top.
    move(10, 50, SPARK_ACTION_RELEASE);
    move(8, 60, SPARK_ACTION_RELEASE);
    EXPECT_EQ(at->floats[10].Value, 61);
    move(10, 20, SPARK_ACTION_RELEASE);
    EXPECT_EQ(at->floats[8].Value, 19);
    move(11, 7, SPARK_ACTION_RELEASE);
    EXPECT_EQ(at->floats[9].Value, 0) << "far enough";
    undo_list_undo(get_undo_list(effect));
    undo_list_undo(get_undo_list(effect));
    EXPECT_EQ(at->floats[10].Value, 61);
    EXPECT_EQ(at->floats[8].Value, 60) << "both edges come back at once";
}

TEST_F(Callbacks, DefaultsOpenTheKernelPicture) {
    for (int i = 0; i < 4; ++i) move(8 + i, static_cast<float>(100 + 10 * i), SPARK_ACTION_RELEASE);
    named_callback("load_defaults", SPARK_ACTION_RELEASE, &info, 0);
    const float whole[4] = {0, 0, 720, 486};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(record.kernel_crop_params[i]->value[0], whole[i]);
        EXPECT_EQ(at->floats[8 + i].Value, 0) << "the control shows the default of the text";
    }
    undo_list_undo(get_undo_list(effect));
    for (int i = 0; i < 4; ++i) EXPECT_EQ(record.kernel_crop_params[i]->value[0], static_cast<float>(100 + 10 * i));
}

TEST_F(Callbacks, AHoldButtonAsksForAMeasurement) {
    static int measured;
    measured = 0;
    set_hold_value_for_flicker = [] { ++measured; };
    redraw(redraw_drag);
    at->booleans[12].Value = 1;
    EXPECT_TRUE(callbkfun(SPARK_ACTION_RELEASE, &info, 12));
    EXPECT_EQ(measured, 1);
    EXPECT_EQ(at->booleans[12].Value, 0);
    record.plugin_name = "DeinterlaceAuto";
    callbkfun(SPARK_ACTION_RELEASE, &info, 12);
    EXPECT_EQ(measured, 1);
    EXPECT_EQ(deinterlace_find_pattern_p, 1);
    deinterlace_find_pattern_p = 0;
    set_hold_value_for_flicker = nullptr;
}

TEST_F(Callbacks, EveryCopyOfAStandardControlActs) {
    Param* const res = global(global_res_factor);
    auto* const second = static_cast<SparkPopupStruct*>(res->global_controls[1]);
    second->Value = 4;
    wanted_res = 6;
    EXPECT_TRUE(callbkfun(SPARK_ACTION_RELEASE, &info, res->global_buttons[1]));
    EXPECT_EQ(get_popup_res_factor(), 6);
    EXPECT_EQ(static_cast<SparkPopupStruct*>(res->global_controls[0])->Value, 4);
    undo_list_undo(get_undo_list(effect));
    EXPECT_EQ(second->Value, 0);
}

TEST_F(Callbacks, EffectsThatAreNotThere) {
    select_effect_i(49, 0);
    EXPECT_EQ(reported.back(), "8 select_effect_i: 49 > MAX_EFFECTS_PER_PLUGIN.");
    EXPECT_EQ(record.effect_genotype, effect) << "nothing changes";
    select_effect_i(48, 0);
    EXPECT_EQ(reported.back(), "8 select_effect_i: no effect at 48.");
    EXPECT_EQ(record.effect_genotype, nullptr);
    EXPECT_STREQ(get_effect_input_image_name(1), "Source");
    EXPECT_EQ(reported.back(), "7 get_effect_input_image_name: Globals->effect_genotype is not set.\n");
}

TEST_F(Callbacks, InputsAreNamedByTheEffect) {
    record.n_inputs = 2;
    std::strcpy(effect->input_names[1], "Matte");
    EXPECT_STREQ(get_effect_input_image_name(0), "Source1");
    EXPECT_STREQ(get_effect_input_image_name(1), "Matte");
    const struct {
        const char* name;
        int channels;
    } rows[] = {{"Source", 4},  {"Background", 4}, {"ZBuffer", 1}, {"Matte", 0}, {"Mask", 3},
                {"MyColor", 3}, {"Blur", 0},       {"Other", 3},   {"Total", 4}};
    for (const auto& row : rows) EXPECT_EQ(input_channels_by_name(row.name, effect), row.channels) << row.name;
    effect->effect_flags_2 = effect_mask_rgba;
    EXPECT_EQ(input_channels_by_name("Mask", effect), 4);
}

}  // namespace
}  // namespace velloran
