#include "engine/evaluate.h"
#include "operators/fields/field_functions.h"
#include "operators/pixel/node_rows.h"

namespace velloran {
namespace {

enum InterlaceArg : int { arg_frame1, arg_frame2, arg_dominance };

}  // namespace

void pixel_interlace(Node* node) {
    const int first_field = node->arg_vals[arg_dominance][0] > 0;
    const int from = (eval_block_row & 1) == first_field ? arg_frame1 : arg_frame2;
    for (int e = node->elnum - 1; e >= 0; --e) copy_line(node->lines[e], arg_line(node, from, e));
}

}  // namespace velloran
