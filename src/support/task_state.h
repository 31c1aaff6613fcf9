// What code on any floor may ask about worker tasks, and the guard for the little state that tasks share.
#pragma once

#include <pthread.h>

namespace velloran {

// True from the start to the end of fork_processes, also when only one task runs.
extern int is_forked;
// True only while the host's tasks really run.
extern int mp_running;

// True on the thread that entered the library: the host's. At first that is the thread that loaded the library; the
// outermost entry point notes its own.
bool host_thread_p();
void note_host_thread();

struct v_mutex {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    int initialised = 1;
};

// Scoped guard; outside a fork it costs nothing. A fatal abort must not be raised while one is held.
class v_lock {
public:
    explicit v_lock(v_mutex& m) : mutex_(m.initialised && mp_running ? &m : nullptr) {
        if (mutex_) pthread_mutex_lock(&mutex_->mutex);
    }
    ~v_lock() {
        if (mutex_) pthread_mutex_unlock(&mutex_->mutex);
    }
    v_lock(const v_lock&) = delete;
    v_lock& operator=(const v_lock&) = delete;

private:
    v_mutex* mutex_;
};

}  // namespace velloran
