// A frame woven from fields of frames of other times. Host's thread, outside forks.
#pragma once

#include "records/fix_pixel.h"

namespace velloran {

struct ClipField {
    int clip;   // from 0
    int frame;  // held to the clip; below 0 the first
    int field;  // 0 the even rows, 1 the odd ones, row 0 being the bottom row
    bool operator==(const ClipField&) const = default;
};

// Fills vlen planes of the working geometry: rows of first's parity from it, the others from second; where both are of
// one parity, each of the others is the mean of the rows around it of second. swap: both are of the other parity. A
// frame that gives both fields is fetched once. A fourth plane is opaque, for clips have no alpha. False if the frame
// in hand has failed, which has been told, or the user aborted.
bool interlace_get_frames(ClipField first, ClipField second, bool swap, int vlen, const fix_plane* planes);

}  // namespace velloran
