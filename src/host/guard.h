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

// Makes the configuration directory that of the plug-in being called, where its logs and effects are found: a host may
// run plug-ins of several directories, one inside another. Leaving puts back that of a call around this one.
struct OwnDirectory {
    char caller[299];
};
void enter_own_directory(OwnDirectory& own);
void leave_own_directory(const OwnDirectory& own);

// True if the instance now being called was initialised to its end. Its effects, params and controls are then there;
// a call that needs them answers with nothing else.
inline bool instance_ready_p() { return Globals_V4 && (Globals_V4->setup_flags & setup_ready) != 0; }

}  // namespace velloran
