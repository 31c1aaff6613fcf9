// A frame that somebody watches: what each node gave for a pixel, and what it took. Nothing of this runs, and no clock
// is read, while Globals_V4->watch is null. Values are those of the frame itself: before a pass is run, the blocks of
// the watched row are worked once more by the row functions, which define the picture; images are looked at as soon
// as they are made, since their planes serve again. Host's thread, outside forks, but for what is said of PassTimes.
#pragma once

#include "records/frame_watch.h"
#include "records/run_state.h"

#include <atomic>
#include <cstdint>

namespace velloran {

int64_t watch_clock();  // nanoseconds

// Time of the parts of a pass, summed over its tasks: of each node of eval_nodes, of reading each input, and of taking
// the results away.
struct PassTimes {
    std::atomic<int64_t> nodes[200];
    std::atomic<int64_t> inputs[MAX_INPUTS];
    std::atomic<int64_t> out;
};

// A new frame of that genotype; and its end.
void start_watch(FrameWatch* watch, const Genotype* genotype);
void end_watch(FrameWatch* watch, bool whole);

// Row of the watched genotype, or -1.
int watched_row(const FrameWatch* watch, const Node* node);

// Takes the time of what runs until the matching end, without that of what is taken inside. Nothing is left open where
// the fatal abort passes: the next frame starts anew.
void begin_span(FrameWatch* watch, const Node* node);
void end_span(FrameWatch* watch, WatchedWay way);
void end_image_function(FrameWatch* watch, const Node* node);
// Of a pass worked by row functions: its time is shared among its nodes as they took it. root_takes: results go to the
// root's own images or the frame, and not to the function that asked for them.
void end_row_pass(FrameWatch* watch, const PassTimes& times, bool root_takes);
// Of a pass that ran as one loop.
void end_fused_pass(FrameWatch* watch);

// The sample of the working area's planes that covers the watched pixel; false: none does.
bool watched_sample(const FrameWatch* watch, int* column, int* row);
// The first value that is told of a node stands; made: this one counts more.
void watch_value(FrameWatch* watch, const Node* node, const int32_t* value, int n, bool made);
// The value of node is in planes, its own or another's.
void watch_planes(FrameWatch* watch, const Node* node, const fix_plane* planes, int n);

}  // namespace velloran
