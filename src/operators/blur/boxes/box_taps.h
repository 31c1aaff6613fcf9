// Repeated boxes along a mirrored line with one delay line at most: where the samples come from.
//
// A pass takes out of its window what the pass before gave a window ago. The second of the passes does not ask for that
// to be kept: it is made once more, by another running sum over the line itself. That can be, as a box of a mirrored
// line is mirrored too and goes on beyond the ends. So
//
//     the second pass  at q        takes in the first at q + r1, and out the first at q - r1 - 1
//     the first        at those    takes samples in and out at q + r1 + r0, q + r1 - r0 - 1, and q - r1 - r0 - 2
//
// where the one in the middle is taken out by one sum and taken in by the other; with r1 = r0 + 1 two positions later.
// These three are the taps. What the third pass takes out is kept: made again it would cost more than it saves.
//
// Each sample is read three times, and one sum is written for the third pass. Loads that miss the first cache cost
// little, stores that do cost much: that makes wide windows nearly as fast as narrow ones.
//
// Positions run on beyond the line's ends, mirrored there. Of one task.
#pragma once

#include "operators/blur/boxes/box_lines.h"

namespace velloran {

constexpr int max_taps = 3;

struct BoxTaps {
    int n;         // samples of the line
    int n_passes;  // 1 to 3
    int radius[3];
    int shift[3];  // right shift of a pass's result
    bool late;     // the second radius is larger than the first: the middle tap is taken in two positions later
    int kept;      // positions of the line at hand, the last ones; n or more: all of them
    int delayed;   // positions of the third pass's delay line; 0: no such pass
};

// Radii that differ by 1 at most and do not decrease, no mix of two, and no window over both ends of the line.
bool box_taps_apply(const BoxLines& lines);
// kept: positions where the line comes in stages, a multiple of stage_positions (kept_positions); else n.
// least_delayed: positions that the delay line has at least; blocks are cut where it begins anew.
BoxTaps make_box_taps(const BoxLines& lines, int kept, int least_delayed);
int kept_positions(const BoxLines& lines);

// Passes start one after the other: while a pass runs over its first radius[] positions alone with those before it, its
// results are added up for the window of the next one. `active` is the number of passes that run, q a position of the
// last of them: 0 to radius[active] - 1, or to n - 1 if it is the last of all.

// Position of a tap, the first in front.
int tap_position(const BoxTaps& taps, int active, int tap, int q);
// Where a position of the line is kept.
int tap_slot(const BoxTaps& taps, int position);
// Positions at the line's start that work at q asks for.
int positions_wanted(const BoxTaps& taps, int active, int q);

// Slots that something runs through as q goes up.
struct SlotRun {
    int slot;
    int direction;  // 1 or -1
    int left;       // positions until it has to turn or to begin at another slot
};

struct TapRuns {
    int active;
    int q;
    SlotRun tap[max_taps];
    SlotRun keep, leave;  // of the delay line: results of the second pass that go in and that come out
    int count;            // positions that the next block has
};
TapRuns start_taps(const BoxTaps& taps, int active);
// Sets count: at most `most`, and as far as all run straight on.
void plan_block(const BoxTaps& taps, TapRuns& runs, int most);
// After a block.
void advance_taps(const BoxTaps& taps, TapRuns& runs);

}  // namespace velloran
