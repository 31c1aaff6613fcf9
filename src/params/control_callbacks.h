// What happens when a control moves: the value is read, kept for Undo, and a frame is asked for as the redraw mode
// says.
//
// Here: everything behind V4_cbkfunN and the decisions that a pen event shares with it. In host/: the exports
// themselves, V4_SparkProcess, V4_SparkInteract and get_res_factor, reached through render_request.h.
// Callbacks answer the address of the frame that they rendered, or null. Host's thread only; none arms the abort.
#pragma once

#include "records/param.h"
#include "spark/spark.h"

namespace velloran {

// Body of V4_cbkfunN: the param of that control number. A standard control with a callback of its own is handed to it,
// so that a stub may give V4_cbkfunN to every control.
void* callbkfun(int action, SparkInfoStruct* info, int number);
// Body of V4_NAME_callback: of the effect popup, or of the standard control with that key; any other does nothing.
// which: the copy of the control; of a key with several controls the one that is meant (Param::extra).
void* named_callback(const char* name, int action, SparkInfoStruct* info, int which);
// channel: of the param, or the copy of a standard control. changed: count the param as changed already.
void* callbkfun2(int action, SparkInfoStruct* info, int number, Param* p, int channel, int changed);

// Keeps the old value for Undo and stores the new one, given in internal units (a colour packed). 1 if a frame is
// wanted.
int note_param_change(int action, Param* p, int channel, double value);
// The same in two halves, for callbacks that set several params with set_undo_fold between them: whether the first of
// them begins a new step of Undo, and what the change asks for. changed: the set functions' answer. 1 if a frame is
// wanted.
void note_change(int action, const Param* p, int channel);
int change_wanted(int action, int changed);
void* after_control_change(int action, SparkInfoStruct* info, int changed);

// Whether the redraw mode lets this action render.
bool want_process(const SparkInfoStruct* info, int action);
// Renders with spark_process_from_callback_p set if the action may; else notes the values as rendered.
void* process_from_callback(SparkInfoStruct* info, int action);

int get_redraw_mode();

// Forgets the last change; when a plug-in goes away.
void forget_last_change();
extern double (*change_clock)();  // seconds; tests replace it

// Stores the measured level into the param that holds it ("hold_level"); set by the operator that measures.
extern void (*set_hold_value_for_flicker)();

}  // namespace velloran
