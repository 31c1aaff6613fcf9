// Pen events in the viewer, the drawing of handles, and the control callbacks' exports.
#include "engine/evaluate.h"
#include "genotype/param_record.h"
#include "host/entry_points.h"
#include "host/guard.h"
#include "params/control_callbacks.h"
#include "params/effect_selection.h"
#include "params/param_values.h"
#include "params/resolution.h"
#include "params/standard_controls.h"
#include "support/errors.h"
#include "support/host_info.h"
#include "support/memory.h"
#include "support/optional_host.h"
#include "widgets/widgets.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace velloran {
namespace {

enum PenEvent : int { pen_release = 0, pen_press = 1, pen_none = 2, pen_drag = 3 };

struct PenState {
    bool down;
    float x, y;
    bool need_process;  // collected until a render is wanted
};
PenState pen;

float zoom_factor(float zoom) { return zoom < 1 ? 1.0f / (2.0f - zoom) : zoom; }

// The pen sets the effect's pointer param where no widget took the event.
void* pointer_set(SparkInfoStruct* info, PenEvent event, float x, float y) {
    Param* const param = Globals_V4->pointer_param;
    const int mode = get_redraw_mode();
    if (!param || event == pen_none || mode == redraw_never || mode == redraw_process) return nullptr;
    int action = SPARK_ACTION_PRESS;
    if (mode >= redraw_drag && event == pen_drag) action = SPARK_ACTION_DRAG;
    if (mode >= redraw_pen_up && event == pen_press) action = SPARK_ACTION_RELEASE;
    if (action == SPARK_ACTION_PRESS || param->first_button < 0) return nullptr;
    const ScreenGeometry geometry = button_geometry();
    const float values[2] = {button_to_param(param, 0, x, geometry, convert_with_scales),
                             button_to_param(param, 1, y, geometry, convert_with_scales)};
    if (!param_set_values(param, 0, 2, values, set_update_control | set_undo_fold)) return nullptr;
    return process_from_callback(info, action);
}

void* interact(SparkInfoStruct* info, float pressure, float x, float y, float zoom) {
    GlobalsV4Record* const globals = Globals_V4;
    globals->frame_call_count = 0;
    spark_info_ptr = info;
    if (host_kind == host_burn) return nullptr;
    zoom = zoom_factor(zoom);
    const bool down = pressure > 0;
    const bool was_down = pen.down;
    // In the same pixel; what a host gives may be no number of a pixel at all.
    if (was_down && down && std::trunc(x) == std::trunc(pen.x) && std::trunc(y) == std::trunc(pen.y)) return nullptr;

    PenEvent event = pen_none;
    int action = SPARK_ACTION_PRESS;
    if (down && !was_down) {
        event = pen_press;
        ignore_next_pen_up = 0;
    } else if (down) {
        event = pen_drag;
        action = SPARK_ACTION_DRAG;
    } else if (was_down && !ignore_next_pen_up) {
        event = pen_release;
        action = SPARK_ACTION_RELEASE;
    } else if (was_down) {
        ignore_next_pen_up = 0;
    }
    pen.x = x;
    pen.y = y;
    pen.down = down;

    int need_process = 0;
    const int consumed = spark_dispatch_mouse_event(info, x, y, down, zoom, &need_process);
    if (need_process || get_res_factor(info) != globals->last_res_factor) pen.need_process = true;
    if (pen.need_process && want_process(info, action)) {
        pen.need_process = false;
        return process_from_callback(info, action);
    }
    if (consumed || any_widgets_enabled_p() || !std::getenv("VELLORAN_ENABLE_POINTER_SET")) return nullptr;
    return pointer_set(info, event, x, y);
}

// A callback, which needs what the initialisation made.
template <class Body>
void* guarded_callback(SparkInfoStruct* info, Body body) {
    if (!instance_ready_p()) return nullptr;
    return guarded_call(info, static_cast<void*>(nullptr), body);
}

}  // namespace
}  // namespace velloran

using namespace velloran;

void* V4_SparkInteract(SparkInfoStruct info, int, int, float pressure, float x, float y, float zoom) {
    return guarded_callback(&info, [&] { return interact(&info, pressure, x, y, zoom); });
}

void V4_SparkOverlay(SparkInfoStruct info, float zoom) {
    guarded_callback(&info, [&]() -> void* {
        if (host_kind == host_burn || (Globals_V4->setup_flags & setup_needs_first_render)) return nullptr;
        const float ratio = host_api_at_least(4.019f) ? v_sparkGetViewerRatio() : 1.0f;
        spark_redraw_widgets(Globals_V4->effect_genotype, &info, nullptr, zoom_factor(zoom), ratio);
        return nullptr;
    });
}

#define DEFINE_CONTROL_CALLBACK(N)                                                   \
    void* V4_cbkfun##N(int action, SparkInfoStruct info) {                           \
        return guarded_callback(&info, [&] { return callbkfun(action, &info, N); }); \
    }
V4_FOR_EACH_CONTROL_NUMBER(DEFINE_CONTROL_CALLBACK)
#undef DEFINE_CONTROL_CALLBACK

#define DEFINE_NAMED_CALLBACK(name)                                                                 \
    void* V4_##name##_callback(int action, SparkInfoStruct info, int copy) {                        \
        return guarded_callback(&info, [&] { return named_callback(#name, action, &info, copy); }); \
    }
V4_FOR_EACH_NAMED_CALLBACK(DEFINE_NAMED_CALLBACK)
#undef DEFINE_NAMED_CALLBACK

int V4_global_param_sync_from_button(int global_index, int copy) {
    if (global_index < 0 || global_index >= N_GLOBAL_PARAMS || !instance_ready_p()) return 0;
    Param* const param = Globals_V4->global_params[global_index];
    if (!param || copy < 0 || copy >= param->n_global_buttons) return 0;
    return guarded_call(spark_info_ptr, 0, [=] { return global_param_sync_from_button(param, copy); });
}

void V4_check_all_mem_freed(void) {
    if (n_plugins_loaded == 0) check_all_mem_freed();
}

void V4_free_check_fun(void) { check_all_mem_freed(); }

void V4_V_error(int level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    guarded_call(spark_info_ptr, 0, [&] {
        print_error(level, format, arguments);
        return 0;
    });
    va_end(arguments);
}
