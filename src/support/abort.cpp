// A jump must never leave a stack that another thread still uses: a task that aborts unwinds to its own wrapper, and
// the fork raises the abort again on the host's thread once all tasks have returned.
#include "support/abort.h"

#include "spark/spark.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/task_state.h"

#include <cstring>

namespace velloran {

jmp_buf _V_jmpbuf;
int _V_jmp_set = 0;

namespace {

thread_local jmp_buf* task_target = nullptr;
// Set by a jump to the armed entry point, until that entry point has cleaned up.
bool abort_landed = false;

}  // namespace

void arm_abort(AbortTarget& outer) {
    outer.set = _V_jmp_set;
    outer.evaluating = evaluating_frame_p;
    if (outer.set) {
        std::memcpy(outer.buf, _V_jmpbuf, sizeof(jmp_buf));
    } else {
        // The outermost call: nothing of an earlier frame may be alive.
        note_host_thread();
        run_abort_cleanups();
        free_frame_memory();
        set_frame_depth(0);
        drop_cause_of_abort();
        is_forked = 0;
        mp_running = 0;
    }
    outer.n_cleanups = n_abort_cleanups();
    outer.frame_depth = frame_depth();
    set_frame_depth(outer.frame_depth + 1);
    _V_jmp_set = 1;
}

void disarm_abort(const AbortTarget& outer) {
    _V_jmp_set = outer.set;
    if (outer.set) std::memcpy(_V_jmpbuf, outer.buf, sizeof(jmp_buf));
    set_frame_depth(outer.frame_depth);
    show_pending_host_error();
    if (!abort_landed) return;
    abort_landed = false;
    run_abort_cleanups(outer.n_cleanups);
    free_frame_memory(outer.frame_depth);
    evaluating_frame_p = outer.evaluating;
    if (outer.set) return;
    is_forked = 0;
    mp_running = 0;
    show_cause_of_abort();
}

void fatal_abort(int status) {
    if (status == 0) status = 1;
    if (task_target) std::longjmp(*task_target, status);
    show_pending_host_error();
    if (_V_jmp_set) {
        abort_landed = true;
        std::longjmp(_V_jmpbuf, status);
    }
    sparkError("Velloran uncaught fatal abort");
    V_error(level_fatal, "Velloran uncaught fatal abort, status %d\n", status);
}

int run_abortable(void (*function)(void*), void* argument) {
    jmp_buf here;
    jmp_buf* const outer = task_target;
    const int status = setjmp(here);
    if (status == 0) {
        task_target = &here;
        function(argument);
    }
    task_target = outer;
    return status;
}

}  // namespace velloran
