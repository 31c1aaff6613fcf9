#include "genotype/widget_clause.h"

#include "genotype/reading.h"
#include "support/errors.h"
#include "support/memory.h"

#include <algorithm>
#include <cstring>

namespace velloran {
namespace {

// The new head of the list: from here on the param frees it, whatever happens.
ParamWidgetData* add_widget(Param* param, const char* type, const char* part) {
    auto* widget = safe_new_zeroed<ParamWidgetData>();
    widget->next = param->widget_list;
    param->widget_list = widget;
    widget->widget_type = safe_strdup(type);
    widget->part_name = safe_strdup(part);
    widget->param_name = safe_strdup(param->name);
    widget->default_on = -1;
    widget->enable_index = -1;
    widget->number = -1;
    return widget;
}

int ended(int status) {
    if (status == token_end) V_error(level_error, "Eof reading genotype assignment.");
    return read_failed;
}

int read_enable(const Genotype* genotype, const Param* param, ParamWidgetData* widget) {
    char token[token_size];
    if (const int status = read_token(token)) return ended(status);
    widget->use_enable = 1;
    int number;
    if (std::strcmp(token, "here") == 0) {
        widget->enable_here = 1;
    } else if (parse_int(token, &number)) {
        widget->enable_index = static_cast<int8_t>(std::clamp(number, -1, 127));
    } else {
        V_error(level_error, "Syntax error reading widget %s enable in %s.%s: bad number\n", widget->widget_type,
                genotype->name, param->name);
        return read_failed;
    }
    return read_ok;
}

}  // namespace

void add_default_widget(Param* param) {
    ParamWidgetData* const widget = add_widget(param, "center", "center");
    widget->glyph_name = safe_strdup("cross_circle");
}

int read_widget_clause(Genotype* genotype, Param* param) {
    char token[token_size];
    const auto next = [&token] { return read_token(token); };
    const auto is = [&token](const char* word) { return std::strcmp(token, word) == 0; };

    if (const int status = next()) return ended(status);
    if (delimiter_token(token)) {
        V_error(level_error, "For %s %s got '%s', expected min, max, step, popup, color...", genotype->name,
                param->name, token);
        return read_failed;
    }
    char* point = std::strchr(token, '.');
    if (point) *point = 0;
    ParamWidgetData* widget = add_widget(param, token, point ? point + 1 : param->name);

    if (const int status = next()) return ended(status);
    if (is("name")) {
        if (const int status = next()) return ended(status);
        widget->widget_name = safe_strdup(token);
        if (const int status = next()) return ended(status);
    }
    if (is("glyph")) {
        if (const int status = next()) return ended(status);
        widget->glyph_name = safe_strdup(token);
        if (const int status = next()) return ended(status);
    }
    if (is("wenable")) {
        if (read_enable(genotype, param, widget) != read_ok) return read_failed;
        if (const int status = next()) return ended(status);
    } else if (is("use_wenable")) {
        if (const int status = next()) return ended(status);
        widget->use_enable = 2;
        widget->enable_param_name = safe_strdup(token);
        if (const int status = next()) return ended(status);
    }
    if (is("default_off") || is("default_on")) {
        widget->default_on = is("default_on") ? 1 : 0;
        if (const int status = next()) return ended(status);
    }
    if (!parse_int(token, &widget->number)) {
        widget->number = -1;
        unread_token(token);
    }
    return read_ok;
}

}  // namespace velloran
