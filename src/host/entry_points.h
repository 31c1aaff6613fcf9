// What the library exports to plug-in modules. A module sets Globals_V4 to its own record before each call; the calls
// run on the host's thread, one at a time. An entry point that may reach evaluation survives a fatal abort: it then
// answers 0 or null, and the next call starts afresh.
#pragma once

#include "records/run_state.h"
#include "spark/spark.h"

#define V4_EXPORT extern "C" __attribute__((visibility("default")))

// Version that a module passes to V4_SparkClips; any other only warns.
#define VELLORAN_VERSION 4.04f

// A fresh record (previous null), or a copy of previous, which keeps owning its strings. Sets Globals_V4.
V4_EXPORT velloran::GlobalsV4Record* V4_init_globals(velloran::GlobalsV4Record* previous);
V4_EXPORT void V4_free_globals(velloran::GlobalsV4Record* record);

V4_EXPORT int V4_SparkIsInputFormatSupported(int depth);
V4_EXPORT int V4_SparkClips(float version);
V4_EXPORT void V4_SparkMemoryTempBuffers(SparkInfoStruct info);
V4_EXPORT int V4_SparkInitialise(SparkInfoStruct info);
V4_EXPORT int V4_SparkProcessStart(SparkInfoStruct info);
V4_EXPORT void* V4_SparkProcess(SparkInfoStruct info);
V4_EXPORT void* V4_SparkInteract(SparkInfoStruct info, int event, int modifiers, float pressure, float x, float y,
                                 float zoom);
V4_EXPORT void V4_SparkOverlay(SparkInfoStruct info, float zoom);
V4_EXPORT void V4_SparkUnInitialise(SparkInfoStruct info);

// V4_cbkfun0 to V4_cbkfun92: the callback of the control of that number.
// clang-format off
#define V4_FOR_TEN(X, T) X(T##0) X(T##1) X(T##2) X(T##3) X(T##4) X(T##5) X(T##6) X(T##7) X(T##8) X(T##9)
#define V4_FOR_EACH_CONTROL_NUMBER(X)                                                                     \
    X(0) X(1) X(2) X(3) X(4) X(5) X(6) X(7) X(8) X(9)                                                     \
    V4_FOR_TEN(X, 1) V4_FOR_TEN(X, 2) V4_FOR_TEN(X, 3) V4_FOR_TEN(X, 4) V4_FOR_TEN(X, 5) V4_FOR_TEN(X, 6) \
    V4_FOR_TEN(X, 7) V4_FOR_TEN(X, 8) X(90) X(91) X(92)
// clang-format on
#define V4_DECLARE_CONTROL_CALLBACK(N) V4_EXPORT void* V4_cbkfun##N(int action, SparkInfoStruct info);
V4_FOR_EACH_CONTROL_NUMBER(V4_DECLARE_CONTROL_CALLBACK)
#undef V4_DECLARE_CONTROL_CALLBACK

// Callbacks of the standard controls, by the param's callback_name. copy is the index of the control among the param's
// global_buttons; for "crop" and "doc" it is the param's `extra`, 1 to 4 for the edges left, top, right, bottom and 1
// to 3 for the help buttons.
// clang-format off
#define V4_FOR_EACH_NAMED_CALLBACK(X)                                                                    \
    X(effect_popup) X(crop) X(crop_enable) X(crop_view) X(crop_surround) X(surround_color) X(crop_input) \
    X(redraw_wait) X(res_factor) X(doc) X(widget_enable) X(undo) X(on_fields) X(add_noise) X(gamma)      \
    X(lut) X(crop_set_default) X(load_defaults)
// clang-format on
#define V4_DECLARE_NAMED_CALLBACK(name) \
    V4_EXPORT void* V4_##name##_callback(int action, SparkInfoStruct info, int copy);
V4_FOR_EACH_NAMED_CALLBACK(V4_DECLARE_NAMED_CALLBACK)
#undef V4_DECLARE_NAMED_CALLBACK

// Services for the stub.
V4_EXPORT int V4_global_param_sync_from_button(int global_index, int copy);
V4_EXPORT void V4_check_all_mem_freed(void);
V4_EXPORT void V4_free_check_fun(void);
// Formats and hands the text to the error printer, without the log.
V4_EXPORT void V4_V_error(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
