// Layout of the effects' params on the control grid.
//
// All effects are laid out into one button table, so that conflicts between effects show at start; afterwards the table
// holds the params of the effect that is shown, with the standard controls and the widget enables.
#include "params/layout.h"

#include "genotype/param_record.h"
#include "params/control_kinds.h"
#include "params/effect_selection.h"
#include "params/param_values.h"
#include "params/standard_controls.h"
#include "params/widget_requests.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/host_info.h"
#include "support/memory.h"
#include "support/optional_host.h"
#include "texts/title_case.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace velloran {

namespace {

constexpr uint8_t kind_first_channel = 1, kind_later_channel = 2, kind_mixed = 3;

// The first of the two passes only finds out how many pages are needed; the second one reports.
bool quiet;

bool has_pot_beside(const Param* p) { return p->type == param_color && !(p->kind_flags & kind_color_only); }
bool number_p(const Param* p) { return p->type == param_float || p->type == param_int; }
bool second_half_at(const Param* p, int index) { return has_pot_beside(p) && p->buttons[0] + BESIDE == index; }

void need_page_of(int index) {
    const int page = index / BUTTONS_PER_PAGE;
    Globals_V4->n_param_pages = std::max(Globals_V4->n_param_pages, std::min(page, 2) + 1);
}

uint8_t kind_of(const Param* p, int channel) {
    switch (p->scale_flags & scale_mode_mask) {
        case screen_screen:
        case screen_center:
        case screen_center0:
        case screen_to_norm:
        case screen_center_to_norm:
            return channel == 0 ? kind_first_channel : kind_later_channel;
        case screen_x:
            return kind_first_channel;
        case screen_y:
            return kind_later_channel;
        default:
            return kind_mixed;
    }
}

void enter(Param* p, int channel, int index) {
    ButtonEntry& entry = Globals_V4->button_table[index];
    entry.param = p;
    entry.channel = static_cast<int16_t>(channel);
    const uint8_t kind = kind_of(p, channel);
    entry.button_kinds = entry.button_kinds == 0 || entry.button_kinds == kind ? kind : kind_mixed;
}

void report_conflict(const char* format, const Param* p1, const Param* p2, int index, bool second_half) {
    if (!p1 || p1 == p2 || quiet) return;
    char reason[200];
    if (!sharing_error(p1, p2, index, second_half, reason, sizeof(reason))) return;
    char text[512];
    std::snprintf(text, sizeof(text), format, p1->name, p2->name, index, reason);
    V_error(level_warning, "%s", text);
}

constexpr const char* layout_conflict = "layout: Incompatible params %s and %s at button %d: %s.";
constexpr const char* setup_conflict = "setup: Incompatible params %s and %s at button %d: %s";

void too_many_params() {
    V_error(level_fatal, "layout_buttons: too many params (%d max)", MAX_PARAM_BUTTONS);
    fatal_abort(1);
}

void occupy(Param* p, int channel, int index) {
    enter(p, channel, index);
    need_page_of(index);
    Globals_V4->last_button_used = std::max(Globals_V4->last_button_used, index);
}

// Button indices of an effect's params: of each channel, and of a colour its first.
struct Places {
    int16_t of[MAX_GENOTYPE_PARAMS][4];
};

int column_of(int index) {
    constexpr int columns = (BUTTONS_PER_PAGE + BESIDE - 1) / BESIDE;
    return index / BUTTONS_PER_PAGE * columns + index % BUTTONS_PER_PAGE / BESIDE;
}

// Which buttons an effect of its own would take.
struct Grid {
    const Param* at[N_BUTTON_TABLE + BESIDE + 1];

