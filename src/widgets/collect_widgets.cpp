#include "widgets/widgets.h"

#include "genotype/param_record.h"
#include "genotype/reading.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "support/memory.h"
#include "texts/hints.h"
#include "texts/title_case.h"
#include "widgets/widget_types.h"

#include <cstdio>
#include <cstring>

namespace velloran {

namespace {

struct Clause {
    Param* param;
    const ParamWidgetData* data;
    const WidgetType* type;
};

const char* part_of(const Clause& clause) {
    return clause.data->part_name ? clause.data->part_name : clause.param->name;
}

void hint_widget_type(const char* word) {
    NearestWord nearest = {word};
    for (int i = 0; const WidgetType* type = widget_type_at(i); ++i) consider_word(nearest, type->name);
    hint_nearest(nearest);
}

void hint_parts(const WidgetType& type) {
    char text[400] = "";
    for (int i = 0; i < max_type_parts && type.parts[i]; ++i) {
        const size_t used = std::strlen(text);
        std::snprintf(text + used, sizeof(text) - used, "%s%s", i ? ", " : "", type.parts[i]);
    }
    hint(level_note, "its parts are %s.", text);
}

// The record that a clause belongs to: by number, or the last one begun by a base part of its type. Null: none.
WidgetRecord* find_record(EffectWidgets* all, const Clause& clause) {
    for (int i = all->n_widgets - 1; i >= 0; --i) {
        WidgetRecord& widget = all->widgets[i];
        if (clause.data->number >= 0 || widget.number >= 0) {
            if (widget.number == clause.data->number) return &widget;
        } else if (!std::strcmp(widget.type_name, clause.type->name)) {
            return &widget;
        }
    }
    return nullptr;
}

WidgetRecord* begin_record(Genotype* genotype, const Clause& clause) {
    EffectWidgets* const all = genotype->widgets;
    if (all->n_widgets >= max_effect_widgets) {
        V_error(level_error, "%s: too many widgets (%d max)", genotype->name, max_effect_widgets);
        return nullptr;
    }
    WidgetRecord* const widget = &all->widgets[all->n_widgets++];
    *widget = {};
    widget->type_name = clause.type->name;
    widget->number = clause.data->number;
    widget->default_on = -1;
    return widget;
}

void check_numbering(const Genotype* genotype, const EffectWidgets* all, const Clause& clause) {
    for (int i = 0; i < all->n_widgets; ++i) {
        const WidgetRecord& widget = all->widgets[i];
        if ((widget.number >= 0) == (clause.data->number >= 0)) continue;
        if (clause.data->number < 0)
            V_error(level_error,
                    "Mixing instance-number and non-numbered widgets in same plugin, part %s of %s has no instance "
                    "(param %s)",
                    part_of(clause), genotype->name, clause.param->name);
        else
            V_error(level_error,
                    "Mixing instance-number and non-numbered widgets in same plugin, part %s of %s says instance %d "
                    "(param %s)",
                    part_of(clause), genotype->name, clause.data->number, clause.param->name);
        return;
    }
}

void take_enable(WidgetRecord* widget, int index, const Clause& clause, int* button) {
    const ParamWidgetData* const data = clause.data;
    if (data->default_on >= 0) {
        if (widget->default_on >= 0 && widget->default_on != data->default_on)
            V_error(level_error, "Conflicting default_on_p settings for %s (%s)", clause.param->name,
                    clause.type->name);
        widget->default_on = data->default_on;
    }
    if (data->enable_here) {
        if (widget->enable_here && widget->enable_here != clause.param)
            V_error(level_error, "widget %d (%s) already has a wenable_here on %s; can't add it to %s", index,
                    clause.type->name, widget->enable_here->name, clause.param->name);
        else
            widget->enable_here = clause.param;
    }
    if (data->enable_param_name) {
        if (widget->enable_name && std::strcmp(widget->enable_name, data->enable_param_name) != 0)
            V_error(level_error, "widget %d (%s) already has other enable name %s; param %s says %s.\n", index,
                    clause.type->name, widget->enable_name, clause.param->name, data->enable_param_name);
        else
            widget->enable_name = data->enable_param_name;
    }
    if (data->enable_index >= 0) {
        if (*button >= 0 && *button != data->enable_index)
            V_error(level_warning, "Duplicate non-matching wenable buttons for '%s': %d vs %d on part %s of widget %s",
                    widget->name ? widget->name : "unnamed", *button, data->enable_index, part_of(clause),
                    clause.type->name);
        *button = data->enable_index;
    }
}

void add_part(Genotype* genotype, WidgetRecord* widget, const Clause& clause) {
    const int index = static_cast<int>(widget - genotype->widgets->widgets);
    if (std::strcmp(widget->type_name, clause.type->name) != 0)
        V_error(level_error,
                "Mismatched widget type names for %s vs %s, seen while looking at part %s in param %s; may be instance "
                "numbering problem?",
                widget->type_name, clause.type->name, part_of(clause), clause.param->name);
    if (clause.data->widget_name) {
        if (widget->name && std::strcmp(widget->name, clause.data->widget_name) != 0)
            V_error(level_error, "Already saw widget %d name %s, %s wants to call it %s.\n", index, widget->name,
                    clause.param->name, clause.data->widget_name);
        else if (!widget->name)
            widget->name = safe_strdup(clause.data->widget_name);
    }
    if (widget->n_parts < max_widget_parts) widget->parts[widget->n_parts++] = {clause.param, clause.data};
}

// A widget without a name of its own is called after the param of its base part.
void name_record(const Genotype* genotype, WidgetRecord* widget) {
    if (widget->name) return;
    const WidgetType* const type = find_widget_type(widget->type_name);
    for (int i = 0; i < widget->n_parts; ++i) {
        const WidgetPart& part = widget->parts[i];
        if (!base_part_p(*type, part.data->part_name ? part.data->part_name : part.param->name)) continue;
        char name[SPARK_MAX_STRING];
        param_display_name(name, sizeof(name), part.param->name);
        widget->name = safe_strdup(name);
        return;
    }
    char found[SPARK_MAX_STRING] = "";
    for (int i = 0; i < widget->n_parts; ++i) {
        const size_t used = std::strlen(found);
        std::snprintf(found + used, sizeof(found) - used, " %s", widget->parts[i].param->name);
    }
    V_error(level_error,
            "%s: missing part %s, so can't get widget name for type '%s' (base type %s).\n  Found the following "
            "parts:%s",
            genotype->name, type->base, widget->type_name, type->base, found);
}

void make_enable(Genotype* genotype, WidgetRecord* widget, int button) {
    if (widget->enable_name) {
        // Another param of the effect switches it.
        widget->enable_param = ref_param(get_param_by_name(genotype, widget->enable_name));
        if (widget->enable_param) return;
    }
    char name[SPARK_MAX_STRING];
    std::snprintf(name, sizeof(name), "%s Widget", widget->name ? widget->name : "unnamed");
    Param* const p = new_param(param_boolean, name);
    p->kind_flags |= kind_widget_enable;
    p->value[0] = p->default_value[0] = widget->default_on != 0 ? 1.0f : 0.0f;
    p->first_button = button >= BUTTON_BASE ? button - BUTTON_BASE : -1;
    widget->enable_param = p;
}

}  // namespace

void collect_widgets(Genotype* genotype) {
    if (genotype->widgets) return;
    auto* const all = safe_new_zeroed<EffectWidgets>();
    genotype->widgets = all;
    int buttons[max_effect_widgets];
    for (int& button : buttons) button = -1;
    // Base parts begin the widgets, so that the order of the params does not matter; then the other parts join.
    for (const bool bases : {true, false}) {
        for (int i = 0; i < genotype->param_number; ++i) {
            Param* const p = genotype->params[i];
            for (const ParamWidgetData* data = p ? p->widget_list : nullptr; data; data = data->next) {
                const Clause clause = {p, data, find_widget_type(data->widget_type)};
                if (p->node) point_reader_at(*p->node);
                if (!clause.type) {
                    if (bases) V_error(level_error, "No such widget type name as %s", data->widget_type);
                    if (bases) hint_widget_type(data->widget_type);
                    continue;
                }
                if (find_widget_part(*clause.type, part_of(clause)) < 0) {
                    if (bases)
                        V_error(level_error, "Bad part name %s for %s widget %s", part_of(clause), clause.type->name,
                                data->widget_name ? data->widget_name : "");
                    if (bases) hint_parts(*clause.type);
                    continue;
                }
                if (base_part_p(*clause.type, part_of(clause)) != bases) continue;
                check_numbering(genotype, all, clause);
                WidgetRecord* widget = bases && data->number < 0 ? nullptr : find_record(all, clause);
                if (!widget && !bases && data->number < 0) {
                    V_error(level_error, "%s.%s widget: No base type for %s\n", genotype->name, p->name,
                            part_of(clause));
                    continue;
                }
                if (!widget) widget = begin_record(genotype, clause);
                if (!widget) continue;
                add_part(genotype, widget, clause);
                take_enable(widget, static_cast<int>(widget - all->widgets), clause, &buttons[widget - all->widgets]);
            }
        }
    }
    for (int i = 0; i < all->n_widgets; ++i) {
        name_record(genotype, &all->widgets[i]);
        make_enable(genotype, &all->widgets[i], buttons[i]);
    }
}

void free_effect_widgets(Genotype* genotype) {
    EffectWidgets* const all = genotype->widgets;
    if (!all) return;
    free_widget_dispatcher(all);
    for (int i = 0; i < all->n_widgets; ++i) {
        free_param(all->widgets[i].enable_param);
        safe_free(all->widgets[i].name);
    }
    safe_free(all);
    genotype->widgets = nullptr;
}

}  // namespace velloran
