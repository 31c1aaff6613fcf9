#include "operators/fields/interlace_get_frames.h"

#include "engine/clip_args.h"
#include "frame/lut_files.h"
#include "frame/pixel_formats.h"
#include "operators/fields/field_functions.h"
#include "operators/fields/field_rows.h"
#include "operators/time/frame_access.h"
#include "records/run_state.h"
#include "rows/line_rows.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>

namespace velloran {
namespace {

enum InterlaceGetFramesArg : int {
    arg_clip0,
    arg_frame0,
    arg_field0,
    arg_clip1,
    arg_frame1,
    arg_field1,
    arg_rev_field_mode,
    arg_field_dominance
};

constexpr int rows_between_polls = 64;
constexpr int block_samples = 1024;  // of a row; the lines of a block stay in the first cache

// Rows of one parity on their way into planes.
struct FieldCopy {
    const rinfo* source;
    const void* memory;
    int parity;     // of the rows that are written
    bool as_field;  // the source has that field; else the rows are made from those around them
    int rows;       // of samples in the frame
    int channels;
    const fix_plane* planes;
};

void read_block(const FieldCopy& job, int row, int column, int n, int32_t* const* lines, int32_t* const* spare) {
    const bool lut = use_input_lut != 0;
    if (job.as_field || job.rows < 2) return read_source_line(*job.source, job.memory, row, column, n, lines, 3, lut);
    const int below = row > 0 ? row - 1 : row + 1, above = row + 1 < job.rows ? row + 1 : below;
    read_source_line(*job.source, job.memory, below, column, n, lines, 3, lut);
    if (above == below) return;
    read_source_line(*job.source, job.memory, above, column, n, spare, 3, lut);
    for (int c = 0; c < job.channels; ++c) line_rows().average(lines[c], spare[c], lines[c], n);
}

void copy_rows(const FieldCopy& job, int first, int n) {
    const rinfo& working = the_frame->temp_raster_info;
    const int left = working.x / std::max(working.render_step, 1), bottom = first_working_row();
    alignas(64) int32_t samples[2][3][block_samples];
    int32_t* const lines[3] = {samples[0][0], samples[0][1], samples[0][2]};
    int32_t* const spare[3] = {samples[1][0], samples[1][1], samples[1][2]};
    for (int y = first; y < first + n; ++y) {
        if (y % rows_between_polls == 0 && poll_abort()) return;
        if (((bottom + y) & 1) != job.parity) continue;
        for (int x = 0; x < working.width; x += block_samples) {
            const int count = std::min(block_samples, working.width - x);
            read_block(job, bottom + y, left + x, count, lines, spare);
            for (int c = 0; c < job.channels; ++c)
                line_rows().line_to_samples(lines[c], job.planes[c] + ptrdiff_t{y} * working.width + x, count,
                                            fix_image_limit);
        }
    }
}

void copy_field(const ClipField& from, int parity, const FrameBuffer& buffer, int vlen, const fix_plane* planes) {
    const rinfo& source = the_frame->source_raster_infos[from.clip];
    const FieldCopy job = {&source,       buffer.memory,     parity, from.field == parity,
                           source.height, std::min(vlen, 3), planes};
    fork_rows(the_frame->temp_raster_info.height, [&](int first, int n) { copy_rows(job, first, n); });
}

bool weave(const ClipField& first, const ClipField& second, const FrameBuffer& buffer, int vlen,
           const fix_plane* planes) {
    if (!get_spark_frame(first.clip, first.frame, buffer)) return false;
    copy_field(first, first.field, buffer, vlen, planes);
    const bool stands = second.clip == first.clip && second.frame == first.frame;
    if (!stands && !get_spark_frame(second.clip, second.frame, buffer)) return false;
    copy_field(second, 1 - first.field, buffer, vlen, planes);
    return !render_aborted_p();
}

}  // namespace

bool interlace_get_frames(ClipField first, ClipField second, bool swap, int vlen, const fix_plane* planes) {
    for (ClipField* const from : {&first, &second}) {
        from->frame = std::clamp(from->frame, 0, last_clip_frame());
        from->field ^= swap;
    }
    FrameBuffer buffer;
    if (!get_frame_buffer(&buffer)) return false;
    const bool made = weave(first, second, buffer, vlen, planes);
    release_frame_buffer(buffer);
    const rinfo& working = the_frame->temp_raster_info;
    if (vlen == 4)
        fill_samples(planes[3], fix_scale, static_cast<size_t>(working.width) * static_cast<size_t>(working.height));
    return made;
}

// Fields are counted as they are shown, so the dominance exchanges them too.
void image_interlace_get_frames(Node* node) {
    if (!clip_args_p(node)) {
        fail_frame();
        return;
    }
    const auto above_0 = [node](int arg) { return node->arg_vals[arg][0] > 0; };
    const auto field = [&](int clip, int frame, int which) {
        return ClipField{clip_number(node, clip), node->arg_vals[frame][0] >> fix_bits, above_0(which)};
    };
    interlace_get_frames(field(arg_clip0, arg_frame0, arg_field0), field(arg_clip1, arg_frame1, arg_field1),
                         above_0(arg_rev_field_mode) != above_0(arg_field_dominance), node->elnum, node->images);
}

}  // namespace velloran