    int next_free(int index) const {
        while (index < MAX_PARAM_BUTTONS && at[index]) ++index;
        return index;
    }
    // From where n free buttons stand in one column.
    int start_of_run(int index, int n) const {
        for (index = next_free(index); index < MAX_PARAM_BUTTONS;) {
            int last = index;
            for (int i = 1; i < n; ++i) last = next_free(last + 1);
            if (column_of(last) == column_of(index)) return index;
            const int column = column_of(index);
            while (column_of(index) == column) ++index;
            index = next_free(index);
        }
        return index;
    }
};

// Places for all params of an effect in the order of their declaration. together: a vector of three or more numbers
// that was given no button stands in one column. report: say what could not be as declared. False: they do not fit.
bool find_places(const Genotype* genotype, bool together, bool report, Places& places) {
    const GlobalsV4Record* const g = Globals_V4;
    Grid grid = {};
    int i = g->n_effects >= 2 ? 0 : -1;
    for (int k = 0; k < genotype->param_number; ++k) {
        const Param* const p = genotype->params[k];
        if (!p) continue;
        const int declared = p->first_button >= 1 ? p->first_button : p->callback_number;
        const int beside = has_pot_beside(p) ? BESIDE : 0;
        if (together && declared < 1 && p->n_buttons >= 3) i = grid.start_of_run(i + 1, p->n_buttons) - 1;
        for (int channel = 0; channel < p->n_buttons && channel < 4; ++channel) {
            const int want = declared >= 1 ? declared + channel : -1;
            if (report && want > 0 && want <= i) {
                const Param* const there = grid.at[i] ? grid.at[i] : g->button_table[i].param;
                V_error(level_warning,
                        "%s.%s button assignment %d (orig %d, ch. %d) out of order (must be > %d, which is %s).",
                        genotype->name, p->name, want, declared, channel, i, there ? there->name : "");
            }
            i = std::max(want, i + 1);
            if (report && i == want && i < MAX_PARAM_BUTTONS && grid.at[i])
                V_error(level_warning, "%s.%s ch. %d: button %d is already used, skipping to next.\n", genotype->name,
                        p->name, channel, i);
            i = grid.next_free(i);
            if (i + beside >= MAX_PARAM_BUTTONS) return false;
            places.of[k][channel] = static_cast<int16_t>(i);
            grid.at[i] = grid.at[i + beside] = p;
        }
    }
    return true;
}

void set_controls(Param* p) {
    const GlobalsV4Record* const g = Globals_V4;
    std::fill(std::begin(p->controls), std::end(p->controls), nullptr);
    const ControlKind& kind = control_kind(p);
    for (int channel = 0; channel < p->n_buttons && channel < 4 && p->type != param_unknown; ++channel) {
        const int number = p->buttons[channel] + BUTTON_BASE;
        p->controls[channel] = kind.at(g, number + (has_pot_beside(p) ? BESIDE : 0));
        if (has_pot_beside(p)) p->controls[1] = g->float_controls[number];
        if (p->type == param_string) break;
    }
}

void start_table() {
    GlobalsV4Record* const g = Globals_V4;
    std::memset(g->button_table, 0, sizeof(g->button_table));
    if (g->effect_popup_param) g->button_table[0].param = g->effect_popup_param;
}

// Gives the enable params of one effect's widgets their numbers.
void place_widget_enables(Genotype* genotype) {
    GlobalsV4Record* const g = Globals_V4;
    int next = FIRST_ENABLE_NUMBER;
    for (int i = 0; i < widget_count(genotype); ++i) {
        Param* const p = genotype->widgets->widgets[i].enable_param;
        if (!p || !(p->kind_flags & kind_widget_enable)) continue;  // another param may stand in
        if (p->first_button == -1) {
            const auto taken = [&](int number) {
                const Param* const there = g->button_table[number - BUTTON_BASE].param;
                return there && !(there->kind_flags & kind_widget_enable);
            };
            while (next < N_CONTROL_NUMBERS && taken(next)) ++next;
            if (next >= N_CONTROL_NUMBERS) {
                too_many_params();
                return;
            }
            p->first_button = next++ - BUTTON_BASE;
        } else {
            next = std::max(next, p->first_button + BUTTON_BASE + 1);
        }
        const int number = p->first_button + BUTTON_BASE;
        if (number < BUTTON_BASE || number >= N_CONTROL_NUMBERS) {
            too_many_params();
            return;
        }
        p->buttons[0] = static_cast<int16_t>(p->first_button);
        set_controls(p);
        const Param* const there = g->button_table[p->first_button].param;
        if (there && there != p && !(there->kind_flags & kind_widget_enable)) {
            if (!quiet)
                V_error(level_error, "%s: button %d already used by %s; can't put widget enable there.\n",
                        genotype->name, p->first_button, there->name);
        }
        occupy(p, 0, p->first_button);
    }
}

void layout_all() {
    GlobalsV4Record* const g = Globals_V4;
    g->last_button_used = -1;
    g->n_param_pages = 1;
    start_table();
    for (int i = 0; i < g->n_effects; ++i) {
        if (!g->genotypes[i]) continue;
        layout_buttons(g->genotypes[i]);
        place_widget_enables(g->genotypes[i]);
    }
    g->crop_page = std::max(g->n_param_pages, 2);
}

// Enters the standard controls where nothing stands. A copy without a place is dropped from the panel.
void place_global_params(const char* owner, bool drop) {
    GlobalsV4Record* const g = Globals_V4;
    for (Param* const p : g->global_params) {
        if (!p) continue;
        for (int copy = 0; copy < p->n_global_buttons && copy < 4; ++copy) {
            const int index = p->global_buttons[copy] - BUTTON_BASE;
            if (index < 1 || index >= N_BUTTON_TABLE) continue;
            ButtonEntry& entry = g->button_table[index];
            if (!entry.param) {
                entry.param = p;
                entry.channel = static_cast<int16_t>(copy);
                continue;
            }
            V_error(level_error, "%s: button %d already used for %s; can't put global button %s there.\n", owner, index,
                    entry.param->name, p->name);
            if (!drop) continue;
            p->global_buttons[copy] = 0;
            p->global_controls[copy] = nullptr;
        }
        if (!drop) continue;
        p->controls[0] = nullptr;
        for (int copy = 3; copy >= 0; --copy)
            if (p->global_controls[copy]) p->controls[0] = p->global_controls[copy];
    }
}

// Enables on the same button in several effects are one param.
void share_widget_enables() {
    GlobalsV4Record* const g = Globals_V4;
    for (int later = 1; later < g->n_effects; ++later) {
        for (int i = 0; i < widget_count(g->genotypes[later]); ++i) {
            WidgetRecord& widget = g->genotypes[later]->widgets->widgets[i];
            Param* found = nullptr;
            const bool own = widget.enable_param && (widget.enable_param->kind_flags & kind_widget_enable);
            for (int earlier = 0; own && earlier < later && !found; ++earlier) {
                for (int k = 0; k < widget_count(g->genotypes[earlier]); ++k) {
                    Param* const p = g->genotypes[earlier]->widgets->widgets[k].enable_param;
                    if (p && (p->kind_flags & kind_widget_enable) && p != widget.enable_param &&
                        p->first_button == widget.enable_param->first_button)
                        found = p;
                }
            }
            if (!found) continue;
            ref_param(found);
            free_param(widget.enable_param);
            widget.enable_param = found;
        }
    }
}

// A control without a param shows nothing of the params that other effects have there.
void clear_unused_labels() {
    static constexpr const char* no_title = "";
    const GlobalsV4Record* const g = Globals_V4;
    for (int number = BUTTON_BASE; number < N_CONTROL_NUMBERS; ++number) {
        if (g->button_table[number - BUTTON_BASE].param) continue;
        bool changed = false;
        for (const ControlKind& kind : control_kinds) {
            void* const control = kind.at(g, number);
            const char** const title = control ? &kind.title(control) : nullptr;
            // Compared by place: what it points at may be gone with the effect that it was of.
            if (!title || *title == no_title) continue;
            *title = no_title;
            changed = true;
        }
        if (SparkPopupStruct* const popup = g->popup_controls[number]; popup && popup->Entries > 0) {
            popup->Entries = 0;
            for (const char*& name : popup->Names) name = nullptr;
            changed = true;
        }
        if (!changed) continue;
        sparkSetControlName(1, number, "");
        sparkControlUpdate(number);
    }
}

// "Outer/Inner" of a group; the length.
int group_path(char* out, int size, const ParamGroup* group) {
    int n = group->parent ? group_path(out, size, group->parent) : 0;
    if (n > 0 && n < size - 1) out[n++] = '/';
    param_display_name(out + n, size - n, group->name);
    return n + static_cast<int>(std::strlen(out + n));
}

// The headings over the controls.
void show_groups(const Genotype* genotype) {
    for (int number = BUTTON_BASE; number < N_CONTROL_NUMBERS; ++number) {
        const Param* const p = Globals_V4->button_table[number - BUTTON_BASE].param;
        const bool grouped =
            p && !(p->owner_flags & owner_global) && p->group_index >= 0 && p->group_index < genotype->group_number;
        char path[SPARK_MAX_STRING] = "";
        if (grouped) group_path(path, sizeof(path), &genotype->groups[p->group_index]);
        v_sparkControlGroup(1, number, path);
    }
}

// Hosts that cannot disable a control show one without a param as blank as they can.
void blank_unused_controls() {
    const GlobalsV4Record* const g = Globals_V4;
    constexpr unsigned int neutral_grey = 0x91919191u;
    for (int number = BUTTON_BASE; number <= 90; ++number) {
        if (g->button_table[number - BUTTON_BASE].param) continue;
        bool changed = false;
        const auto blank = [&](ControlKindIndex kind, double value) {
            void* const control = control_kinds[kind].at(g, number);
            if (control) changed |= control_kinds[kind].write(control, value);
        };
        blank(control_color, neutral_grey);
        blank(control_boolean, 0);
        if (SparkStringStruct* const text = g->string_controls[number]; text && text->Value[0]) {
            text->Value[0] = 0;
            changed = true;
        }
        if (changed) sparkControlUpdate(number);
    }
    // A colour's number is in use on both of its halves, whichever structures stand there.
    for (int number = BUTTON_BASE; number <= 90; ++number)
        if (g->float_controls[number] && !g->button_table[number - BUTTON_BASE].param)
            sparkSetControlName(1, number, "     <not used>");
}

}  // namespace

