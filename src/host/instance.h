// What a record points at: effects, params and controls, made by the one-time initialisation. A copy of a record points
// at the same, and the last of them gives it back.
#pragma once

#include "records/run_state.h"

namespace velloran {

// True if another record points at what this one does.
bool instance_shared_p(const GlobalsV4Record* record);

// Frees what Globals_V4 points at, or leaves it to the records that share it; forgets it in either case.
void release_instance();

}  // namespace velloran
