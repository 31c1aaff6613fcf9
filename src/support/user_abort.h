// The user's abort: holding the pen down during a render.
#pragma once

namespace velloran {

// Polled by long loops. Looks at the pen at most every 0.2 seconds and on the host's thread only; other tasks get the
// present state. True once the pen was held for pointer_abort_seconds.
bool poll_abort();
// The present state, without a look at the pen. Any task.
bool render_aborted_p();
// A new render begins.
void reset_abort();

// From the configuration.
extern int enable_pointer_abort;     // 1
extern float pointer_abort_seconds;  // 2.0

// Where the time comes from, in seconds; tests replace it.
extern double (*abort_clock)();

}  // namespace velloran
