// Callbacks of the standard controls, as records/standard_controls.inc names them.
#include "params/browse_url.h"
#include "params/control_callbacks.h"
#include "params/param_values.h"
#include "params/standard_controls.h"
#include "params/undo.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "support/files.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace velloran {

namespace {

// Where the maker of the effects is found; the button's address.
constexpr const char* web_site = "http://www.tessmark.example/";
constexpr int nothing_to_undo_milliseconds = 300;

Param* global(int index) { return Globals_V4->global_params[index]; }

void show_copies(const Param* p) {
    for (int copy = 0; copy < p->n_global_buttons && copy < 4; ++copy)
        if (p->global_buttons[copy] > 0) sparkControlUpdate(p->global_buttons[copy]);
}

// A boolean that serves as a push button springs back.
void release_button(Param* p) {
    for (void* const control : p->global_controls)
        if (control) static_cast<SparkBooleanStruct*>(control)->Value = 0;
    p->value[0] = 0;
    show_copies(p);
}

int set_global_default(int index, int mode) {
    Param* const p = global(index);
    if (!p) return 0;
    param_sync_from_button(p);
    return set_param_default(p, mode);
}

// Runs body with the call's record in force.
template <class Body>
void* with_info(SparkInfoStruct* info, Body body) {
    SparkInfoStruct* const outer = spark_info_ptr;
    spark_info_ptr = info;
    void* const frame = body();
    spark_info_ptr = outer;
    return frame;
}

// What a copy of a boolean shows now, passed on to the other copies.
float boolean_of_copy(Param* p, int copy) {
    global_param_sync_from_button(p, std::clamp(copy, 0, std::max(0, p->n_global_buttons - 1)));
    return read_control(p, 0) != 0 ? 1.0f : 0.0f;
}

void relax_crop_bounds(int width, int height) {
    global_param_set_min_max(global_crop_left, 0, static_cast<float>(width - 1));
    global_param_set_min_max(global_crop_bottom, 0, static_cast<float>(height - 1));
    global_param_set_min_max(global_crop_right, 0, static_cast<float>(width));
    global_param_set_min_max(global_crop_top, 0, static_cast<float>(height));
}

int set_edge(int index, int value, int mode) {
    Param* const p = global(index);
    if (!p) return 0;
    const bool moved = param_get_value(p, 0) != static_cast<float>(value);
    return (param_set_value(p, 0, static_cast<float>(value), mode) || moved) ? 1 : 0;
}

// Switches the crop input. The surround's popup has one entry while it is on, so that the surround is set aside before
// and comes back after: Undo, which goes the other way round, then finds the entries that it needs.
int set_crop_input(Param* p, float on) {
    Param* const surround = global(global_crop_surround);
    Param* const kept = Globals_V4->saved_surround_mode;
    constexpr int mode = set_update_control | set_undo_fold;
    const bool switched = surround && p->value[0] != on;
    int changed = 0;
    if (switched && on != 0) {
        changed |= param_set_value(kept, 0, param_get_value(surround, 0), mode);
        changed |= param_set_value(surround, 0, 0, mode);
    }
    changed |= param_set_value(p, 0, on, mode);
    if (switched && on == 0) changed |= param_set_value(surround, 0, kept->value[0], mode);
    return changed;
}

}  // namespace

void* move_crop_edge(int action, SparkInfoStruct* info, Param* p, int) {
    if (action == SPARK_ACTION_PRESS) return nullptr;
    return with_info(info, [&] {
        const auto edge = [](int index) { return static_cast<int>(read_control(global(index), 0)); };
        const int left = edge(global_crop_left), right = edge(global_crop_right);
        const int top = edge(global_crop_top), bottom = edge(global_crop_bottom);
        const int shown = edge(p->global_index);
        int value = shown;
        switch (p->global_index) {
            case global_crop_left:
                value = left >= right ? right - 1 : left;
                break;
            case global_crop_top:
                value = top <= bottom ? bottom + 1 : top;
                break;
            case global_crop_right:
                value = right <= left ? left + 1 : right;
                break;
            default:
                value = bottom >= top ? top - 1 : bottom;
                break;
        }
        Globals_V4->dragging = action == SPARK_ACTION_DRAG;
        const int changed = note_param_change(action, p, 0, value);
        if (edge(p->global_index) != shown) show_copies(p);
        return crop_enabled_p() ? after_control_change(action, info, changed) : nullptr;
    });
}

void* switch_crop(int action, SparkInfoStruct* info, Param* p, int copy) {
    if (action == SPARK_ACTION_PRESS) return nullptr;
    return with_info(info, [&] {
        const float on = boolean_of_copy(p, copy);
        note_change(action, p, 0);
        const int changed = param_set_value(p, 0, on, set_undo_fold);
        if (Param* const view = global(global_crop_view)) {
            param_sync_from_button(view);
            param_set_value(view, 0, on, set_update_control | set_undo_fold);
        }
        return after_control_change(action, info, change_wanted(action, changed));
    });
}

void* switch_crop_input(int action, SparkInfoStruct* info, Param* p, int copy) {
    if (action == SPARK_ACTION_PRESS) return nullptr;
    return with_info(info, [&] {
        const float on = boolean_of_copy(p, copy);
        note_change(action, p, 0);
        return after_control_change(action, info, change_wanted(action, set_crop_input(p, on)));
    });
}

