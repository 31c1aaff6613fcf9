// The two lists between a definition's name and its assignments: what the inputs are called, and how the effect as a
// whole behaves.
#include "genotype/reading.h"
#include "support/errors.h"
#include "support/memory.h"
#include "texts/hints.h"

#include <algorithm>
#include <cstring>

namespace velloran {
namespace {

// A word that sets one field: the bits of mask become value.
struct ModifierWord {
    const char* word;
    uint8_t Genotype::*flags;
    uint8_t value;
};
constexpr ModifierWord modifier_words[] = {
    {"share_all", &Genotype::effect_flags_1, effect_share_all},
    {"wont_make_colors_illegal", &Genotype::effect_flags_1, effect_wont_make_colors_illegal},
    {"renders_everywhere", &Genotype::effect_flags_1, effect_renders_everywhere},
    {"luma_alpha_ok", &Genotype::effect_flags_1, effect_luma_alpha_ok},
    {"effect_select_with_radio", &Genotype::effect_flags_2, effect_select_with_radio},
    {"effect_select_with_yes_no", &Genotype::effect_flags_2, effect_select_with_yes_no},
    {"mask_color", &Genotype::effect_flags_2, effect_mask_color},
    {"mask_rgba", &Genotype::effect_flags_2, effect_mask_rgba},
    {"generates_color", &Genotype::effect_flags_2, effect_generates_color},
    {"generates_alpha", &Genotype::effect_flags_2, effect_generates_alpha},
    {"source_alpha_affects_rgb", &Genotype::effect_flags_2, effect_source_alpha_affects_rgb},
    {"needs_bg_pixel", &Genotype::effect_flags_2, effect_needs_bg_pixel},
    {"combines_2_inputs", &Genotype::effect_flags_3, effect_combines_2_inputs},
    {"combines_2_constant_inputs", &Genotype::effect_flags_3, effect_combines_2_constant_inputs},
};

bool set_modifier_flags(Genotype* genotype, const char* word) {
    for (const ModifierWord& modifier : modifier_words) {
        if (std::strcmp(modifier.word, word) != 0) continue;
        genotype->*modifier.flags |= modifier.value;
        return true;
    }
    return false;
}

int eof_in_lists(int status) {
    if (status == token_end) V_error(level_error, "Eof reading genotype modifiers.");
    return read_failed;
}

// The number of an input behind keyword; said_keyword is the one that the message names.
int read_input_index(const Genotype* genotype, const char* said_keyword, int* index) {
    char token[token_size];
    if (const int status = read_token(token)) return eof_in_lists(status);
    if (!parse_int(token, index)) {
        V_error(level_error, "For %s non-number following %s: '%s'.", genotype->name, said_keyword, token);
        return read_failed;
    }
    if (*index >= 0 && *index < MAX_INPUTS) return read_ok;
    V_error(level_error, "For %s %s: there is no input %s, inputs are 0 to %d.", genotype->name, said_keyword, token,
            MAX_INPUTS - 1);
    return read_failed;
}

int read_z_mode(Genotype* genotype) {
    char token[token_size];
    if (const int status = read_token(token)) return eof_in_lists(status);
    if (std::strcmp(token, "process") == 0) {
        genotype->z_mode = z_process;
    } else if (std::strcmp(token, "min") == 0) {
        genotype->z_mode = z_min;
    } else {
        V_error(level_error, "\n*** Warning: %s unknown z mode: %s \n", genotype->name, token);
    }
    return read_ok;
}

int read_effect_popup_name(Genotype* genotype) {
    char token[token_size];
    const int status = read_token(token);
    if (status == token_end) V_error(level_error, "EOF while reading effect_popup_name");
    if (status) return read_failed;
    safe_free(genotype->effect_popup_name);
    genotype->effect_popup_name = nullptr;
    genotype->effect_popup_name = safe_strdup(token);
    return read_ok;
}

int read_modifier(Genotype* genotype, const char* word) {
    const auto is = [word](const char* other) { return std::strcmp(word, other) == 0; };
    int index = 0;
    if (is("rgba_ok")) {
        genotype->rgba_mode = rgba_ok;
    } else if (is("warp_crop")) {
        genotype->warp_crop = 1;
    } else if (is("set_alpha_to_one")) {
        genotype->rgba_mode = rgba_set_alpha_to_one;
    } else if (is("hide_on_fields_button")) {
        genotype->hide_on_fields_button = 1;
    } else if (is("z")) {
        return read_z_mode(genotype);
    } else if (is("effect_popup_name")) {
        return read_effect_popup_name(genotype);
    } else if (is("rgba_ok_for_input")) {
        if (read_input_index(genotype, word, &index) != read_ok) return read_failed;
        genotype->rgba_ok_for_input |= static_cast<uint8_t>(1 << index);
    } else if (is("copy_alpha_z")) {
        if (read_input_index(genotype, word, &index) != read_ok) return read_failed;
        genotype->background_input = static_cast<int8_t>(index);
    } else if (is("background_input") || is("mask_input")) {
        if (read_input_index(genotype, "background_input", &index) != read_ok) return read_failed;
        if (is("background_input")) genotype->background_input = static_cast<int8_t>(index);
        genotype->mask_input = static_cast<int8_t>(index);
    } else if (!set_modifier_flags(genotype, word)) {
        V_error(level_error, "\n*** Warning: %s unknown genotype modifier: %s \n", genotype->name, word);
        NearestWord nearest = {word};
        for (const ModifierWord& modifier : modifier_words) consider_word(nearest, modifier.word);
        for (const char* other :
             {"rgba_ok", "warp_crop", "set_alpha_to_one", "hide_on_fields_button", "z", "effect_popup_name",
              "rgba_ok_for_input", "copy_alpha_z", "background_input", "mask_input"})
            consider_word(nearest, other);
        hint_nearest(nearest);
    }
    return read_ok;
}

}  // namespace

int read_input_list(Genotype* genotype) {
    char token[token_size];
    if (const int status = read_token(token)) return eof_in_lists(status);
    if (!token_is(token, '(')) {
        unread_token(token);
        return read_ok;
    }
    int count = 0;
    for (;; ++count) {
        if (const int status = read_token(token)) return eof_in_lists(status);
        if (token_is(token, ')')) break;
        if (delimiter_token(token)) {
            V_error(level_error, "In %s: expected an input name or ')' but got %s.", genotype->name, token);
            return read_failed;
        }
        float number;
        if (parse_float(token, &number)) {
            V_error(level_error, "In %s: the input name %s reads as a number.", genotype->name, token);
            return read_failed;
        }
        const bool kept = count < MAX_INPUTS;
        if (input_name_too_long(token)) {
            V_error(level_error, "%s, input name %s is too long. \n", genotype->name, token);
        } else if (kept) {
            std::strcpy(genotype->input_names[count], token);
        }
        if (kept && count > 0 && std::strcmp(token, background_name) == 0) {
            genotype->background_input = static_cast<int8_t>(count);
        }
    }
    if (count > MAX_INPUTS) V_error(level_error, "*** %s warning: too many input names.\n", genotype->name);
    genotype->input_number = static_cast<int8_t>(std::min(count, 127));
    return read_ok;
}

int read_modifiers(Genotype* genotype) {
    char token[token_size];
    if (const int status = read_token(token)) return eof_in_lists(status);
    if (!token_is(token, '(')) {
        unread_token(token);
        return read_ok;
    }
    for (;;) {
        if (const int status = read_token(token)) return eof_in_lists(status);
        if (token_is(token, ')')) break;
        if (read_modifier(genotype, token) != read_ok) return read_failed;
    }
    if ((genotype->effect_flags_1 & effect_luma_alpha_ok) && genotype->rgba_mode != rgba_ok) {
        V_error(level_error, "\n*** Warning: %s has luma_alpha but not rgba_ok. \n", genotype->name);
    }
    return read_ok;
}

}  // namespace velloran
