#include "params/effect_selection.h"

#include "compile/compile.h"
#include "compile/load.h"
#include "functions/function_table.h"
#include "genotype/param_record.h"
#include "params/control_callbacks.h"
#include "params/layout.h"
#include "params/param_values.h"
#include "params/widget_requests.h"
#include "records/run_state.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/host_info.h"
#include "support/memory.h"
#include "support/optional_host.h"
#include "texts/config.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace velloran {

namespace {

// Stands in the popup for a definition that could not be read.
char unusable_effect_name[] = "(cannot be read)";

bool uses_percent_time(const Genotype* genotype) {
    for (int i = 0; i < genotype->node_number; ++i) {
        const Node& node = genotype->nodes[i];
        if (node.type == node_function && (node.fun_info->def_flags & def_uses_percent_time)) return true;
    }
    return false;
}

// A param that several effects share feeds the nodes of the one in force.
void refresh_param_links(Genotype* genotype) {
    for (int i = 0; i < genotype->node_number; ++i) {
        Node* const node = &genotype->nodes[i];
        const int index = node->param_index - 1;
        if (index < 0 || index >= genotype->param_number || !genotype->params[index]) continue;
        genotype->params[index]->node = node;
    }
}

// The corners of a kernel picture, by the names that effect texts give them.
void find_kernel_crop_params(const Genotype* genotype) {
    static constexpr const char* names[4] = {"kernel_crop1_x", "kernel_crop1_y", "kernel_crop2_x", "kernel_crop2_y"};
    for (int i = 0; i < 4; ++i) Globals_V4->kernel_crop_params[i] = get_param_by_name(genotype, names[i]);
}

// Params that are one value for all effects of the plug-in: a later effect takes the earlier effect's of the same name.
void share_effect_params() {
    GlobalsV4Record* const g = Globals_V4;
    for (int later = 1; later < g->n_effects; ++later) {
        Genotype* const genotype = g->genotypes[later];
        for (int i = 0; genotype && i < genotype->param_number; ++i) {
            Param* const p = genotype->params[i];
            if (!p || !(p->owner_flags & owner_shared)) continue;
            for (int earlier = 0; earlier < later; ++earlier) {
                if (!g->genotypes[earlier]) continue;
                Param* const q = get_param_by_name(g->genotypes[earlier], p->name);
                const bool same = q && q != p && (q->owner_flags & owner_shared) && q->type == p->type &&
                                  q->n_channels == p->n_channels && q->n_buttons == p->n_buttons;
                if (!same) continue;
                genotype->params[i] = ref_param(q);
                free_param(p);
                break;
            }
        }
    }
}

// A fatal abort in one definition ends only it: the others of the text are of use without it. Without memory there is
// nothing to go on with.
Genotype* load_alone(const char* text) {
    constexpr int out_of_memory = -100;
    AbortTarget outer;
    arm_abort(outer);
    if (const int status = setjmp(_V_jmpbuf)) {
        disarm_abort(outer);
        if (status == out_of_memory) fatal_abort(status);
        return nullptr;
    }
    Genotype* const genotype = read_genotype_from_string(text);
    disarm_abort(outer);
    return genotype;
}

bool begins_with(const char* text, const char* start) { return !std::strncmp(text, start, std::strlen(start)); }

}  // namespace

int first_usable_effect() {
    for (int i = 0; i < Globals_V4->n_effects && i < MAX_EFFECTS_PER_PLUGIN; ++i)
        if (Globals_V4->genotypes[i]) return i;
    return 0;
}

void load_effects_from_strings() {
    GlobalsV4Record* const g = Globals_V4;
    if (g->n_effects < 1) V_error(level_error, "load_effects_from_strings: Globals->n_effects <= 0.");
    fill_node_fun_tables();
    read_config_once();
    const Genotype* first = nullptr;
    for (int i = 0; i < g->n_effects && i < MAX_EFFECTS_PER_PLUGIN; ++i) {
        const Genotype* const genotype = g->genotypes[i] = load_alone(g->effect_strings[i]);
        if (!genotype) {
            V_error(level_error, "Failed loading effect from string.");
            continue;
        }
        if (!first)
            g->n_inputs = genotype->input_number;
        else if (genotype->input_number != g->n_inputs)
            V_error(level_error, "Warning: %s has different input image number: %d", genotype->name,
                    genotype->input_number);
        if (!first) first = genotype;
    }
    if (!first && g->n_effects > 0) {
        fatal_message("");
        return;
    }
    share_effect_params();
    copy_effect_options();
    g->selected_effect = -1;
    g->effect_genotype = g->genotypes[first_usable_effect()];
}

