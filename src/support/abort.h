// The fatal abort: a way back to the entry point in force from any depth, and from worker tasks.
//
// An entry point does
//     AbortTarget outer;
//     arm_abort(outer);
//     if (setjmp(_V_jmpbuf)) { disarm_abort(outer); return nullptr; }
//     ...
//     disarm_abort(outer);
// Nothing with a destructor that matters may live across a call that may abort. Memory of such code comes from
// frame_malloc (memory.h), which is given back when the jump lands or the next outermost entry point arms.
#pragma once

#include <csetjmp>

namespace velloran {

extern jmp_buf _V_jmpbuf;
extern int _V_jmp_set;

struct AbortTarget {
    jmp_buf buf;
    int set;
    int n_cleanups, frame_depth, evaluating;  // as they were
};

// Keeps the target in force in outer and marks a new one as armed; the caller then calls setjmp(_V_jmpbuf).
void arm_abort(AbortTarget& outer);
// Puts the outer target back. To be called on both ways out. After a jump it also frees what this call left behind, and
// nothing of the outer ones.
void disarm_abort(const AbortTarget& outer);

// On a worker task: ends that task. Elsewhere: jumps to the armed entry point. Returns only if nothing is armed, after
// telling the host "Velloran uncaught fatal abort".
void fatal_abort(int status);

// Runs function on this thread so that a fatal abort inside it ends only it. Returns the abort's status, 0 for none.
int run_abortable(void (*function)(void*), void* argument);

}  // namespace velloran
