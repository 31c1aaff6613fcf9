#include "params/field_pattern_buttons.h"

#include "operators/fields/field_pattern.h"
#include "params/param_values.h"

namespace velloran {

void sync_field_pattern(const Genotype* genotype) {
    for_each_pattern_param(genotype, [](Param* param) {
        if (param_on_buttons_p(param)) param_sync_from_button(param);
    });
}

void set_pattern_param_on_button(Param* param, float value, bool first) {
    param_set_value(param, 0, value, set_update_control | (first ? set_undo_boundary : set_undo_fold));
}

}  // namespace velloran
