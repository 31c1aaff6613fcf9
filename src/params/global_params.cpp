// Values of the standard controls: one param, up to four copies of its control.
#include "params/control_kinds.h"
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

}  // namespace

int global_param_sync_from_button(Param* p, int copy) {
    if (!p || copy < 0 || copy >= p->n_global_buttons || copy >= 4) return 0;
    // Where this copy is not on the panel, the first that is stands for it.
    if (!p->global_controls[copy]) copy = first_global_copy(p);
    if (!p->global_controls[copy]) return 0;
    const ControlKind& kind = control_kind(p);
    const double v = kind.read(p->global_controls[copy]);
    int changed = 0;
    for (int i = 0; i < p->n_global_buttons && i < 4; ++i) {
        if (!p->global_controls[i] || !kind.write_held(p->global_controls[i], v)) continue;
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
    const ControlKind& kind = control_kind(p);
    for (void* const control : p->global_controls) {
        if (!control || !kind.set_bounds) continue;
        kind.set_bounds(control, min, max, p->step);
        kind.write_held(control, kind.read(control));
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
