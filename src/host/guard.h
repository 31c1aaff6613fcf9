// How every exported call is entered: with the fatal abort armed, so that whatever goes wrong ends that call alone.
#pragma once

#include "records/run_state.h"

namespace velloran {

// Runs function with info as the host's record of the call in hand. False if an abort ended it.
bool run_guarded(SparkInfoStruct* info, void (*function)(void*), void* argument);

// What body answers, or otherwise where an abort ended it. Nothing with a destructor that matters may live in body.
template <class Result, class Body>
Result guarded_call(SparkInfoStruct* info, Result otherwise, Body body) {
    struct Call {
        Body& body;
        Result result;
    } call = {body, otherwise};
    const auto run = [](void* c) { static_cast<Call*>(c)->result = static_cast<Call*>(c)->body(); };
    return run_guarded(info, run, &call) ? call.result : otherwise;
}

// True if the instance now being called was initialised to its end. Its effects, params and controls are then there;
// a call that needs them answers with nothing else.
inline bool instance_ready_p() { return Globals_V4 && (Globals_V4->setup_flags & setup_ready) != 0; }

}  // namespace velloran
