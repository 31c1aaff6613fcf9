// Which of the compiled instruction sets row functions take. Without a word it is the machine's best.
#pragma once

#include <atomic>
#include <cstdint>

namespace velloran {

// Has every row table that is asked for from now on be that of one of hwy::SupportedAndGeneratedTargets(); 0: the
// machine's best again. Not while tasks run.
void force_row_target(int64_t target);

// How often that was done: who keeps a table asks for it again when this has changed.
extern std::atomic<int> row_target_changes;

// Keeps to the target named in VELLORAN_TARGET from here on, and answers its Highway code. 0 without the variable; also
// with a name that was not compiled or that the machine lacks, which is told on standard error.
int64_t take_row_target_of_environment();

}  // namespace velloran
