#include "hosts/common/task_pool.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <thread>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace spark_host {
namespace {

// Frames fork many times a second with little work between: waiting a few microseconds before sleeping saves the
// kernel's wake-up, which costs more than the whole fork. With more tasks than processors waiting only steals time.
constexpr int spins_before_sleep = 4000;

struct alignas(64) Worker {
    std::thread thread;
    std::atomic<int> ticket{0};  // counts the forks handed to this worker
    std::atomic<int> stop{0};
};

thread_local int task_index = 0;
thread_local bool in_task = false;

Worker workers[max_tasks];  // 0 unused: the caller
int n_workers = 1;
void (*fork_function)() = nullptr;
int fork_count = 1;
int fork_spins = 0;
alignas(64) std::atomic<int> pending{0};

void relax() {
#if defined(__x86_64__)
    _mm_pause();
#endif
}

// Returns once word no longer holds old.
void wait_while(std::atomic<int>& word, int old, int spins) {
    for (int i = 0; i < spins; i++) {
        if (word.load(std::memory_order_acquire) != old) return;
        relax();
    }
    while (word.load(std::memory_order_acquire) == old) word.wait(old, std::memory_order_acquire);
}

void work(int index) {
    Worker& me = workers[index];
    task_index = index;
    in_task = true;
    int seen = 0;
    int spins = 0;
    for (;;) {
        wait_while(me.ticket, seen, spins);
        seen++;
        if (me.stop.load(std::memory_order_acquire)) return;
        spins = fork_spins;
        fork_function();
        if (pending.fetch_sub(1, std::memory_order_acq_rel) == 1) pending.notify_one();
    }
}

void hand_ticket(Worker& worker) {
    worker.ticket.fetch_add(1, std::memory_order_release);
    worker.ticket.notify_one();
}

// As many as the system has threads for, which may be fewer.
void start_workers(int n) {
    for (; n_workers < n; n_workers++) {
        Worker& worker = workers[n_workers];
        worker.ticket.store(0);
        worker.stop.store(0);
        try {
            worker.thread = std::thread(work, n_workers);
        } catch (const std::exception&) {
            return;
        }
    }
}

// Threads must not outlive the tables that they look at. When a task itself ends the program, nobody can wait for it.
struct StopAtExit {
    ~StopAtExit() {
        if (in_task)
            for (int i = 1; i < n_workers; i++) workers[i].thread.detach();
        else
            pool_stop();
    }
} stop_at_exit;

}  // namespace

void pool_run(void (*function)(), int n) {
    n = std::clamp(n, 1, max_tasks);
    if (in_task) {
        for (int i = 0; i < n; i++) function();
        return;
    }
    start_workers(n);
    const int together = std::min(n, n_workers);
    fork_function = function;
    fork_count = n;
    static const int n_cpus = static_cast<int>(std::thread::hardware_concurrency());
    fork_spins = n <= n_cpus ? spins_before_sleep : 0;
    pending.store(together - 1, std::memory_order_relaxed);
    for (int i = 1; i < together; i++) hand_ticket(workers[i]);
    in_task = true;
    function();
    // Tasks that found no thread come one after the other.
    for (task_index = together; task_index < n; task_index++) function();
    task_index = 0;
    in_task = false;
    for (int left; (left = pending.load(std::memory_order_acquire)) != 0;) wait_while(pending, left, fork_spins);
    fork_count = 1;
}

int pool_task_index() { return task_index; }
int pool_task_count() { return fork_count; }
bool pool_main_task_p() { return task_index == 0; }

void pool_stop() {
    for (int i = 1; i < n_workers; i++) {
        workers[i].stop.store(1, std::memory_order_release);
        hand_ticket(workers[i]);
    }
    for (int i = 1; i < n_workers; i++) workers[i].thread.join();
    n_workers = 1;
}

}  // namespace spark_host
