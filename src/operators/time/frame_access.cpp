#include "operators/time/frame_access.h"

#include "frame/host_buffers.h"
#include "frame/lut_files.h"
#include "frame/other_frames.h"
#include "frame/pixel_formats.h"
#include "frame/rasters.h"
#include "records/frame.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/user_abort.h"

#include <algorithm>
#include <climits>

namespace velloran {

bool get_frame_buffer(FrameBuffer* buffer) {
    buffer->own = the_frame->render_field || the_frame->long_image_source == long_image_borrowed;
    buffer->memory = buffer->own ? frame_malloc(static_cast<size_t>(spark_info_ptr->FrameBytes)) : get_spark_buffer(0);
    if (buffer->memory) return true;
    fail_frame();
    V_error(level_error, "ERROR: time_warp: dest_buffer not set. \n");
    return false;
}

void release_frame_buffer(const FrameBuffer& buffer) {
    if (buffer.own) frame_free(buffer.memory);
}

int last_clip_frame() {
    const int frames = spark_info_ptr->TotalFrameNo;
    return frames > 0 ? frames - 1 : INT_MAX;
}

bool get_spark_frame(int clip, int frame, const FrameBuffer& buffer) {
    get_frame_from_host(clip, std::max(frame, 0), buffer.memory);
    return !the_frame->failed && !poll_abort();
}

bool load_other_frame_into_images(int clip, int frame, const FrameBuffer& buffer, const fix_plane* planes) {
    if (!get_spark_frame(clip, frame, buffer)) return false;
    rinfo whole;
    fill_host_raster(&whole, *spark_info_ptr, 1, 0);
    source_converter(whole, buffer.memory, whole, planes, 3, use_input_lut != 0);
    return !the_frame->failed;
}

}  // namespace velloran
