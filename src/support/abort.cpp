// A jump must never leave a stack that another thread still uses: a task that aborts unwinds to its own wrapper, and the
// fork raises the abort again on the host's thread once all tasks have returned.
#include "support/abort.h"

#include "spark/spark.h"
#include "support/errors.h"
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
    if (outer.set) {
        std::memcpy(outer.buf, _V_jmpbuf, sizeof(jmp_buf));
    } else {
        // The outermost call: nothing of an earlier frame may be alive.
        give_back_since(FrameMark{});
        is_forked = 0;
        mp_running = 0;
    }
    outer.mark = frame_mark();
    _V_jmp_set = 1;
}

void disarm_abort(const AbortTarget& outer) {
    _V_jmp_set = outer.set;
    if (outer.set) std::memcpy(_V_jmpbuf, outer.buf, sizeof(jmp_buf));
    if (!abort_landed) return;
    abort_landed = false;
    give_back_since(outer.mark);
    if (outer.set) return;
    is_forked = 0;
    mp_running = 0;
    evaluating_frame_p = 0;
}

void fatal_abort(int status) {
    if (status == 0) status = 1;
    if (task_target) std::longjmp(*task_target, status);
    if (_V_jmp_set) {
        abort_landed = true;
        std::longjmp(_V_jmpbuf, status);
    }
    sparkError("Velloran uncaught fatal abort");
    V_error(level_fatal, "Velloran uncaught fatal abort, status %d\n", status);
}

int run_abortable_task(void (*function)()) {
    jmp_buf here;
    jmp_buf* const outer = task_target;
    const int status = setjmp(here);
    if (status == 0) {
        task_target = &here;
        function();
    }
    task_target = outer;
    return status;
}

}  // namespace velloran