WidgetRequests widget_requests;

const char* sharing_error(const Param* p1, const Param* p2, int index, bool p2_second_half, char* buffer, int size) {
    const auto say = [&](const char* format, const char* name, int type) {
        std::snprintf(buffer, static_cast<size_t>(size), format, name, static_cast<unsigned>(type));
        return static_cast<const char*>(buffer);
    };
    if (p1->type == param_unknown) return say("%sp1 is of unknown type", "", 0);
    if (p2->type == param_unknown) return say("%sp2 is of unknown type", "", 0);
    // What really stands there: the pot of a colour, the float of its name half, or the control of the type.
    const bool pot1 = p1->type == param_color && (!has_pot_beside(p1) || second_half_at(p1, index));
    const bool pot2 = p2->type == param_color && (!has_pot_beside(p2) || p2_second_half);
    if (pot1 && pot2) return nullptr;
    if (second_half_at(p1, index))
        return say("p1(%s) is a color; it can only share with other colors, not type %u", p1->name, p2->type);
    if (p2_second_half)
        return say("p2(%s) is a color; it can only share with other colors, not type %u", p2->name, p1->type);
    if (number_p(p1)) {
        if (number_p(p2) || has_pot_beside(p2)) return nullptr;
        return say("p1(%s) is float; it can only share with floats, ints or color-names, not type %u", p1->name,
                   p2->type);
    }
    if (number_p(p2)) {
        if (has_pot_beside(p1)) return nullptr;
        return say("p2(%s) is float; it can only share with floats, ints or color-names, not p1's type %u", p2->name,
                   p1->type);
    }
    const bool toggles_differ = ((p1->kind_flags ^ p2->kind_flags) & kind_widget_enable) != 0;
    if (p1->type != p2->type || pot1 != pot2 || toggles_differ) return say("%stypes are incompatible", "", 0);
    return nullptr;
}

