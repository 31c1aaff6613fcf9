// The worker tasks of a host: threads that are started once and wait between forks. Task 0 is always the caller's
// thread.
#pragma once

namespace spark_host {

constexpr int max_tasks = 64;

// Runs function on n tasks at once and returns when all have returned. n is held to 1 .. max_tasks. One fork at a time,
// from one thread; a call from inside a task runs function n times in that task, with its index.
void pool_run(void (*function)(), int n);

// Index of the task that asks, 0 to n - 1; 0 outside a fork.
int pool_task_index();

// Tasks of the fork that runs, 1 outside a fork.
int pool_task_count();

// True on the thread that forks, and outside forks.
bool pool_main_task_p();

// Ends the threads; the next fork starts them again. For programs that want a clean end.
void pool_stop();

}  // namespace spark_host