void load_effect_from_config() {
    GlobalsV4Record* const g = Globals_V4;
    fill_node_fun_tables();
    read_config_once();
    const char* const path = config_paths.config;
    Genotype* const genotype = read_genotype_from_file(path, g->plugin_name);
    if (!genotype) {
        V_error(level_error, "Failed loading from %s.", path);
        fatal_abort(1);
        return;
    }
    g->genotypes[0] = genotype;
    g->n_effects = 1;
    g->n_inputs = genotype->input_number;
    g->selected_effect = 0;
    g->effect_genotype = genotype;
}

void copy_effect_options() {
    GlobalsV4Record* const g = Globals_V4;
    const Genotype* const first = g->genotypes[first_usable_effect()];
    if (!first) return;
    const auto take = [](uint8_t& flags, uint8_t from, uint8_t mask) {
        flags = static_cast<uint8_t>((flags & ~mask) | (from & mask));
    };
    for (int i = 1; i < g->n_effects; ++i) {
        Genotype* const genotype = g->genotypes[i];
        if (!genotype) continue;
        take(genotype->effect_flags_1, first->effect_flags_1, effect_luma_alpha_ok);
        take(genotype->effect_flags_2, first->effect_flags_2, effect_generates_alpha | effect_source_alpha_affects_rgb);
        genotype->hide_on_fields_button = first->hide_on_fields_button;
    }
}

void select_effect_i(int index, int setup) {
    GlobalsV4Record* const g = Globals_V4;
    if (index >= MAX_EFFECTS_PER_PLUGIN) {
        V_error(level_error, "select_effect_i: %d > MAX_EFFECTS_PER_PLUGIN.", index);
        return;
    }
    const Genotype* const before = g->effect_genotype;
    g->effect_genotype = index >= 0 ? g->genotypes[index] : nullptr;
    Genotype* const genotype = g->effect_genotype;
    // What one effect made last is nothing for another to go on from.
    if (genotype != before && g->prev_dest) g->prev_dest->valid = 0;
    if (!genotype) {
        V_error(level_error, "select_effect_i: no effect at %d.", index);
        return;
    }
    // Until it is whole: a selection that ends in a fatal abort is made again by the next frame.
    g->selected_effect = -1;
    g->number_of_input_images = genotype->input_number;
    g->render_flags &= static_cast<uint8_t>(~(render_uses_percent_time | render_eval_arrays_ready));
    if (uses_percent_time(genotype)) g->render_flags |= render_uses_percent_time;
    refresh_param_links(genotype);
    find_kernel_crop_params(genotype);
    if (setup) {
        recompile_genotype(genotype, 1);
        build_eval_image_nodes(genotype);
        g->render_flags |= render_eval_arrays_ready;
    }
    g->selected_effect = static_cast<int16_t>(index);
}

void spark_select_effect_i(int index, int setup, int silent) {
    GlobalsV4Record* const g = Globals_V4;
    select_effect_i(index, setup);
    Genotype* const genotype = g->effect_genotype;
    if (!setup || !genotype || index == g->shown_effect) return;
    // What the host put into controls that show this effect already, a curve's value or a setup's, is not to be lost.
    const bool on_buttons =
        genotype->param_number > 0 && genotype->params[0] && param_on_buttons_p(genotype->params[0]);
    if (on_buttons) sync_effect_params(genotype);
    if (widget_requests.create) widget_requests.create(genotype);
    setup_effect_buttons(index, !silent && on_buttons ? show_leave_colors : 0);
    if (host_kind != host_burn && host_api_at_least(4.019f)) {
        for (int number = BUTTON_BASE; number < N_CONTROL_NUMBERS; ++number) {
            const Param* const p = g->button_table[number - BUTTON_BASE].param;
            if (p && !(p->save_flags & save_hidden))
                v_sparkEnableParameter(1, number);
            else
                v_sparkDisableParameter(1, number);
        }
        if (const Param* const crop_input = g->global_params[global_crop_input]) {
            const int number = global_control_number(crop_input, 0);
            if (genotype->warp_crop)
                v_sparkEnableParameter(1, number);
            else
                v_sparkDisableParameter(1, number);
        }
    }
    g->shown_effect = static_cast<int16_t>(index);
}

