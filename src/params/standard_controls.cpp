// The standard controls as params: their table, their places, their defaults.
#include "params/standard_controls.h"

#include "frame/lut_files.h"
#include "genotype/param_record.h"
#include "params/control_callbacks.h"
#include "params/control_kinds.h"
#include "params/effect_selection.h"
#include "params/layout.h"
#include "params/param_values.h"
#include "records/run_state.h"
#include "support/memory.h"
#include "texts/config.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace velloran {

namespace {

constexpr int last_open_edge = 9999;
constexpr int max_surround_inputs = 2;

// On which of the pages in use a control stands.
bool on_all(int, int) { return true; }
bool on_other(int page, int crop_page) { return page != crop_page; }
bool on_crop(int page, int crop_page) { return page == crop_page; }
bool on_first(int page, int) { return page == 0; }

struct StandardRow {
    const char* title;
    const char* key;  // callback_name
    int type;
    int number;  // control number on page 0
    bool (*on_page)(int page, int crop_page);
    int variant;  // among the params of one key, from 1; 0 the only one
    float default_value, min, max, step;
    StandardCallback callback;
    const char* entries[10];
};

constexpr StandardRow rows[N_GLOBAL_PARAMS] = {
#define ROW(index, title, key, type, number, pages, variant, value, min, max, step, callback, ...) \
    {title, key, param_##type, number, on_##pages, variant, value, min, max, step, callback, {__VA_ARGS__}},
#include "records/standard_controls.inc"
#undef ROW
};

constexpr int res_factors[] = {1, 2, 3, 4, 6, 8, 12, 16, 32};

bool wanted(int index) {
    const GlobalsV4Record* const g = Globals_V4;
    if (index == global_on_fields) return !(g->genotypes[0] && g->genotypes[0]->hide_on_fields_button);
    if (index == global_crop_input)
        return std::any_of(g->genotypes, g->genotypes + g->n_effects,
                           [](const Genotype* genotype) { return genotype && genotype->warp_crop; });
    return true;
}

void add_copy(Param* p, int number) {
    if (p->n_global_buttons >= 4 || number < BUTTON_BASE || number >= N_CONTROL_NUMBERS) return;
    p->global_controls[p->n_global_buttons] = control_kind(p).at(Globals_V4, number);
    p->global_buttons[p->n_global_buttons++] = number;
}

// Inputs that the surround popup offers: none while the crop input takes the crop for itself.
int surround_inputs() {
    const GlobalsV4Record* const g = Globals_V4;
    const Param* const crop_input = g->global_params[global_crop_input];
    return crop_input && crop_input->value[0] != 0 ? 0 : std::min<int>(g->n_inputs, max_surround_inputs);
}

void set_entries(Param* p, int n) {
    p->n_popup_entries = static_cast<uint8_t>(n);
    p->max_value = static_cast<float>(std::max(0, n - 1));
}

Param* make_standard_param(int index) {
    const StandardRow& row = rows[index];
    Param* const p = new_param(row.type, row.title);
    push_abort_cleanup([](void* half_made) { free_param(static_cast<Param*>(half_made)); }, p);
    p->owner_flags |= owner_global;
    p->save_flags |= save_standard;
    if (row.type == param_color) p->kind_flags |= kind_color_only;
    p->min_value = row.min;
    p->max_value = row.max;
    p->step = row.step;
    p->callback_name = row.key;
    p->extra = row.variant;
    p->global_index = index;
    if (!std::strcmp(row.key, "crop")) p->host_flag_name = row.variant % 2 ? "SPARK_FLAG_X" : "SPARK_FLAG_Y";
    p->first_button = row.number - BUTTON_BASE;
    p->buttons[0] = static_cast<int16_t>(p->first_button);
    p->value[0] = p->default_value[0] = row.default_value;
    if (param_kind(p).number) make_button_format(p);
    if (index == global_lut) {
        list_luts(Globals_V4, config.input_lut, config.output_lut, p->popup_entries);
        set_entries(p, Globals_V4->n_luts);
    } else if (row.type == param_popup) {
        int n = 0;
        for (; n < 10 && row.entries[n]; ++n) p->popup_entries[n] = safe_strdup(row.entries[n]);
        set_entries(p, n);
    }
    const GlobalsV4Record* const g = Globals_V4;
    if ((g->record_flags & record_explicit_global_buttons) && g->global_button_table) {
        for (int i = 0; i < 4; ++i) add_copy(p, g->global_button_table[index * 4 + i]);
    } else {
        const bool first_only = index == global_redraw_wait && g->plugin_name && !std::strcmp(g->plugin_name, "Shake");
        const auto on_page = first_only ? on_first : row.on_page;
        for (int page = 0; page < 4; ++page) {
            const bool in_use = page < g->n_param_pages || page == g->crop_page;
            if (in_use && on_page(page, g->crop_page)) add_copy(p, page * BUTTONS_PER_PAGE + row.number);
        }
    }
    for (int copy = p->n_global_buttons - 1; copy >= 0; --copy)
        if (p->global_controls[copy]) p->controls[0] = p->global_controls[copy];
    pop_abort_cleanup();
    return p;
}

void set_surround_entries(Param* p) {
    for (int i = 1; i < max_popup_entries; ++i) {
        safe_free(p->popup_entries[i]);
        p->popup_entries[i] = nullptr;
    }
    const int n = surround_inputs();
    for (int i = 0; i < n; ++i) {
        char entry[64];
        std::snprintf(entry, sizeof(entry), "Surround: %s", get_effect_input_image_name(i));
        p->popup_entries[i + 1] = safe_strdup(entry);
    }
    set_entries(p, n + 1);
    fill_control_structures(p);
    for (int copy = 0; copy < p->n_global_buttons; ++copy)
        if (p->global_controls[copy]) sparkControlUpdate(p->global_buttons[copy]);
}

}  // namespace

void create_global_params() {
    GlobalsV4Record* const g = Globals_V4;
    free_global_params();
    for (int i = 0; i < N_GLOBAL_PARAMS; ++i) {
        if (!wanted(i)) continue;
        Param* const p = make_standard_param(i);
        g->global_params[i] = p;
        g->n_global_params++;
        fill_control_structures(p);
    }
    g->saved_surround_mode = new_param(param_int, "Surround Mode Set Aside");
    g->saved_surround_mode->n_buttons = 0;
    set_crop_and_button_defaults(spark_info_ptr ? spark_info_ptr->FrameWidth : 0,
                                 spark_info_ptr ? spark_info_ptr->FrameHeight : 0);
}

void free_global_params() {
    GlobalsV4Record* const g = Globals_V4;
    for (Param*& p : g->global_params) {
        free_param(p);
        p = nullptr;
    }
    free_param(g->saved_surround_mode);
    g->saved_surround_mode = nullptr;
    g->n_global_params = 0;
    forget_last_change();
}

void set_crop_and_button_defaults(int width, int height) {
    GlobalsV4Record* const g = Globals_V4;
    if (Param* const top = g->global_params[global_crop_top]) top->default_value[0] = static_cast<float>(height);
    if (Param* const right = g->global_params[global_crop_right]) right->default_value[0] = static_cast<float>(width);
    for (Param* const p : g->global_params)
        if (p) set_param_default(p, 0);
}

void set_crop_bounds(int width, int height) {
    GlobalsV4Record* const g = Globals_V4;
    const auto follow_frame = [g](int index, int size) {
        Param* const p = g->global_params[index];
        if (!p) return;
        const bool covers = param_get_value(p, 0) == p->default_value[0];
        p->default_value[0] = static_cast<float>(size);
        if (covers) param_set_value(p, 0, p->default_value[0], set_update_control);
    };
    // Bounds first open: what the frame used to be must not hold what it is.
    global_param_set_min_max(global_crop_right, 0, static_cast<float>(std::max(width, last_open_edge)));
    global_param_set_min_max(global_crop_top, 0, static_cast<float>(std::max(height, last_open_edge)));
    follow_frame(global_crop_right, width);
    follow_frame(global_crop_top, height);
    global_param_set_min_max(global_crop_left, 0, static_cast<float>(width - 1));
    global_param_set_min_max(global_crop_bottom, 0, static_cast<float>(height - 1));
    global_param_set_min_max(global_crop_right, 0, static_cast<float>(width));
    global_param_set_min_max(global_crop_top, 0, static_cast<float>(height));
}

void open_crop_bounds() {
    global_param_set_min_max(global_crop_left, 0, last_open_edge - 1);
    global_param_set_min_max(global_crop_bottom, 0, last_open_edge - 1);
    global_param_set_min_max(global_crop_right, 0, last_open_edge);
    global_param_set_min_max(global_crop_top, 0, last_open_edge);
}

void set_input_count_on_buttons() {
    Param* const p = Globals_V4->global_params[global_crop_surround];
    if (!p) return;
    const int n = 1 + surround_inputs();
    set_entries(p, n);
    for (void* const control : p->global_controls)
        if (control) static_cast<SparkPopupStruct*>(control)->Entries = n;
}

void set_surround_names() {
    if (Param* const p = Globals_V4->global_params[global_crop_surround]) set_surround_entries(p);
}

void standard_control_changed(const Param* p) {
    if (p->global_index == global_crop_input) set_surround_names();
}

void* standard_callback(int action, SparkInfoStruct* info, Param* p, int copy) {
    return rows[p->global_index].callback(action, info, p, copy);
}

void* named_standard_callback(const char* key, int action, SparkInfoStruct* info, int which) {
    for (Param* const p : Globals_V4->global_params) {
        if (!p || std::strcmp(p->callback_name, key) != 0 || (p->extra > 0 && p->extra != which)) continue;
        return standard_callback(action, info, p, p->extra > 0 ? 0 : which);
    }
    return nullptr;
}

int get_popup_res_factor() {
    const int entry = static_cast<int>(global_param_get_value(global_res_factor));
    constexpr int n = sizeof(res_factors) / sizeof(res_factors[0]);
    return res_factors[std::clamp(entry, 0, n - 1)];
}

int get_on_fields_mode() { return static_cast<int>(global_param_get_value(global_on_fields)); }
int get_lut_index() { return static_cast<int>(global_param_get_value(global_lut)); }

}  // namespace velloran
