#include "genotype/param_record.h"

#include "records/node.h"
#include "support/errors.h"
#include "support/memory.h"

#include <cstring>

namespace velloran {
namespace {

// What the evaluation reads: the constant node where there is one, in its fixed-point steps.
float evaluated_value(const Param* param, int channel) {
    if (!param->node) return param->value[channel];
    return static_cast<float>(param->node->vals[channel]) * fix_to_float_scale;
}

}  // namespace

Param* new_param(int type, const char* name) {
    Param* param = safe_new_zeroed<Param>();
    param->type = type;
    push_abort_cleanup(safe_free, param);
    param->name = safe_strdup(name ? name : "");
    pop_abort_cleanup();
    param->n_channels = type == param_color ? 3 : 1;
    param->n_buttons = 1;
    param->ref_count = 1;
    param->max_value = type == param_boolean || type == param_button || type == param_color ? 1.0f : 1000000.0f;
    param->step = 0.001f;
    param->group_index = -1;
    param->first_button = -1;
    param->global_index = -1;
    return param;
}

void free_param_widget_list(ParamWidgetData* list) {
    while (list) {
        ParamWidgetData* next = list->next;
        safe_free(list->part_name);
        safe_free(list->widget_name);
        safe_free(list->widget_type);
        safe_free(list->glyph_name);
        safe_free(list->param_name);
        safe_free(list->enable_param_name);
        safe_free(list);
        list = next;
    }
}

int free_param(Param* param) {
    if (!param || --param->ref_count > 0) return 0;
    if (!(param->owner_flags & owner_name_not_owned)) safe_free(param->name);
    if (!(param->owner_flags & owner_popup_entries_not_owned)) {
        for (char* entry : param->popup_entries) safe_free(entry);
    }
    if (!(param->owner_flags & owner_formats_not_owned)) {
        for (char* format : param->button_formats) safe_free(format);
    }
    if (!(param->owner_flags & owner_widgets_not_owned)) free_param_widget_list(param->widget_list);
    safe_free(param);
    return 1;
}

Param* ref_param(Param* param) {
    if (param) ++param->ref_count;
    return param;
}

void init_param_values(Param* param, const float* values, int count) {
    for (int i = 0; i < 4; ++i) param->value[i] = param->default_value[i] = values[i < count ? i : count - 1];
}

Param* get_param_at_index(const Genotype* genotype, int index) {
    if (index < 0 || index >= genotype->param_number) {
        V_error(level_error, "get_param_at_index(%s, %d): index out of range [0,%d)", genotype->name, index,
                genotype->param_number);
        return nullptr;
    }
    return genotype->params[index];
}

Param* get_param_by_name(const Genotype* genotype, const char* name) {
    if (!name) {
        V_error(level_error, "get_param_by_name(%s): name is null", genotype->name);
        return nullptr;
    }
    for (int i = 0; i < genotype->param_number; ++i) {
        if (std::strcmp(genotype->params[i]->name, name) == 0) return genotype->params[i];
    }
    return nullptr;
}

const char* elnum_suffix(int elements, int element) {
    static const char* const axes[] = {" X", " Y"};
    static const char* const colors[] = {" Red", " Green", " Blue", " Alpha"};
    if (elements < 2 || element < 0 || element >= elements || element >= 4) return "";
    return elements == 2 ? axes[element] : colors[element];
}

bool param_values_changed_p(const Param* param) {
    for (int i = 0; i < param->n_channels && i < 4; ++i) {
        if (param->rendered_value[i] != evaluated_value(param, i)) return true;
    }
    return false;
}

void note_params_rendered(Genotype* genotype) {
    for (int p = 0; p < genotype->param_number; ++p) {
        Param* param = genotype->params[p];
        for (int i = 0; i < 4; ++i) param->rendered_value[i] = evaluated_value(param, i);
    }
}

}  // namespace velloran
