#include "records/run_state.h"

#include "frame/host_buffers.h"

#include <algorithm>
#include <atomic>
#include <cstring>

velloran::GlobalsV4Record* Globals_V4 = nullptr;

namespace velloran {
namespace {

Frame outermost = {};

}  // namespace

Frame* the_frame = &outermost;
SparkInfoStruct* spark_info_ptr = nullptr;
int n_plugins_loaded = 0;
int total_spark_initialize_count = 0;
int any_valid_framenos_p = 0;
int spark_process_from_callback_p = 0;
int ignore_next_pen_up = 0;
int explicit_spark_buffer_allocation_p = 0;
int enable_getframe_in_batch_p = 0;
int byte_order_little_endian_p = 0;
int host_kind = host_unknown;
int verbose_p = 0;
float frame_rate = 30.0f;
int frame_rate_forced = 0;

void init_source_image(const void* frame, int number, int channels) {
    if (number < 1 || number > MAX_INPUTS) return;
    the_frame->source_frames[number - 1] = frame;
    Globals_V4->source_tags[first_input_var + number] = static_cast<uint8_t>(channels);
}

bool fail_frame() { return !std::atomic_ref(the_frame->failed).exchange(true, std::memory_order_relaxed); }

void set_pixel_aspect_ratio(float ratio) { the_frame->pixel_aspect_ratio = ratio > 0.001f ? ratio : 1.0f; }

void set_display_dim_globals(int frame_w, int frame_h, int full_w, int full_h) {
    the_frame->display_dims = {frame_w, frame_h, full_w, full_h, full_w, full_h, full_w, full_h};
}

void set_time_globals(float t, float length, float first, float last) {
    const float range = last - first;
    const float percent = range > 0 ? (t - first) / range : 0.0f;
    TimeGlobals& time = the_frame->time_globals;
    time.frame = t;
    time.total_frames = length;
    time.seconds = t / frame_rate;
    time.total_seconds = length / frame_rate;
    time.percent = std::clamp(percent, 0.0f, 1.0f);
}

bool set_res_factor(int res) {
    GlobalsV4Record* const globals = Globals_V4;
    const bool changed = globals->res_factor != res;
    globals->res_factor = static_cast<int16_t>(res);
    globals->res_half_step = static_cast<uint8_t>((res - 1) / 2);
    return changed;
}

}  // namespace velloran