void layout_buttons(Genotype* genotype) {
    GlobalsV4Record* const g = Globals_V4;
    if (!genotype) {
        V_error(level_fatal, "layout_buttons: No genotype!");
        return;
    }
    // What keeps vectors together leaves gaps: an effect that needs every button does without.
    Places places;
    const bool together = find_places(genotype, true, false, places);
    if (!find_places(genotype, together, !quiet, places)) {
        too_many_params();
        return;
    }
    for (int k = 0; k < genotype->param_number; ++k) {
        Param* const p = genotype->params[k];
        if (!p) continue;
        for (int channel = 0; channel < p->n_buttons && channel < 4; ++channel) {
            const int index = places.of[k][channel];
            report_conflict(layout_conflict, g->button_table[index].param, p, index, false);
            if (channel == 0) p->first_button = index;
            p->buttons[channel] = static_cast<int16_t>(index);
            occupy(p, channel, index);
            if (!has_pot_beside(p)) continue;
            report_conflict(layout_conflict, g->button_table[index + BESIDE].param, p, index + BESIDE, true);
            occupy(p, channel, index + BESIDE);
        }
        set_controls(p);
    }
}

void do_layout_and_init_widgets() {
    GlobalsV4Record* const g = Globals_V4;
    const auto each_effect = [g](void (*request)(Genotype*)) {
        for (int i = 0; request && i < g->n_effects; ++i)
            if (g->genotypes[i]) request(g->genotypes[i]);
    };
    each_effect(widget_requests.collect);
    // A place found in the first pass must not count as declared in the second.
    int* const declared = frame_array<int>(static_cast<size_t>(g->n_effects) * MAX_GENOTYPE_PARAMS);
    const auto each_param = [&](auto action) {
        for (int i = 0; i < g->n_effects; ++i)
            for (int k = 0; g->genotypes[i] && k < g->genotypes[i]->param_number; ++k)
                if (Param* const p = g->genotypes[i]->params[k]) action(p, declared[i * MAX_GENOTYPE_PARAMS + k]);
    };
    each_param([](const Param* p, int& place) { place = p->first_button; });
    quiet = true;
    layout_all();
    quiet = false;
    each_effect(widget_requests.create);
    each_param([](Param* p, int place) { p->first_button = place; });
    frame_free(declared);
    layout_all();
    create_global_params();
    place_global_params(g->plugin_name ? g->plugin_name : "", true);
    share_widget_enables();
    each_effect(widget_requests.create);  // the handles follow their switches
}

