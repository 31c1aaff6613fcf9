// Values of the standard controls: one param, up to four copies of its control.
#include "params/param_values.h"
#include "records/run_state.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace velloran {

namespace {

Param* global_param(int index) {
    return Globals_V4 && index >= 0 && index < N_GLOBAL_PARAMS ? Globals_V4->global_params[index] : nullptr;
}

float whole_within(double v, int low, int high) {
    return static_cast<float>(std::clamp(std::floor(v + 0.5), static_cast<double>(low), static_cast<double>(high)));
}

// Writes v, cleaned as the control's kind asks for. The result: the structure changed.
bool write_copy(const Param* p, void* control, double v) {
    const auto put = [](auto& place, auto value) {
        if (place == value) return false;
        place = value;
        return true;
    };
    switch (p->type) {
        case param_float: {
            auto* const c = static_cast<SparkFloatStruct*>(control);
            float f = static_cast<float>(v);
            if (c->Min <= c->Max) f = std::clamp(f, c->Min, c->Max);
            return put(c->Value, f);
        }
        case param_int: {
            auto* const c = static_cast<SparkIntStruct*>(control);
            if (c->Min > c->Max) return put(c->Value, static_cast<int>(std::floor(v + 0.5)));
            return put(c->Value, static_cast<int>(whole_within(v, c->Min, c->Max)));
        }
        case param_color:
            return put(static_cast<SparkColourStruct*>(control)->Value, static_cast<unsigned int>(v));
        case param_boolean:
        case param_button:
            return put(static_cast<SparkBooleanStruct*>(control)->Value, static_cast<unsigned char>(v > 0 ? 1 : 0));
        case param_popup:
        case param_label: {
            auto* const c = static_cast<SparkPopupStruct*>(control);
            return put(c->Value, static_cast<int>(std::clamp(v, 0.0, std::max(0.0, c->Entries - 1.0))));
        }
        default:
            return false;
    }
}

}  // namespace

int global_param_sync_from_button(Param* p, int copy) {
    if (!p || copy < 0 || copy >= p->n_global_buttons || copy >= 4) return 0;
    // Where this copy is not on the panel, the first that is stands for it.
    if (!p->global_controls[copy]) copy = first_global_copy(p);
    if (!p->global_controls[copy]) return 0;
    const double v = read_global_control(p, copy);
    int changed = 0;
    for (int i = 0; i < p->n_global_buttons && i < 4; ++i) {
        if (!p->global_controls[i] || !write_copy(p, p->global_controls[i], v)) continue;
        changed = 1;
        if (i != copy) sparkControlUpdate(p->global_buttons[i]);
    }
    return changed;
}

float global_param_get_value(int index) {
    Param* const p = global_param(index);
    return p ? param_get_value(p, 0) : 0.0f;
}

void global_param_set_value(int index, float value) {
    if (Param* const p = global_param(index)) param_set_value(p, 0, value, set_update_control);
}

void global_param_set_min_max(int index, float min, float max) {
    Param* const p = global_param(index);
    if (!p) return;
    p->min_value = min;
    p->max_value = max;
    for (int i = 0; i < p->n_global_buttons && i < 4; ++i) {
        void* const control = p->global_controls[i];
        if (!control) continue;
        if (p->type == param_float) {
            auto* const c = static_cast<SparkFloatStruct*>(control);
            c->Value = std::max(min, std::min(c->Value, max));
            c->Min = min;
            c->Max = max;
        } else if (p->type == param_int) {
            auto* const c = static_cast<SparkIntStruct*>(control);
            c->Value = std::max(static_cast<int>(min), std::min(c->Value, static_cast<int>(max)));
            c->Min = static_cast<int>(min);
            c->Max = static_cast<int>(max);
        }
    }
}

void global_param_adjust_min(int index, float min) {
    if (const Param* const p = global_param(index)) global_param_set_min_max(index, min, p->max_value);
}

void global_param_adjust_max(int index, float max) {
    if (const Param* const p = global_param(index)) global_param_set_min_max(index, p->min_value, max);
}

float calc_slider_granularity(float min, float max) {
    float range = max - min;
    if (min > max) {
        std::printf("*** calc_slider_granularity: min %g > max %g \n", static_cast<double>(min),
                    static_cast<double>(max));
        range = min - max;
    }
    return range > 10 ? 0.01f : range <= 1 ? 0.0001f : 0.001f;
}

}  // namespace velloran
