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
// The host has no use any more for the frame in hand, if there is one; nobody is told. Any thread, at any time.
void abort_render();
// The abort was the host's own wish and not the pen's.
bool aborted_by_host_p();

// From the configuration.
extern int enable_pointer_abort;     // 1
extern float pointer_abort_seconds;  // 2.0

// Where the time comes from, in seconds; tests replace it.
extern double (*abort_clock)();

}  // namespace velloran
