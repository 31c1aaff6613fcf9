#include "frame/other_frames.h"

#include "frame/host_buffers.h"
#include "frame/lut_files.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "support/host_info.h"
#include "support/task_state.h"
#include "tasks/tasks.h"

namespace velloran {

Frame* begin_inner_frame(Frame* own) {
    Frame* const outer = the_frame;
    *own = *outer;
    own->in_hand = false;
    // The caller may be in the middle of its sums: others get memory of their own.
    own->long_image = {};
    own->mipmap = {};
    own->mipmap_holds = false;
    own->long_image_source = long_image_none;
    own->mipmap_source = mipmap_none;
    own->eval_long_image = nullptr;
    the_frame = own;
    return outer;
}

void end_inner_frame(Frame* outer) {
    spark_free_long_image();
    spark_free_mipmap();
    the_frame = outer;
}

void* get_frame_from_host(int input, int frame, void* buffer) {
    if (called_in_batch_p() && !enable_getframe_in_batch_p) {
        fail_frame();
        V_error(level_error, "Warning: sparkGetFrame is not supported in Batch.");
        return buffer;
    }
    const int earliest = the_frame->timewarp_get_frame_min;
    if (earliest > 0 && frame <= earliest) frame = earliest;

    GlobalsV4Record* const globals = Globals_V4;
    SparkInfoStruct* const info = spark_info_ptr;
    const int saved_forked = is_forked, saved_running = mp_running, saved_cpus = mp_cpu_count;
    LutChoice luts;
    note_lut_choice(&luts);
    Frame own;
    Frame* const outer = begin_inner_frame(&own);
    const void* const fetched = sparkGetFrame(input, frame, buffer);
    end_inner_frame(outer);
    is_forked = saved_forked;
    mp_running = saved_running;
    mp_cpu_count = saved_cpus;
    Globals_V4 = globals;
    spark_info_ptr = info;
    use_lut_choice(luts);
    if (!fetched && fail_frame()) V_error(level_error, "The host gives no frame %d of input %d.", frame, input + 1);
    return buffer;
}

}  // namespace velloran
