// How params are named on the panel: a label padded so that the numbers of a column stand under each other.
#include "genotype/param_record.h"
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

constexpr int number_column = 25;      // text width, less the decimals
constexpr int int_number_column = 28;  // text width of an int
constexpr int color_column = 23;

int decimals_of(const Param* p) {
    if (p->type == param_int || p->step > 0.99f) return 0;
    return p->step > 0.099f ? 1 : p->step > 0.0099f ? 2 : 3;
}

bool padded_p(const Param* p) {
    return p->type == param_float || p->type == param_int || p->type == param_color || p->type == param_string;
}

void set_format(Param* p, int channel, const char* text) {
    if (!(p->owner_flags & owner_formats_not_owned)) safe_free(p->button_formats[channel]);
    p->button_formats[channel] = safe_strdup(text);
}

}  // namespace

void make_button_format(Param* p) {
    p->owner_flags &= static_cast<uint8_t>(~owner_formats_not_owned);
    const int decimals = decimals_of(p);
    const int width = p->type == param_int     ? int_number_column
                      : p->type == param_color ? color_column
                                               : number_column - decimals;
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
        const int blanks = padded_p(p) ? std::max(0, room - static_cast<int>(length)) : 0;
        char padding[number_column + 8];
        std::memset(padding, ' ', static_cast<size_t>(blanks));
        padding[blanks] = 0;
        const char* const more = percent ? "%" : "";
        char format[SPARK_MAX_STRING + 64];
        switch (p->type) {
            case param_float:
                std::snprintf(format, sizeof(format), "%s%s%s%s: %%.%df", name, more, suffix, padding, decimals);
                break;
            case param_int:
                std::snprintf(format, sizeof(format), "%s%s%s%s: %%d", name, more, suffix, padding);
                break;
            case param_string:
                std::snprintf(format, sizeof(format), "%s%s%s: %%s", name, more, padding);
                break;
            case param_color:
                std::snprintf(format, sizeof(format), "%s%s%s:", name, more, padding);
                break;
            default:
                std::snprintf(format, sizeof(format), "%s%s%s", name, more, suffix);
                break;
        }
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

void fill_control_structures(Param* p) {
    const bool global = (p->owner_flags & owner_global) != 0;
    const int n = global ? p->n_global_buttons : p->n_buttons;
    int entry = 0;
    for (int i = 0; i < n && i < 4; ++i) {
        void* const control = global ? p->global_controls[i] : p->controls[i];
        // The copies of a standard control are one channel.
        const char* const format = p->button_formats[global ? 0 : i];
        const char* const title = format ? format : p->name;
        // Popups of several channels list their entries one channel after the other, each list ended by a null.
        if (global) entry = 0;
        const int list = entry;
        if (p->type == param_popup)
            while (entry < max_popup_entries && p->popup_entries[entry]) ++entry;
        const int listed = entry - list;
        if (entry < max_popup_entries) ++entry;
        if (!control) continue;
        switch (p->type) {
            case param_float: {
                auto* const c = static_cast<SparkFloatStruct*>(control);
                c->Min = p->min_value;
                c->Max = p->max_value;
                c->Step = p->step;
                c->Title = title;
                break;
            }
            case param_int:
                if (global) {
                    auto* const c = static_cast<SparkIntStruct*>(control);
                    c->Min = static_cast<int>(p->min_value);
                    c->Max = static_cast<int>(p->max_value);
                    c->Step = static_cast<int>(p->step);
                    c->Title = title;
                } else {
                    auto* const c = static_cast<SparkFloatStruct*>(control);
                    c->Min = p->min_value;
                    c->Max = p->max_value;
                    c->Step = std::max(1.0f, p->step);
                    c->Title = title;
                }
                break;
            case param_color: {
                static_cast<SparkColourStruct*>(control)->Title = title;
                if (!global && p->controls[1]) static_cast<SparkFloatStruct*>(p->controls[1])->Title = title;
                break;
            }
            case param_boolean:
            case param_button:
                static_cast<SparkBooleanStruct*>(control)->Title = title;
                break;
            case param_string:
                static_cast<SparkStringStruct*>(control)->Title = title;
                break;
            case param_popup:
            case param_label: {
                auto* const c = static_cast<SparkPopupStruct*>(control);
                const int count =
                    p->type == param_label ? 1 : std::min(listed, static_cast<int>(SPARK_MAX_POPUP_ENTRIES));
                for (int e = 0; e < SPARK_MAX_POPUP_ENTRIES; ++e)
                    c->Names[e] = e >= count               ? nullptr
                                  : p->type == param_label ? p->popup_entries[0] ? p->popup_entries[0] : p->name
                                                           : p->popup_entries[list + e];
                c->Entries = count;
                c->Title = title;
                break;
            }
            default:
                break;
        }
    }
}

}  // namespace velloran
