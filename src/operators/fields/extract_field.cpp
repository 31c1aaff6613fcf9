#include "compile/need_reach.h"
#include "engine/evaluate.h"
#include "operators/fields/field_functions.h"
#include "operators/fields/field_rows.h"
#include "records/run_state.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

namespace velloran {
namespace {

enum ExtractFieldArg : int { arg_image, arg_field };

}  // namespace

void image_extract_field(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    const int field = node->arg_vals[arg_field][0] > 0;
    const rinfo& working = the_frame->temp_raster_info;
    const int width = working.width, height = working.height, bottom = first_working_row();
    // Rows of the field are read and the others written, so the work can be done in place by any number of tasks.
    fork_rows_if_big_image(width, height, [&](int first, int n) {
        for (int y = first; y < first + n; ++y) {
            if (((bottom + y) & 1) == field) continue;
            if (poll_abort()) return;
            for (int c = 0; c < node->elnum; ++c) make_row_from_neighbours(node->images[c], width, height, y);
        }
    });
}

void need_rect_extract_field(Node* node) { need::filter(node, 1, {0, 1}); }

}  // namespace velloran
