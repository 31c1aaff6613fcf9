#include "support/task_state.h"

namespace velloran {

int is_forked = 0;
int mp_running = 0;

namespace {
pthread_t host_thread = pthread_self();
}

bool host_thread_p() { return pthread_equal(host_thread, pthread_self()) != 0; }

void note_host_thread() { host_thread = pthread_self(); }

}  // namespace velloran
