// How params are named on the panel: a label padded so that the numbers of a column stand under each other.
#include "genotype/param_record.h"
#include "params/control_kinds.h"
#include "params/param_values.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "support/memory.h"
#include "texts/title_case.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace velloran {

namespace {

constexpr int common_width = 25;  // of a name, less the decimals behind it
constexpr int widest_name = 28;

int decimals_of(const Param* p) {
    if (p->type == param_int || p->step > 0.99f) return 0;
    return p->step > 0.099f ? 1 : p->step > 0.0099f ? 2 : 3;
}

void set_format(Param* p, int channel, const char* text) {
    char* const format = safe_strdup(text);  // first: where there is no memory the old one stays
    if (!(p->owner_flags & owner_formats_not_owned)) safe_free(p->button_formats[channel]);
    p->button_formats[channel] = format;
}

}  // namespace

void make_button_format(Param* p) {
    p->owner_flags &= static_cast<uint8_t>(~owner_formats_not_owned);
    const int decimals = decimals_of(p);
    const ParamKind& kind = param_kind(p);
    const int width = kind.name_width > 0 ? kind.name_width : common_width - decimals;
    char field[16];
    std::snprintf(field, sizeof(field), ": %%.%df", decimals);
    for (int channel = 0; channel < p->n_buttons && channel < 4; ++channel) {
        char name[SPARK_MAX_STRING];
        param_display_name(name, sizeof(name), p->name);
        // In a format a percent sign needs a second one beside it.
        size_t length = std::strlen(name);
        const bool percent = length > 0 && name[length - 1] == '%';
        const char* const suffix = p->n_buttons > 1 ? elnum_suffix(p->n_buttons, channel) : "";
        const int room = width - static_cast<int>(std::strlen(suffix));
        if (static_cast<int>(length) > room) {
            V_error(level_warning, "Warning: param name too long: %s \n", p->name);
            length = static_cast<size_t>(std::max(0, percent ? room - 1 : room));
            name[length] = 0;
            if (percent) std::strcat(name, "%");
            length = std::strlen(name);
        }
        const int blanks = kind.padded ? std::max(0, room - static_cast<int>(length)) : 0;
        char padding[widest_name + 1];
        std::memset(padding, ' ', static_cast<size_t>(blanks));
        padding[blanks] = 0;
        char format[SPARK_MAX_STRING + 64];
        std::snprintf(format, sizeof(format), "%s%s%s%s%s", name, percent ? "%" : "", suffix, padding,
                      kind.field ? kind.field : field);
        set_format(p, channel, format);
    }
}

void format_to_name(char* out, int size, const char* format) {
    const char* const field = std::strstr(format, ": %");
    const char* const end = field ? field + 1 : format + std::strlen(format);
    int n = 0;
    for (const char* from = format; from < end && n < size - 1; ++from) {
        out[n++] = *from;
        if (from[0] == '%' && from[1] == '%' && from + 1 < end) ++from;
    }
    out[n] = 0;
}

namespace {

// Popups of several channels list their entries one channel after the other, each list ended by a null. list: where
// this channel's begins. The result: where the next one begins.
int fill_entries(const Param* p, SparkPopupStruct* popup, int list) {
    if (p->custom_entries) {
        if (popup) popup->Entries = p->n_popup_entries;
        for (int e = 0; popup && e < SPARK_MAX_POPUP_ENTRIES; ++e)
            popup->Names[e] = e < popup->Entries ? p->custom_entries[e] : nullptr;
        return list;
    }
    int end = list;
    while (end < max_popup_entries && p->popup_entries[end]) ++end;
    if (popup) {
        popup->Entries = p->type == param_label ? 1 : end - list;
        for (int e = 0; e < SPARK_MAX_POPUP_ENTRIES; ++e)
            popup->Names[e] = e < popup->Entries ? p->popup_entries[list + e] : nullptr;
        if (p->type == param_label && !popup->Names[0]) popup->Names[0] = p->name;
    }
    return std::min(end + 1, max_popup_entries);
}

}  // namespace

void fill_control_structures(Param* p) {
    const bool global = (p->owner_flags & owner_global) != 0;
    const ControlKind& kind = control_kind(p);
    const bool popup = &kind == &control_kinds[control_popup];
    const float step = p->type == param_int ? std::max(1.0f, p->step) : p->step;
    int list = 0;
    for (int i = 0; i < (global ? p->n_global_buttons : p->n_buttons) && i < 4; ++i) {
        void* const control = global ? p->global_controls[i] : p->controls[i];
        // The copies of a standard control are one channel.
        const char* const format = p->button_formats[global ? 0 : i];
        const char* const title = format ? format : p->name;
        if (popup) {
            const int next = fill_entries(p, static_cast<SparkPopupStruct*>(control), list);
            if (!global) list = next;
        }
        if (!control) continue;
        kind.title(control) = title;
        if (kind.set_bounds) kind.set_bounds(control, p->min_value, p->max_value, step);
        // The name of a colour stands on the float control before its pot.
        if (p->type == param_color && !global && p->controls[1])
            static_cast<SparkFloatStruct*>(p->controls[1])->Title = title;
    }
}

}  // namespace velloran
