// On-screen handles over the host's viewer that edit params by dragging. The records of an effect's widgets and their
// enable params exist; handles are not drawn yet, so no pen event is taken.
// Host's thread only.
#pragma once

#include "records/widget_record.h"
#include "spark/spark.h"

namespace velloran {

// Gathers the widget clauses of the effect's params into records with enable params. Conflicts are reported at level 8.
void collect_widgets(Genotype* genotype);
void free_effect_widgets(Genotype* genotype);  // with its handles

// Makes the handles of the effect's records, if there are none yet; what cannot be made is reported at level 8.
void make_effect_handles(Genotype* genotype);
// The same on first use, and those of the crop.
void spark_create_widgets(Genotype* genotype);
void free_widget_dispatcher(EffectWidgets* all);
void free_crop_widgets();  // of the plug-in now being called
// Draws the handles of the crop and the effect. ratio: width over height of a pixel in the viewer.
void spark_redraw_widgets(Genotype* genotype, SparkInfoStruct* info, void* editor_info, float zoom, float ratio);
// Gives a pen event to the handles. 1 if one took it; *need_process is set to 1 if a value changed, else left alone.
int spark_dispatch_mouse_event(SparkInfoStruct* info, float x, float y, int down, float zoom, int* need_process);
// Whether a widget of the selected effect is on.
bool any_widgets_enabled_p();

}  // namespace velloran
