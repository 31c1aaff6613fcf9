// How many frames come out of a clip, and which moment each shows. Effects that drop or double frames answer
// differently from all others.
#pragma once

namespace velloran {

// Number of output frames for a clip of total frames; 0: there is nothing to do.
int n_dest_frames(int total, int frame);

// The moment, in frames of the clip, that output frame shows at its call-th call; -1.0: none.
float real_dest_frame(int total, int frame, int call);

}  // namespace velloran