const char* get_effect_input_image_name(int input) {
    static char name[32];
    const GlobalsV4Record* const g = Globals_V4;
    if (g->n_inputs > 1)
        std::snprintf(name, sizeof(name), "Source%d", input + 1);
    else
        std::snprintf(name, sizeof(name), "Source");
    if (!g->effect_genotype)
        V_error(level_warning, "get_effect_input_image_name: Globals->effect_genotype is not set.\n");
    else if (input >= 0 && input < MAX_INPUTS && g->effect_genotype->input_names[input][0])
        std::snprintf(name, sizeof(name), "%s", g->effect_genotype->input_names[input]);
    return name;
}

int input_channels_by_name(const char* input_name, const Genotype* genotype) {
    // The first row whose start fits decides.
    constexpr int by_flags = -1;
    static constexpr struct {
        const char* start;
        int channels;
    } rows[] = {
        {"Source", 4},         {"Back", 4},    {"Front", 4},           {"Foreground", 4},
        {"From", 4},           {"To", 4},      {"Dummy", 4},           {"EdgeGen", 1},
        {"ZBuffer", 1},        {"Matte", 0},   {"Track", 0},           {"Lens", 0},
        {"Bumps", 0},          {"Centers", 0}, {"Displace", 0},        {"Match", 0},
        {"Kernel", 0},         {"Depth", 0},   {"Ufo_Mask", by_flags}, {"Mask", by_flags},
        {"Normals", by_flags},
    };
    for (const auto& row : rows) {
        if (!begins_with(input_name, row.start)) continue;
        if (row.channels == by_flags) return (genotype->effect_flags_2 & effect_mask_rgba) == effect_mask_rgba ? 4 : 3;
        return row.channels;
    }
    if (std::strstr(input_name, "Color")) return 3;
    return begins_with(input_name, "Blur") ? 0 : 3;
}

void init_popup_effect_button() {
    GlobalsV4Record* const g = Globals_V4;
    SparkPopupStruct* const control = g->popup_controls[BUTTON_BASE];
    if (!control) {
        V_error(level_error, "init_popup_effect_button: no popup at 6.");
        return;
    }
    Param* const p = new_param(param_popup, "Effect Popup");
    // A plug-in can hold more effects than a declared popup entries: the control takes their names from them.
    static_assert(MAX_EFFECTS_PER_PLUGIN <= SPARK_MAX_POPUP_ENTRIES);
    p->n_popup_entries = static_cast<uint8_t>(g->n_effects);
    p->max_value = static_cast<float>(g->n_effects - 1);
    p->value[0] = p->default_value[0] =
        static_cast<float>(g->selected_effect >= 0 ? g->selected_effect : first_usable_effect());
    p->first_button = 0;
    p->buttons[0] = 0;
    p->controls[0] = control;
    g->effect_popup_param = p;
    make_button_format(p);
    fill_control_structures(p);
    control->Entries = g->n_effects;
    for (int i = 0; i < g->n_effects; ++i)
        control->Names[i] = g->genotypes[i] ? g->genotypes[i]->name : unusable_effect_name;
    control->Value = static_cast<int>(p->value[0]);
}

void free_popup_effect_button() {
    free_param(Globals_V4->effect_popup_param);
    Globals_V4->effect_popup_param = nullptr;
}

void* effect_popup_callback(int action, SparkInfoStruct* info, int) {
    GlobalsV4Record* const g = Globals_V4;
    if (g->n_effects < 2 || !g->effect_popup_param) return nullptr;
    SparkInfoStruct* const outer_info = spark_info_ptr;
    spark_info_ptr = info;
    void* frame = nullptr;
    const int index = static_cast<int>(param_get_value(g->effect_popup_param, 0));
    if (index != g->selected_effect || index != g->shown_effect) {
        if (get_redraw_mode() > redraw_pen_up) sparkCursorBusy();
        spark_select_effect_i(index, 1, 1);
        frame = process_from_callback(info, action);
    }
    spark_info_ptr = outer_info;
    return frame;
}

}  // namespace velloran
