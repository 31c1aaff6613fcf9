// How the passes of a repeated box filter follow each other along a line: what the row functions of box_lines.h work in
// one loop at a time.
//
// What a pass still has to take out of its window lies in a delay line of its own, lanes samples for each position. A
// long window's delay line is a ring of the window's length: the sample that leaves is the one whose place the new
// sample takes, one cache line per pass and position. A short window's is a little longer and moved down when it is
// full, so that it need not wrap every few positions.
//
// A line is cut into blocks of positions within which every stream of samples runs straight on: no delay line wraps, no
// edge turns a stream around. At a line's start the first passes run alone until the next one's window is half full,
// and at its end those that are through drop out and the next one takes its input from its own delay line, mirrored.
//
// Of one task, in its scratch memory.
#pragma once

#include "operators/blur/boxes/box_lines.h"

#include <cstddef>
#include <cstdint>

namespace velloran {

// A pass on its way along the line. Arrays hold a lane each.
struct BoxRun {
    const BoxPass* pass;
    int32_t* delay;
    int taken;              // samples that came in: the next one leads the window around position taken - pass->hi
    int slot;               // position in the delay line where it goes
    int32_t *sum, *sum_lo;  // of the windows; sum_lo where the radii differ
    int32_t* before;        // the sample that came before, likewise
};

struct BoxChain {
    int n;
    bool mirror;
    int lanes;
    int n_passes;
    int window;    // the widest
    int capacity;  // of the delay lines, in positions
    BoxRun passes[3];
    const int32_t* zeros;  // a lane each
};

// Samples read one after the other; step, in elements, is lanes, -lanes, or 0 for zeros.
struct BoxStream {
    const int32_t* at;
    ptrdiff_t step;
};

// What one pass reads and writes within a block.
struct BoxStreams {
    BoxStream trail, trail_lo;  // samples that leave the windows
    int32_t* keep;              // where the leading samples go, one position after the other
};

struct BoxBlock {
    int first, last;  // passes [first, last) work
    int starting;     // the pass among them whose sums are still to be started; -1: none
    int filling;      // the pass into whose delay line the block's result goes; -1: out of the chain
    bool from_delay;  // input comes from the first pass's own delay line
    BoxStream lead;   // if so
    bool steady;      // all samples that leave the wider windows are read forward
    int count;        // positions
    BoxStreams passes[3];
};

// Positions of scratch, lanes samples each, that a chain takes.
int chain_positions(const BoxLines& lines, int lanes);
// At the start of a line. lines and scratch stay in use.
void set_up_chain(BoxChain& chain, const BoxLines& lines, int lanes, int32_t* scratch);

// Plans the next block: at most `available` samples of the source, at most `room` results out of the chain. One of the
// two is above 0 as long as the line has not come to its end. What a block does not use is left as it was.
void next_block(const BoxChain& chain, int available, int room, BoxBlock& block);
// After the work on it.
void finish_block(BoxChain& chain, const BoxBlock& block);

// Where a position stands that the pass has taken, at most a window ago.
int slot_of(const BoxChain& chain, const BoxRun& run, int position);

}  // namespace velloran
