// Making, sharing, finding and freeing params, and whether one changed since the last render.
// Host's thread only. Allocation may take the fatal abort.
#pragma once

#include "records/genotype.h"
#include "records/param.h"

namespace velloran {

// A param with one reference, the caller's. name is copied. A colour has 3 channels on 1 control; booleans and buttons
// run to 1; a float has a step of 0.001.
Param* new_param(int type, const char* name);
// Drops one reference; 1 if it was the last and the param went away. Null is ignored.
int free_param(Param* param);
Param* ref_param(Param* param);

// Value and default, channels beyond count repeating the last.
void init_param_values(Param* param, const float* values, int count);

// Null after a message at level 8.
Param* get_param_at_index(const Genotype* genotype, int index);
// By exact name; null if there is none.
Param* get_param_by_name(const Genotype* genotype, const char* name);

// " X" " Y" of a param with 2 elements, " Red" " Green" " Blue" " Alpha" with more, "" with one.
const char* elnum_suffix(int elements, int element);

// Whether the value that evaluation sees is another than at the last render.
bool param_values_changed_p(const Param* param);
void note_params_rendered(Genotype* genotype);

// Frees a chain of widget clauses.
void free_param_widget_list(ParamWidgetData* list);

}  // namespace velloran
