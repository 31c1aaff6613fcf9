// The one discipline of parallel work: fork a function on the host's tasks, let each task work out its own stripe, and
// go on when all have returned. fork_rows.h is the way in for work that has arguments.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velloran {

using ForkFunction = void (*)();

constexpr int max_processors = 64;

extern int mp_initialised;
extern int fork_enabled;  // 1: multi-processing on
extern int mp_allowed;
extern int mp_max_cpus;   // limit from the configuration
extern int mp_cpu_count;  // processors to use where no call of the host tells how many tasks it runs

void init_mp();  // idempotent; reads the configuration
void set_cpu_count(int n, int update_allowed);
// Tasks of a fork: as many as the host's record of the call in hand tells, up to mp_max_cpus.
int get_n_procs();
void get_processor_info(int* index, int* n_procs);
int get_processor_index();
int get_spark_processor_index();

// Runs function on every task and returns when all have. A barrier at both ends; host's thread only; no nesting (a
// nested call reports and runs function in its own thread). A fatal abort on any task is raised again here, on the
// host's thread, after the barrier; so is one if the host ran fewer tasks than it said.
void fork_processes(ForkFunction function);
void fork_if_big_image(ForkFunction function, int width, int height);
void fork_if_wide_image(ForkFunction function, int width, int height);

// Images that are worth a fork.
bool big_image_p(int width, int height);
bool wide_image_p(int width, int height);

// This task's share of count units: [*first, *first + *n). Outside a fork all of them.
void get_proc_stripe(int count, int* first, int* n);

// What fork_rows makes of its body: a function, and the body that it is called with.
struct StripeBody {
    void (*run)(const void* body, int first, int n);
    const void* body;
};
// On every task, or in this thread: runs the body with this task's share of count units, unless that is none.
void fork_stripes(int count, StripeBody body);
void run_stripe(int count, StripeBody body);

void mp_memcpy(void* dest, const void* source, size_t bytes);
void mp_memset(void* dest, int value, size_t bytes);
bool mp_main_thread_p();

// Reductions: each task stores its part, the caller totals.
void clear_proc_temp_sums();
void set_proc_temp_sum(int32_t value);
int32_t get_proc_total_sum();
void clear_proc_temp_float_sums();
void set_proc_temp_float_sum(float value);
float get_proc_total_float_sum();

// Scratch of each task, divided into count slots of size bytes each (rounded up to 16). Reserved outside a fork;
// buffers only grow. get_forked_buffer must be asked with the same size.
void maybe_malloc_forked_buffers(size_t size, int count);
void* get_forked_buffer(int slot, size_t size);
void free_forked_buffers();

}  // namespace velloran
