// Frames that are asked for while one is being made: the host may run other plug-ins of this library to make them, in
// the same call. Host's thread, outside forks.
#pragma once

namespace velloran {

struct Frame;

// Makes own the frame in hand: a copy of the one before it, without its memory. Answers the one before it.
Frame* begin_inner_frame(Frame* own);
// Gives the memory of the frame in hand back and takes outer up again.
void end_inner_frame(Frame* outer);

// Fetches a frame of an input (from 0) into buffer through the host; answers buffer, also when nothing was fetched,
// which fails the frame in hand.
void* get_frame_from_host(int input, int frame, void* buffer);

}  // namespace velloran
