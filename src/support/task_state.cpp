#include "support/task_state.h"

namespace velloran {

int is_forked = 0;
int mp_running = 0;

}  // namespace velloran
