// The on-screen handles of an effect, as its text declares them. Fields only.
#pragma once

#include "records/genotype.h"
#include "records/param.h"

#include <cstdint>

namespace velloran {

namespace widgets {
class WidgetDispatcher;
}

constexpr int max_widget_parts = 12;
constexpr int max_effect_widgets = 20;  // as many as a setup holds

// One param of a widget.
struct WidgetPart {
    Param* param;
    const ParamWidgetData* data;
};

struct WidgetRecord {
    const char* type_name;     // row of the type table
    char* name;                // owned; shown name
    int number;                // instance number of the clauses, -1 none
    Param* enable_param;       // boolean, referenced; null: always on
    const char* enable_name;   // param that enables the widget, "use_wenable"; null none
    const Param* enable_here;  // param whose button is the enable's; null none
    int8_t default_on;         // 0, 1 or -1 not said
    int n_parts;
    WidgetPart parts[max_widget_parts];
};

// Owned by its genotype, freed with free_effect_widgets.
struct EffectWidgets {
    int n_widgets;
    WidgetRecord widgets[max_effect_widgets];
    widgets::WidgetDispatcher* dispatcher;  // owned, null until the handles are made
};

inline int widget_count(const Genotype* genotype) {
    return genotype && genotype->widgets ? genotype->widgets->n_widgets : 0;
}

}  // namespace velloran
