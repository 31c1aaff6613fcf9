#include "operators/fft/fft_config.h"

#include "records/run_state.h"
#include "support/errors.h"
#include "support/task_state.h"
#include "support/unload.h"
#include "tasks/tasks.h"

namespace velloran {

namespace {

struct {
    int cfg_w, cfg_h;
    FftLine* rows[2];
    FftLine* columns[2];
} config;

v_mutex config_mutex;

}  // namespace

bool fft_check(const char* name, int status) {
    if (status == 0) return true;
    fail_frame();
    V_error(level_error, "%s error: %d = %s", name, status, fft_error_text(status));
    return false;
}

void fft_config_make(int width, int height) {
    const v_lock lock(config_mutex);
    if (config.cfg_w == width && config.cfg_h == height && config.rows[0] && config.rows[1] && config.columns[0] &&
        config.columns[1])
        return;
    free_at_unload(fft_config_free);
    fft_config_free();
    config.cfg_w = width;
    config.cfg_h = height;
    for (int direction = 0; direction < 2; ++direction) {
        fft_check("DftiCreateDescriptor", fft_make_line(width, direction, &config.rows[direction]));
        fft_check("DftiCreateDescriptor", fft_make_line(height, direction, &config.columns[direction]));
    }
}

FftPlans fft_config_get(int width, int height) {
    const v_lock lock(config_mutex);
    FftPlans plans = {};
    for (int direction = 0; direction < 2; ++direction) {
        if (config.cfg_w == width && config.cfg_h == height) {
            plans.row[direction] = config.rows[direction];
            plans.column[direction] = config.columns[direction];
        }
        if (plans.row[direction] && plans.column[direction]) continue;
        fail_frame();
        V_error(level_error, "thread %d dir %d expecting cached fft_config, but didn't find it!\n",
                get_processor_index(), direction);
    }
    return plans;
}

void fft_config_free() {
    for (int direction = 0; direction < 2; ++direction) {
        fft_free_line(config.rows[direction]);
        fft_free_line(config.columns[direction]);
    }
    config = {};
}

}  // namespace velloran
