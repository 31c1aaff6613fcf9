#include "host/frame_mapping.h"

#include "operators/fields/field_pattern.h"
#include "params/field_pattern_buttons.h"
#include "records/run_state.h"

namespace velloran {

int n_dest_frames(int n) {
    Genotype* const genotype = Globals_V4->effect_genotype;
    if (!genotype || !changes_frame_count_p(Globals_V4->plugin_name)) return n;
    sync_field_pattern(genotype);
    return pattern_dest_frames(Globals_V4->plugin_name, genotype, n);
}

float real_dest_frame(int source, int frame, int) {
    // What is to be measured is the clip itself.
    if (deinterlace_find_pattern_p || !changes_frame_count_p(Globals_V4->plugin_name)) return static_cast<float>(frame);
    return frame < n_dest_frames(source) ? static_cast<float>(frame) : -1.0f;
}

}  // namespace velloran
