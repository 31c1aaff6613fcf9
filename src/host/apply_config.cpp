#include "host/apply_config.h"

#include "frame/lut_files.h"
#include "records/run_state.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"
#include "texts/config.h"

namespace velloran {

void apply_config() {
    enable_pointer_abort = config.enable_pointer_abort;
    pointer_abort_seconds = config.pointer_abort_seconds;
    mp_max_cpus = config.max_cpus;
    frame_rate_forced = config.force_frames_per_second > 0;
    if (frame_rate_forced) frame_rate = config.force_frames_per_second;
    if (config.force_pixel_aspect_ratio > 0) set_pixel_aspect_ratio(config.force_pixel_aspect_ratio);
    set_lut_paths(config.input_lut, config.output_lut);
}

}  // namespace velloran
