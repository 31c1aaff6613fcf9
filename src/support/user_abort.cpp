#include "support/user_abort.h"

#include "spark/spark.h"
#include "support/clock.h"
#include "support/task_state.h"

#include <atomic>

namespace velloran {

int enable_pointer_abort = 1;
float pointer_abort_seconds = 2.0f;

namespace {

constexpr double poll_interval = 0.2;
constexpr double longest_hold = 120.0;  // a pen left lying on the tablet aborts nothing

bool render_start_set = false;
double render_start = 0;
double last_poll = 0;
double last_time_up = 0;
std::atomic<bool> aborted{false}, by_host{false};

}  // namespace

double (*abort_clock)() = steady_seconds;

bool render_aborted_p() { return aborted.load(std::memory_order_relaxed); }

bool poll_abort() {
    if (!enable_pointer_abort || !host_thread_p()) return render_aborted_p();
    const double elapsed = abort_clock() - render_start;
    if (elapsed - last_poll < poll_interval && last_poll <= elapsed) return render_aborted_p();
    if (!sparkPointerRead(nullptr, nullptr, nullptr)) last_time_up = elapsed;
    const double held = elapsed - last_time_up;
    if (held >= pointer_abort_seconds && held < longest_hold) aborted.store(true, std::memory_order_relaxed);
    last_poll = elapsed;
    return render_aborted_p();
}

void reset_abort() {
    if (!render_start_set) {
        render_start = abort_clock();
        render_start_set = true;
    }
    last_time_up = abort_clock() - render_start;
    by_host.store(false, std::memory_order_relaxed);
    aborted.store(false, std::memory_order_relaxed);
}

void abort_render() {
    by_host.store(true, std::memory_order_relaxed);
    aborted.store(true, std::memory_order_relaxed);
}

bool aborted_by_host_p() { return by_host.load(std::memory_order_relaxed); }

}  // namespace velloran
