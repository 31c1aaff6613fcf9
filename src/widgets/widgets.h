// On-screen handles over the host's viewer that edit params by dragging. The records of an effect's widgets and their
// enable params exist; handles are not drawn yet, so no pen event is taken.
// Host's thread only.
#pragma once

#include "records/genotype.h"
#include "spark/spark.h"

namespace velloran {

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
};

// Gathers the widget clauses of the effect's params into records with enable params. Conflicts are reported at level 8.
void collect_widgets(Genotype* genotype);
void free_effect_widgets(Genotype* genotype);
int widget_count(const Genotype* genotype);

// Makes the handles of the effect's records and of the crop on first use.
void spark_create_widgets(Genotype* genotype);
// Draws the handles of the crop and the effect. ratio: width over height of a pixel in the viewer.
void spark_redraw_widgets(Genotype* genotype, SparkInfoStruct* info, void* editor_info, float zoom, float ratio);
// Gives a pen event to the handles. 1 if one took it; *need_process is set to 1 if a value changed, else left alone.
int spark_dispatch_mouse_event(SparkInfoStruct* info, float x, float y, int down, float zoom, int* need_process);
// Whether a widget of the selected effect is on.
bool any_widgets_enabled_p();

}  // namespace velloran
