// The cadence that was taken away, laid over whole frames again.
#include "engine/clip_args.h"
#include "engine/evaluate.h"
#include "operators/fields/cadence.h"
#include "operators/fields/field_functions.h"
#include "operators/fields/field_pattern.h"
#include "operators/fields/interlace_get_frames.h"
#include "records/run_state.h"
#include "support/abort.h"
#include "support/errors.h"

namespace velloran {
namespace {

enum AutoReinterlaceArg : int { arg_source };

}  // namespace

void image_auto_reinterlace(Node* node) {
    if (!clip_args_p(node)) {
        fail_frame();
        return;
    }
    const FieldPattern pattern = read_field_pattern(Globals_V4->effect_genotype);
    if (pattern.length == 0) {
        V_error(level_warning, "No pattern, can't reinterlace.");
        eval_node_tree_into_images(node->args[arg_source], node->images, node->image_index, 1);
        return;
    }
    // No hold ever begins a picture that the others could go on with.
    if (pattern_frames(pattern) == 0) {
        V_error(level_error, "Illegal pattern.");
        fatal_abort(1);
        return;
    }
    const int frame = output_frame_in_hand();
    const int first = frame_of_field(pattern, 2 * frame), second = frame_of_field(pattern, 2 * frame + 1);
    const int clip = clip_number(node, arg_source);
    interlace_get_frames({clip, first, pattern.dominance}, {clip, second, 1 - pattern.dominance}, false, node->elnum,
                         node->images);
}

}  // namespace velloran
