// Whole frames out of a clip whose fields follow a cadence: the fields of a picture are woven together, the repeated
// ones dropped. The cadence is found from the pixels when the button asks for it, and kept on the buttons.
#include "engine/clip_args.h"
#include "operators/fields/cadence.h"
#include "operators/fields/field_functions.h"
#include "operators/fields/field_pattern.h"
#include "operators/fields/interlace_get_frames.h"
#include "operators/fields/pattern.h"
#include "records/run_state.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/user_abort.h"

#include <algorithm>
#include <cstdlib>

namespace velloran {
namespace {

enum AutoDeinterlaceArg : int { arg_source, arg_max_len, arg_detect_dominance };

constexpr int channels = 3;
constexpr int longest_search = 500;  // frames

// Planes of whole frames at full resolution, whatever the working area. The node has two images of its own, which serve
// where they are of that size.
struct TwoFrames {
    fix_plane planes[2 * channels];
    FixPixel* own;  // null: the node's
};

TwoFrames planes_for_two_frames(const Node* node) {
    const SparkInfoStruct& info = *spark_info_ptr;
    const rinfo& working = the_frame->temp_raster_info;
    TwoFrames frames = {};
    if (node->image_count >= 2 * channels && working.width == info.FrameWidth && working.height == info.FrameHeight) {
        std::copy_n(node->images, 2 * channels, frames.planes);
        return frames;
    }
    const size_t samples = static_cast<size_t>(info.FrameWidth) * static_cast<size_t>(info.FrameHeight);
    frames.own = frame_array<FixPixel>(2 * channels * samples);
    for (size_t i = 0; i < 2 * channels; ++i) frames.planes[i] = frames.own + i * samples;
    return frames;
}

// A longer cadence than the buttons hold is none.
bool search(FieldCompare* compare, bool detect_dominance, int base, int max_len, FieldPattern* pattern) {
    Pattern cadence(compare);
    compare->set_dominance(static_cast<physical_field>(pattern->dominance));
    if (detect_dominance) {
        const physical_field dominance = cadence.get_dominance();
        compare->set_dominance(dominance);
        pattern->dominance = dominance;
    }
    const unsigned most = static_cast<unsigned>(max_len) * 2;
    int* const holds = frame_array<int>(most);
    unsigned length = 0;
    const bool found = cadence.find_pattern(base, holds, most, &length, &pattern->phase);
    const unsigned room = static_cast<unsigned>(field_pattern_room(Globals_V4->effect_genotype));
    pattern->length = static_cast<int>(std::min(length, room));
    std::copy_n(holds, pattern->length, pattern->holds);
    frame_free(holds);
    return found && length <= room;
}

// Looks for the cadence from a frame of the clip on. False if the user aborted or a frame did not come.
bool detect(Node* node, int base, FieldPattern* pattern) {
    const int max_len = std::clamp(node->arg_vals[arg_max_len][0] >> fix_bits, 1, longest_search);
    const TwoFrames frames = planes_for_two_frames(node);
    FieldCompare compare(frames.planes, frames.planes + channels, channels, base, max_len + 1,
                         spark_info_ptr->TotalFrameNo, clip_number(node, arg_source));
    const bool found = search(&compare, node->arg_vals[arg_detect_dominance][0] > 0, base, max_len, pattern);
    frame_free(frames.own);
    if (render_aborted_p() || the_frame->failed) return false;
    if (!found) V_error(level_warning, "No pattern found!\n");
    return true;
}

// The output frame to show where the clip's frame was in hand while there was no pattern.
int find_pattern_for_buttons(Node* node, int frame, FieldPattern* pattern) {
    deinterlace_find_pattern_p = 0;
    if (!detect(node, frame, pattern)) return frame;
    store_field_pattern_in_buttons(Globals_V4->effect_genotype, *pattern);
    return std::min(frame, std::max(deinterlaced_frames(*pattern, spark_info_ptr->TotalFrameNo) - 1, 0));
}

}  // namespace

void image_auto_deinterlace(Node* node) {
    if (!clip_args_p(node)) {
        fail_frame();
        return;
    }
    FieldPattern pattern = read_field_pattern(Globals_V4->effect_genotype);
    int frame = output_frame_in_hand();
    if (deinterlace_find_pattern_p) {
        frame = find_pattern_for_buttons(node, frame, &pattern);
        if (render_aborted_p() || the_frame->failed) return;
    }
    if (pattern_frames(pattern) == 0) {
        V_error(level_error, "Can't deinterlace with zero-length pattern.");
        fatal_abort(1);
        return;
    }
    const int clip = clip_number(node, arg_source);
    const FramePair fields =
        fields_of_frame(pattern, frame, 2 * std::clamp(spark_info_ptr->TotalFrameNo, 1, most_cadence_frames));
    const auto field = [&](int at) { return ClipField{clip, at / 2, (at & 1) ^ pattern.dominance}; };
    interlace_get_frames(field(fields.first), field(fields.second), false, node->elnum, node->images);
}

}  // namespace velloran
