// The buttons that hold a field pattern (operators/fields/field_pattern.h). Host's thread.
#pragma once

#include "records/genotype.h"

namespace velloran {

// Reads the pattern's controls into its params.
void sync_field_pattern(const Genotype* genotype);

// Sets one of them and shows it, for store_field_pattern_in_buttons.
void set_pattern_param_on_button(Param* param, float value, bool first);

}  // namespace velloran