// The crop's handle is drawn or not; the picture stays.
void* switch_handle(int, SparkInfoStruct*, Param*, int) {
    sparkViewingDraw();
    return nullptr;
}

void* keep_value(int action, SparkInfoStruct* info, Param* p, int copy) {
    if (copy < 0 || copy >= p->n_global_buttons) return nullptr;
    return callbkfun2(action, info, p->global_buttons[copy], p, copy, 0);
}

void* show_help(int action, SparkInfoStruct* info, Param* p, int) {
    if (action != SPARK_ACTION_RELEASE) return nullptr;
    return with_info(info, [&]() -> void* {
        show_copies(p);
        char url[1024];
        const GlobalsV4Record* const g = Globals_V4;
        if (p->global_index == global_intro) {
            std::snprintf(url, sizeof(url), "file:%s/docs/intro.html", get_config_dir());
        } else if (p->global_index == global_web_site) {
            std::snprintf(url, sizeof(url), "%s", web_site);
        } else if (g->doc_page) {
            std::snprintf(url, sizeof(url), "file:%s/docs/%s", get_config_dir(), g->doc_page);
        } else {
            // Pages are named as the effect's text names the effect.
            char page[GENOTYPE_NAME_SIZE] = "";
            if (g->effect_genotype) std::memcpy(page, g->effect_genotype->name, sizeof(page));
            std::replace(page, page + std::strlen(page), ' ', '_');
            std::snprintf(url, sizeof(url), "file:%s/docs/%s.html", get_config_dir(), page);
        }
        browse_url(url);
        release_button(p);
        return nullptr;
    });
}

void* undo_last_step(int action, SparkInfoStruct* info, Param* p, int) {
    if (action == SPARK_ACTION_PRESS) return nullptr;
    return with_info(info, [&] {
        show_copies(p);
        void* frame = nullptr;
        GlobalsV4Record* const g = Globals_V4;
        Genotype* const genotype = g->selected_effect >= 0 ? g->genotypes[g->selected_effect] : nullptr;
        g->dragging = 0;
        if (genotype && undo_list_undo(get_undo_list(genotype))) {
            // What follows is another change, also of the control that was just undone.
            forget_last_change();
            spark_make_next_undo_record_a_boundary();
            frame = process_from_callback(info, action);
        } else if (genotype) {
            show_message_delay(nothing_to_undo_milliseconds, "Nothing to undo.");
            sparkPointerWaitOff();
        }
        release_button(p);
        return frame;
    });
}

void* load_page_defaults(int action, SparkInfoStruct* info, Param* p, int) {
    if (action == SPARK_ACTION_PRESS) return nullptr;
    return with_info(info, [&] {
        constexpr int mode = set_update_control | set_undo_fold;
        spark_make_next_undo_record_a_boundary();
        int changed = set_global_default(global_crop_surround, mode);
        changed |= set_global_default(global_surround_color, mode);
        relax_crop_bounds(info->FrameWidth, info->FrameHeight);
        changed |= set_edge(global_crop_left, 0, mode);
        changed |= set_edge(global_crop_bottom, 0, mode);
        changed |= set_edge(global_crop_right, info->FrameWidth, mode);
        changed |= set_edge(global_crop_top, info->FrameHeight, mode);
        for (const int index : {global_add_noise, global_gamma, global_lut}) changed |= set_global_default(index, mode);
        changed |= set_global_default(global_crop_input, mode);
        spark_make_next_undo_record_a_boundary();
        Globals_V4->dragging = 0;
        void* const frame = changed ? process_from_callback(info, action) : nullptr;
        release_button(p);
        return frame;
    });
}

void* load_defaults(int action, SparkInfoStruct* info, Param* p, int) {
    if (action == SPARK_ACTION_PRESS) return nullptr;
    return with_info(info, [&] {
        constexpr int mode = set_update_control | set_undo_fold;
        show_copies(p);
        spark_make_next_undo_record_a_boundary();
        int changed = set_global_default(global_on_fields, mode);
        GlobalsV4Record* const g = Globals_V4;
        const Genotype* const genotype = g->effect_genotype;
        for (int i = 0; genotype && i < genotype->param_number; ++i) {
            Param* const q = genotype->params[i];
            if (!q) continue;
            if (param_on_buttons_p(q)) param_sync_from_button(q);
            changed |= set_param_default(q, mode);
        }
        for (const int index : {global_add_noise, global_gamma, global_lut}) changed |= set_global_default(index, mode);
        for (int i = 0; i < 4; ++i) {
            Param* const edge = g->kernel_crop_params[i];
            if (!edge) continue;
            const int size = i < 2 ? 0 : i == 2 ? info->FrameWidth : info->FrameHeight;
            changed |= param_set_value(edge, 0, static_cast<float>(size), mode | set_no_control);
        }
        spark_make_next_undo_record_a_boundary();
        g->dragging = 0;
        void* const frame = changed ? process_from_callback(info, action) : nullptr;
        release_button(p);
        return frame;
    });
}

}  // namespace velloran
