// One word at a time. Words that only set fields stand in tables; the others have a function of their own.
#include "genotype/declarations.h"

#include "genotype/param_record.h"
#include "genotype/reading.h"
#include "genotype/widget_clause.h"
#include "support/errors.h"
#include "support/memory.h"
#include "texts/hints.h"
#include "texts/title_case.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

namespace velloran {

ParamGroup* current_param_group = nullptr;

namespace {

constexpr float unbounded = 1000000.0f;
constexpr float default_step = 0.001f;
constexpr int max_popup_string = 100;

// The declaration in hand.
struct Declaration {
    Genotype* genotype;
    Param* param;
    bool popup_mode;  // words are entries of the popup
};

int missing_word(int status) {
    if (status == token_end) V_error(level_error, "Eof reading genotype assignment.");
    return read_failed;
}

// ---- Words that set fields ----

// Screen modes: how the value relates to the frame.
struct ScreenWord {
    const char* word;
    uint8_t mode;
    bool half_pixel_step;  // 0.5, unless the text gave a step
    bool vector2;
};
constexpr ScreenWord screen_words[] = {
    {"screen", screen_screen, true, true},
    {"screen_x", screen_x, false, false},
    {"screen_y", screen_y, false, false},
    {"screen_center", screen_center, true, true},
    {"screen_center0", screen_center0, false, true},
    {"normalize", screen_normalize, false, true},
    {"screen_to_norm", screen_to_norm, true, true},
    {"screen_center_to_norm", screen_center_to_norm, true, true},
};

void set_screen_mode(Param* param, uint8_t mode, bool half_pixel_step) {
    param->scale_flags = static_cast<uint8_t>((param->scale_flags & ~scale_mode_mask) | mode);
    if (param->min_value == 0.0f) param->min_value = -unbounded;
    if (half_pixel_step && param->step == default_step) param->step = 0.5f;
}

struct NameListWord {
    const char* word;
    uint8_t kind;
    const char* message;
};
constexpr NameListWord name_list_words[] = {
    {"lens_flare_names", kind_lens_flares | kind_custom_list, "'lens_flare_names' should only be used with scalars."},
    {"glare_names", kind_glares | kind_custom_list, "'glare_names' should only be used with scalars."},
    {"print_film_names", kind_print_films | kind_custom_list, "'film_type_names' should only be used with scalars."},
    {"neg_film_names", kind_neg_films | kind_custom_list, "'film_type_names' should only be used with scalars."},
};

// Bits to set in one byte of the param.
struct FlagWord {
    const char* word;
    uint8_t Param::*flags;
    uint8_t mask, value;  // bits of mask become value
};
constexpr FlagWord flag_words[] = {
    {"pointer_set", &Param::kind_flags, kind_pointer_set, kind_pointer_set},
    {"shared", &Param::owner_flags, owner_shared, owner_shared},
    {"not_shared", &Param::owner_flags, owner_shared, 0},
    {"doc_group", &Param::group_marks, group_doc, group_doc},
    {"hold_level", &Param::save_flags, save_measured, save_measured},
    {"hidden", &Param::save_flags, save_hidden, save_hidden},
    {"ignore", &Param::scale_flags, scale_ignore, scale_ignore},
    {"hr", &Param::scale_flags, 0, 0},
    {"percent", &Param::scale_flags, 0, 0},
    {"only_if_full_frames", &Param::scale_flags, 0, 0},
};

struct TypeWord {
    const char* word;
    ParamType type;
};
constexpr TypeWord type_words[] = {{"boolean", param_boolean}, {"int", param_int}, {"string", param_string}};

// ---- Words with a number behind them ----

struct NumberWord {
    const char* word;
    float Param::*field;
    int level;
    const char* message;
};
constexpr NumberWord number_words[] = {
    {"min", &Param::min_value, level_error, "For %s bad min bound: '%s'."},
    {"max", &Param::max_value, level_error, "For %s non-number max bound: '%s'."},
    {"step", &Param::step, level_error, "For %s bad step value: '%s'."},
    {"normalize_scale", &Param::normalize_scale, level_warning, "For %s bad normalize_scale value: '%s'."},
};

int read_number_word(const Declaration& d, const NumberWord& entry) {
    char token[token_size];
    const int status = read_token(token);
    if (status == token_too_long) return read_failed;
    float number;
    if (parse_float(token, &number) && std::isfinite(number)) {
        hint_behind_number(token);
        d.param->*entry.field = number;
    } else if (entry.field == &Param::min_value && std::strcmp(token, "*") == 0) {
        d.param->min_value = -unbounded;
    } else {
        char message[64 + token_size + token_size];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        std::snprintf(message, sizeof(message), entry.message, d.param->name, token);
#pragma GCC diagnostic pop
        V_error(entry.level, "%s", message);
        return read_failed;
    }
    if (entry.field == &Param::normalize_scale) set_screen_mode(d.param, screen_normalize_scale, false);
    return read_ok;
}

int read_button(const Declaration& d) {
    char token[token_size];
    const int status = read_token(token);
    if (status == token_too_long) return read_failed;
    if (parse_int(token, &d.param->callback_number)) return read_ok;
    V_error(level_error, "For %s bad button value: '%s'.", d.param->name, token);
    return read_failed;
}

// ---- Kinds with more to them ----

void set_color(const Declaration& d, const char* word) {
    if (d.param->n_channels != 3)
        V_error(level_error, "For %s 'color' should only be used with 3-vectors.", d.param->name);
    d.param->type = param_color;
    d.param->n_buttons = 1;
    if (std::strcmp(word, "color_only") == 0) d.param->kind_flags |= kind_color_only;
}

void set_label(const Declaration& d) {
    d.param->type = param_label;
    d.param->scale_flags |= scale_ignore;
    d.param->n_popup_entries = 1;
    char title[2 * token_size];
    param_display_name(title, sizeof(title), d.param->name);
    safe_free(d.param->popup_entries[0]);
    d.param->popup_entries[0] = nullptr;
    d.param->popup_entries[0] = safe_strdup(title);
}

void set_autotrans(const Declaration& d, uint8_t kind) {
    d.param->min_value = -0.5f;
    d.param->max_value = 1.5f;
    d.param->step = default_step;
    d.param->scale_flags = static_cast<uint8_t>((d.param->scale_flags & ~scale_autotrans_mask) | kind);
}

void set_hold_level(const Declaration& d) {
    d.param->type = param_button;
    d.param->owner_flags |= owner_button_param;
    d.param->scale_flags |= scale_hold_action | scale_ignore;
}

// ---- Popup entries ----

// Entries are kept by word here, all elements of one word together; finish_popup sorts them by element.
void add_popup_entry(const Declaration& d, const char* word) {
    Param* param = d.param;
    const int elements = param->n_buttons;
    if ((param->n_popup_entries + 1) * elements >= max_popup_entries) {
        V_error(level_error, "%s %s state_name overflow: %s.", d.genotype->name, param->name, word);
        return;
    }
    char name[token_size], label[token_size];
    param_display_name(name, sizeof(name), param->name);
    param_display_name(label, sizeof(label), word);
    for (int e = 0; e < elements; ++e) {
        char entry[3 * token_size];
        std::snprintf(entry, sizeof(entry), "%s%s: %s", name, elnum_suffix(elements, e), label);
        char*& place = param->popup_entries[param->n_popup_entries * elements + e];
        safe_free(place);
        place = nullptr;
        place = safe_strdup(entry);
    }
    param->max_value = ++param->n_popup_entries;
    param->step = 0.01f;
}

// Element by element, each element's list ended by a null.
void finish_popup(const Declaration& d) {
    Param* param = d.param;
    const int elements = param->n_buttons;
    while ((param->n_popup_entries + 1) * elements > max_popup_entries) {
        V_error(level_fatal, "%s: Too many state names (%d, should be <%d)", d.genotype->name,
                (param->n_popup_entries + 1) * elements, max_popup_entries);
        const int last = --param->n_popup_entries * elements;
        for (int e = 0; e < elements; ++e) {
            safe_free(param->popup_entries[last + e]);
            param->popup_entries[last + e] = nullptr;
        }
        param->max_value = param->n_popup_entries;
    }
    char* sorted[max_popup_entries] = {};
    const int n = param->n_popup_entries;
    for (int e = 0; e < elements; ++e) {
        for (int i = 0; i < n; ++i) std::swap(sorted[e * (n + 1) + i], param->popup_entries[i * elements + e]);
    }
    // What the element count of a later word (color) no longer reaches.
    for (char* entry : param->popup_entries) safe_free(entry);
    std::memcpy(param->popup_entries, sorted, sizeof(sorted));
}

// ---- Groups ----

ParamGroup* add_group(Genotype* genotype, const char* name, ParamGroup* parent) {
    ParamGroup* group = &genotype->groups[genotype->group_number];
    *group = {safe_strdup(name), genotype->group_number, parent};
    ++genotype->group_number;
    return group;
}

int read_group_start(const Declaration& d, bool open) {
    Genotype* genotype = d.genotype;
    const bool full = genotype->group_number >= MAX_PARAM_GROUP_NUMBER;
    if (full) V_error(level_warning, "Too many groups in %s, up MAX_PARAM_GROUP_NUMBER", genotype->name);
    if (current_param_group) V_error(level_warning, "Nested groups in %s", genotype->name);
    char name[token_size];
    if (const int status = read_token(name)) return missing_word(status);
    if (full) return read_ok;
    current_param_group = add_group(genotype, name, current_param_group);
    Param* param = d.param;
    param->group_index = static_cast<int8_t>(current_param_group->index);
    if (open) param->group_marks |= group_open;
    if ((param->group_marks & group_starts_mask) < group_starts_mask) ++param->group_marks;
    return read_ok;
}

int read_group_end(const Declaration& d) {
    char name[token_size];
    if (const int status = read_token(name)) return missing_word(status);
    if (!current_param_group) {
        V_error(level_error, "%s %s group_end without group_start", d.genotype->name, d.param->name);
        return read_ok;
    }
    if (std::strcmp(name, current_param_group->name) != 0) {
        V_error(level_warning, "%s %s group_end %s, expected %s", d.genotype->name, d.param->name, name,
                current_param_group->name);
    }
    if ((d.param->group_marks & group_ends_mask) < group_ends_mask) d.param->group_marks += group_ends_one;
    current_param_group = current_param_group->parent;
    return read_ok;
}

int read_doc_group_name(const Declaration& d) {
    Genotype* genotype = d.genotype;
    d.param->group_marks |= group_doc;
    if (current_param_group) {
        V_error(level_error, "Can't use doc_group_name with param that's in a group!");
        return read_failed;
    }
    if (genotype->group_number >= MAX_PARAM_GROUP_NUMBER) {
        V_error(level_error, "%s has too many param groups. Increase MAX_PARAM_GROUP_NUMBER", genotype->name);
        return read_failed;
    }
    char name[token_size];
    if (const int status = read_token(name)) return missing_word(status);
    d.param->group_index = static_cast<int8_t>(add_group(genotype, name, nullptr)->index);
    return read_ok;
}

// ---- The list ----

void hint_declaration_word(const char* word) {
    static const char* const others[] = {"angle",
                                         "popup",
                                         "label",
                                         "button",
                                         "color",
                                         "color_only",
                                         "group_start",
                                         "group_start_open",
                                         "group_end",
                                         "doc_group_name",
                                         "autotrans",
                                         "autotrans_hermite",
                                         "autotrans_spline",
                                         "set_hold_level",
                                         "widget"};
    NearestWord nearest = {word};
    for (const char* other : others) consider_word(nearest, other);
    for (const NumberWord& entry : number_words) consider_word(nearest, entry.word);
    for (const TypeWord& entry : type_words) consider_word(nearest, entry.word);
    for (const ScreenWord& entry : screen_words) consider_word(nearest, entry.word);
    for (const NameListWord& entry : name_list_words) consider_word(nearest, entry.word);
    for (const FlagWord& entry : flag_words) consider_word(nearest, entry.word);
    hint_nearest(nearest);
}

// What a declaration says against itself or against its number.
void hint_contradictions(const Param* param) {
    if (!hint_printer) return;
    if (param->min_value > param->max_value) {
        hint(level_warning, "For %s: min %g is above max %g.", param->name, static_cast<double>(param->min_value),
             static_cast<double>(param->max_value));
        return;
    }
    const int entries = param->type == param_popup ? param->n_popup_entries : param->type == param_boolean ? 2 : 0;
    if (param->type == param_label || param->type == param_button || param->type == param_string) return;
    if (param->type == param_popup && !entries) return;  // the data files have the list
    for (int e = 0; e < param->n_channels && e < 4; ++e) {
        const float value = param->default_value[e];
        if (entries && (value < 0 || value > static_cast<float>(entries - 1) || value != std::floor(value))) {
            hint(level_warning, "For %s: %g is no entry of it, they are 0 to %d.", param->name,
                 static_cast<double>(value), entries - 1);
            return;
        }
        if (entries || (value >= param->min_value && value <= param->max_value)) continue;
        hint(level_warning, "For %s: %g is outside its bounds of %g to %g.", param->name, static_cast<double>(value),
             static_cast<double>(param->min_value), static_cast<double>(param->max_value));
        return;
    }
}

int read_keyword(Declaration& d, const char* word) {
    Param* param = d.param;
    const auto is = [word](const char* other) { return std::strcmp(word, other) == 0; };
    if (std::strncmp(word, "angle", 5) == 0) {
        param->min_value = -unbounded;
        param->max_value = unbounded;
        param->step = 0.1f;
        return read_ok;
    }
    for (const NumberWord& entry : number_words) {
        if (is(entry.word)) return read_number_word(d, entry);
    }
    for (const TypeWord& entry : type_words) {
        if (!is(entry.word)) continue;
        param->type = entry.type;
        return read_ok;
    }
    for (const ScreenWord& entry : screen_words) {
        if (!is(entry.word)) continue;
        if (entry.vector2 && param->n_channels != 2) {
            V_error(level_error, "For %s: screen modes should only be used with 2-vectors.", param->name);
        }
        set_screen_mode(param, entry.mode, entry.half_pixel_step);
        return read_ok;
    }
    for (const NameListWord& entry : name_list_words) {
        if (!is(entry.word)) continue;
        if (param->n_channels != 1) {
            V_error(level_error, "%s", entry.message);
            return read_ok;
        }
        param->type = param_popup;
        param->kind_flags |= entry.kind;
        return read_ok;
    }
    for (const FlagWord& entry : flag_words) {
        if (!is(entry.word)) continue;
        param->*entry.flags = static_cast<uint8_t>((param->*entry.flags & ~entry.mask) | entry.value);
        return read_ok;
    }
    if (is("popup")) {
        param->type = param_popup;
        d.popup_mode = true;
    } else if (is("label")) {
        set_label(d);
    } else if (is("button")) {
        return read_button(d);
    } else if (is("color") || is("color_only")) {
        set_color(d, word);
    } else if (is("group_start") || is("group_start_open")) {
        return read_group_start(d, is("group_start_open"));
    } else if (is("group_end")) {
        return read_group_end(d);
    } else if (is("doc_group_name")) {
        return read_doc_group_name(d);
    } else if (is("autotrans")) {
        set_autotrans(d, scale_autotrans);
    } else if (is("autotrans_hermite") || is("autotrans_spline")) {
        set_autotrans(d, scale_autotrans_hermite);
    } else if (is("set_hold_level")) {
        set_hold_level(d);
    } else {
        V_error(level_error, "For %s %s got '%s', expected min, max, step, popup, color...", d.genotype->name,
                param->name, word);
        hint_declaration_word(word);
        return read_failed;
    }
    return read_ok;
}

int read_popup_word(const Declaration& d, const char* word) {
    if (!token_is(word, '"')) {
        add_popup_entry(d, word);
        return read_ok;
    }
    char text[max_popup_string + 1];
    if (read_string_1(text, max_popup_string) != 0) return read_failed;
    add_popup_entry(d, text);
    return read_ok;
}

int read_declaration(Declaration& d) {
    for (;;) {
        char token[token_size];
        if (const int status = read_token(token)) return missing_word(status);
        int result;
        if (token_is(token, ')')) break;
        if (std::strcmp(token, "widget") == 0) {
            d.popup_mode = false;
            result = read_widget_clause(d.genotype, d.param);
        } else if (d.popup_mode && (token_is(token, '"') || !delimiter_token(token))) {
            result = read_popup_word(d, token);
        } else {
            result = read_keyword(d, token);
        }
        if (result != read_ok) return result;
    }
    if ((d.param->kind_flags & kind_pointer_set) && !d.param->widget_list) add_default_widget(d.param);
    if (d.param->type == param_popup) finish_popup(d);
    return read_ok;
}

}  // namespace

int maybe_read_param_info_for_node(Genotype* genotype, int row) {
    const Node& node = genotype->nodes[row];
    if (node.type != node_constant || node.param_index <= 0) return read_ok;
    if (!node.name) {
        V_error(level_error, "maybe_read_param_info_for_node_i: no name!");
        return read_ok;
    }
    Declaration d = {genotype, genotype->params[node.param_index - 1], false};
    if (genotype->effect_flags_1 & effect_share_all) d.param->owner_flags |= owner_shared;
    d.param->group_index = static_cast<int8_t>(current_param_group ? current_param_group->index : -1);
    char token[token_size];
    const int status = read_token(token);
    // At the end the next assignment reports that it is missing.
    if (status) return status == token_end ? read_ok : read_failed;
    if (!token_is(token, '(')) {
        unread_token(token);
        point_reader_at(genotype->nodes[row]);
        hint_contradictions(d.param);
        return read_ok;
    }
    const int result = read_declaration(d);
    if (result != read_ok) return result;
    point_reader_at(genotype->nodes[row]);
    hint_contradictions(d.param);
    return read_ok;
}

}  // namespace velloran
