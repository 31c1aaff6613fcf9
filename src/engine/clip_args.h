// Arguments that name a clip: functions that read frames of other times want an input there, and not a picture made of
// one. In the function table they are the arguments marked as images of functions that read other frames.
#pragma once

#include "records/node.h"

namespace velloran {

// Number, from 0, of the input that argument arg of the node is in this frame; -1: it is none.
int clip_number(const Node* node, int arg);

// True if all arguments of the node that name clips do so; else a message at level 8.
bool clip_args_p(const Node* node);

}  // namespace velloran
