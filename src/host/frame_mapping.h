// How many frames come out of a clip, and which moment each shows. Effects that drop or add frames answer differently
// from all others. Host's thread; the selected effect's pattern is read from the controls.
#pragma once

namespace velloran {

// Number of output frames for a clip of n frames; 0: there is nothing to do.
int n_dest_frames(int n);

// The output frame that the host's frame stands for, for a clip of source frames; -1.0: none, the host counts on where
// no more come out. flag: how often the host has asked for this frame since it last asked for another; every time is
// alike.
float real_dest_frame(int source, int frame, int flag);

}  // namespace velloran
