// What the files of the evaluation share among themselves.
#pragma once

#include "engine/evaluate.h"
#include "records/rinfo.h"

#include <cstdint>

namespace velloran {

inline void tell(EvalEvent event, const Node* node) {
    if (eval_hook) eval_hook(event, node);
}

// First byte of the frame of an input, from 0; null: there is none.
const void* input_frame(int input);

// Where image_line_writer puts its samples. n planes.
void set_eval_target_planes(fix_plane* planes, int n);
void image_line_writer(Node* root, int column, int row, int offset);
void long_image_line_writer(Node* root, int column, int row, int offset);

struct LineSlots {
    int count;             // lines that are live at once
    int16_t slot[200][4];  // of each element of each node of eval_nodes
};
// Gives every node of eval_nodes lines for its elements. A line serves again once all readers of its value have run,
// but never for a reader itself.
void assign_line_slots(LineSlots* slots);

}  // namespace velloran
