#include "params/control_callbacks.h"

#include "genotype/param_record.h"
#include "operators/fields/field_pattern.h"
#include "params/effect_selection.h"
#include "params/param_values.h"
#include "params/render_request.h"
#include "params/standard_controls.h"
#include "params/undo.h"
#include "records/run_state.h"
#include "support/clock.h"
#include "support/errors.h"
#include "support/host_info.h"

#include <cmath>
#include <cstring>
#include <ctime>

namespace velloran {

namespace {

constexpr double repeat_seconds = 1.0;  // callbacks of one control closer together than this are one drag

struct LastChange {
    double time;
    const Param* param;  // compared only
    int channel;
    int action;
    int pending;  // changed during a drag that renders at its end
};
LastChange last_change;

void* render(SparkInfoStruct* info) {
    if (!render_requests.process) return nullptr;
    spark_process_from_callback_p = 1;
    void* const frame = render_requests.process(info);
    spark_process_from_callback_p = 0;
    return frame;
}

// Moves the opposite edge of a kernel picture out of the way, where p is an edge. The result: it had to.
bool push_opposite_kernel_edge(const Param* p, double value) {
    bool pushed = false;
    for (int i = 0; i < 4; ++i) {
        if (Globals_V4->kernel_crop_params[i] != p) continue;
        Param* const opposite = Globals_V4->kernel_crop_params[(i + 2) % 4];
        if (!opposite) continue;
        const double there = param_get_value(opposite, 0);
        const bool crossed = i < 2 ? there < value : there > value;
        if (!crossed) continue;
        param_set_value_c1(opposite, 0, i < 2 ? value + 1 : value - 1, set_undo_fold | set_update_control);
        pushed = true;
    }
    return pushed;
}

// A handle was switched on or off, which is read when the overlay is drawn. No picture changes.
void* show_handles() {
    sparkViewingDraw();
    return nullptr;
}

}  // namespace

RenderRequests render_requests;
double (*change_clock)() = steady_seconds;
void (*set_hold_value_for_flicker)();

int get_redraw_mode() {
    if (!Globals_V4 || !Globals_V4->global_params[global_redraw_wait]) return redraw_drag_auto_res;
    return static_cast<int>(global_param_get_value(global_redraw_wait));
}

bool want_process(const SparkInfoStruct*, int action) {
    switch (get_redraw_mode()) {
        case redraw_drag:
        case redraw_drag_auto_res:
            return action != SPARK_ACTION_PRESS;
        case redraw_pen_up:
            // Newer hosts send a release after typing as well.
            if (host_api_at_least(4.039f)) return action == SPARK_ACTION_RELEASE;
            return action == SPARK_ACTION_RELEASE || action == SPARK_ACTION_TYPED;
        default:
            return false;
    }
}

void* process_from_callback(SparkInfoStruct* info, int action) {
    if (want_process(info, action)) return render(info);
    if (Globals_V4->effect_genotype) note_params_rendered(Globals_V4->effect_genotype);
    return nullptr;
}

void note_change(int action, const Param* p, int channel) {
    // The mode in force until now: what the Redraw control shows may be the very change that is to be kept.
    const Param* const redraw = Globals_V4->global_params[global_redraw_wait];
    const int mode = redraw ? static_cast<int>(redraw->value[0]) : redraw_drag_auto_res;
    const double now = change_clock();
    const bool same = p == last_change.param && channel == last_change.channel;
    const bool repeat = mode >= redraw_drag && now - last_change.time < repeat_seconds && same;
    const bool ends = action == SPARK_ACTION_RELEASE || action == SPARK_ACTION_TYPED;
    // The release that ends a drag belongs to it, also where its value is a new one.
    const bool ends_drag = action == SPARK_ACTION_RELEASE && same && last_change.action == SPARK_ACTION_DRAG;
    // A step begins with the first value that really changes, whichever of the params that move together it is.
    if (!ends_drag && (ends || (mode >= redraw_drag && !repeat))) spark_make_next_undo_record_a_boundary();
    if (p != last_change.param) last_change.pending = 0;
    last_change.time = now;
    last_change.param = p;
    last_change.channel = channel;
    last_change.action = action;
}

int change_wanted(int action, int changed) {
    const bool ends = action == SPARK_ACTION_RELEASE || action == SPARK_ACTION_TYPED;
    // What comes next is a new step of Undo.
    if (ends) spark_make_next_undo_record_a_boundary();
    int wanted = changed;
    if (ends) {
        wanted |= last_change.pending;
        last_change.pending = 0;
    } else if (action == SPARK_ACTION_DRAG && get_redraw_mode() < redraw_drag && changed) {
        last_change.pending = 1;
    }
    // A drag that ends must refine the picture.
    if (render_requests.get_res_factor && spark_info_ptr &&
        render_requests.get_res_factor(spark_info_ptr) < Globals_V4->last_res_factor)
        wanted = 1;
    return wanted;
}

int note_param_change(int action, Param* p, int channel, double value) {
    note_change(action, p, channel);
    return change_wanted(action, param_set_value_c1(p, channel, value, set_undo_fold));
}

void* after_control_change(int action, SparkInfoStruct* info, int changed) {
    const int mode = get_redraw_mode();
    if (action == SPARK_ACTION_DRAG && mode < redraw_drag) {
        sparkViewingDraw();
        return nullptr;
    }
    void* frame = nullptr;
    if (changed && want_process(info, action)) frame = render(info);
    if (mode >= redraw_drag) sparkViewingDraw();
    return frame;
}

void* callbkfun2(int action, SparkInfoStruct* info, int number, Param* p, int channel, int changed) {
    if (!p) return nullptr;
    SparkInfoStruct* const outer_info = spark_info_ptr;
    spark_info_ptr = info;
    void* frame = nullptr;
    if (p->type == param_string) {
        frame = render(info);
        if (get_redraw_mode() >= redraw_drag) sparkViewingDraw();
        spark_info_ptr = outer_info;
        return frame;
    }
    const bool global = (p->owner_flags & owner_global) != 0;
    Globals_V4->frame_call_count = 0;
    Globals_V4->dragging = action == SPARK_ACTION_DRAG;
    if (p->scale_flags & scale_hold_action) {
        sparkControlUpdate(number);
        if (Globals_V4->plugin_name && !std::strcmp(Globals_V4->plugin_name, "DeinterlaceAuto"))
            deinterlace_find_pattern_p = 1;
        else if (set_hold_value_for_flicker)
            set_hold_value_for_flicker();
        param_set_value(p, 0, 0, set_update_control);
        changed = 1;
    }
    const bool name_half =
        p->type == param_color && !(p->kind_flags & kind_color_only) && !global && number == param_control_number(p, 0);
    if (name_half) {
        spark_info_ptr = outer_info;
        return nullptr;
    }
    if (!changed) {
        // Copies of a standard control are one value; a colour has one control.
        const int value_channel = global || p->type == param_color ? 0 : channel;
        const double shown = global ? read_global_control(p, channel) : read_control(p, channel);
        if (global) global_param_sync_from_button(p, channel);
        const double value = control_to_internal(p, value_channel, shown);
        note_change(action, p, value_channel);
        int stored = param_set_value_c1(p, value_channel, value, set_undo_fold);
        stored |= push_opposite_kernel_edge(p, p->value[0]);
        if ((global ? read_global_control(p, channel) : read_control(p, channel)) != shown) sparkControlUpdate(number);
        changed = change_wanted(action, stored);
    }
    frame = after_control_change(action, info, changed);
    spark_info_ptr = outer_info;
    return frame;
}

void* callbkfun(int action, SparkInfoStruct* info, int number) {
    const int index = number >= BUTTON_BASE ? number - BUTTON_BASE : number;
    if (index < 0 || index >= N_BUTTON_TABLE) return nullptr;
    const ButtonEntry entry = Globals_V4->button_table[index];
    if (!entry.param) return nullptr;
    if (entry.param == Globals_V4->effect_popup_param) return effect_popup_callback(action, info, 0);
    if (entry.param->kind_flags & kind_widget_enable) return show_handles();
    if (entry.param->owner_flags & owner_global) return standard_callback(action, info, entry.param, entry.channel);
    return callbkfun2(action, info, number, entry.param, entry.channel, 0);
}

void* named_callback(const char* name, int action, SparkInfoStruct* info, int which) {
    if (!std::strcmp(name, "widget_enable")) return show_handles();
    if (!std::strcmp(name, "effect_popup")) return effect_popup_callback(action, info, which);
    return named_standard_callback(name, action, info, which);
}

void forget_last_change() { last_change = {}; }

}  // namespace velloran