void setup_effect_buttons(int effect, int flags) {
    GlobalsV4Record* const g = Globals_V4;
    Genotype* const genotype = effect >= 0 && effect < MAX_EFFECTS_PER_PLUGIN ? g->genotypes[effect] : nullptr;
    if (!genotype) return;
    const int mode = (flags & show_names_only_new ? set_name : set_name | set_host_channel) |
                     (flags & show_leave_colors ? set_leave_color : 0);
    start_table();
    if (g->effect_popup_param) {
        const auto index = static_cast<float>(effect);
        param_set_values(g->effect_popup_param, 0, 1, &index, mode);
    }
    g->pointer_param = nullptr;
    for (int k = 0; k < genotype->param_number; ++k) {
        Param* const p = genotype->params[k];
        if (!p || p->first_button < 0) continue;
        report_conflict(setup_conflict, g->button_table[p->first_button].param, p, p->first_button, false);
        for (int channel = 0; channel < p->n_buttons && channel < 4; ++channel) {
            const int index = p->buttons[channel];
            g->button_table[index].param = p;
            g->button_table[index].channel = static_cast<int16_t>(channel);
            if (!has_pot_beside(p)) continue;
            g->button_table[index + BESIDE].param = p;
            g->button_table[index + BESIDE].channel = static_cast<int16_t>(channel);
        }
        fill_control_structures(p);
        param_set_values(p, 0, p->n_channels, p->value, mode);
        if ((p->kind_flags & kind_pointer_set) && !g->pointer_param) g->pointer_param = p;
    }
    place_global_params(genotype->name, false);
    for (int i = 0; i < widget_count(genotype); ++i) {
        Param* const p = genotype->widgets->widgets[i].enable_param;
        if (!p || !(p->kind_flags & kind_widget_enable) || p->first_button < 0) continue;
        g->button_table[p->first_button].param = p;
        g->button_table[p->first_button].channel = 0;
        fill_control_structures(p);
        param_set_values(p, 0, 1, p->value, mode);
    }
    clear_unused_labels();
    show_groups(genotype);
    if (!host_api_at_least(4.019f)) blank_unused_controls();
}

void set_control_titles() {
    const GlobalsV4Record* const g = Globals_V4;
    for (int i = 0; i < g->n_inputs && i < MAX_INPUTS; ++i) sparkClipControlTitle(i, get_effect_input_image_name(i));
    if (!host_api_at_least(4.019f)) return;
    v_sparkControlTitle(0, "Params");
    if (g->n_param_pages >= 2) v_sparkControlTitle(1, "Params2");
    if (g->n_param_pages >= 3) v_sparkControlTitle(2, "Params3");
    v_sparkControlTitle(g->crop_page, "Crop / Help");
    if (g->n_param_pages < 3) v_sparkControlTitle(3, " ");
}

void set_param_button_names(Genotype* genotype) {
    for (int k = 0; k < genotype->param_number; ++k) {
        if (!genotype->params[k]) continue;
        make_button_format(genotype->params[k]);
        fill_control_structures(genotype->params[k]);
    }
    for (int i = 0; i < widget_count(genotype); ++i) {
        Param* const p = genotype->widgets->widgets[i].enable_param;
        if (!p || !(p->kind_flags & kind_widget_enable)) continue;
        make_button_format(p);
        fill_control_structures(p);
    }
}

}  // namespace velloran
