// What somebody who watches a frame being made learns of it. Fields only; engine/watch.h fills them.
#pragma once

#include "records/genotype.h"

#include <cstddef>
#include <cstdint>

namespace velloran {

constexpr int max_watched_nodes = 4096;  // rows that a genotype may have

// How a node's value came about.
enum WatchedWay : uint8_t {
    way_none = 0,        // nobody wanted it in this frame
    way_row = 1,         // a function of rows, in a pass with others
    way_fused = 2,       // part of a pass that ran as one loop
    way_table = 3,       // looked up in a table, in such a pass
    way_image = 4,       // a function of whole images
    way_read = 5,        // an input, read from the host's frame
    way_coordinate = 6,  // counted along the row
    way_kept = 7         // its images stood from an earlier frame
};

struct WatchedNode {
    int32_t value[4];  // at the watched pixel
    bool has_value;    // false: nobody made it there
    WatchedWay way;
    int16_t pass;         // node whose pass it is worked in, -1 none
    int64_t nanoseconds;  // of wall time, without what was made for it
    size_t plane_bytes;   // planes of its own
    size_t line_bytes;    // lines of each task
    size_t work_bytes;    // most memory that its function held for the frame at once
    size_t shared_bytes;  // mipmap and long image, which such functions take in turn
};

// A node, or a pass, whose time is being taken.
struct WatchSpan {
    int node;  // -1: no row of the genotype
    int64_t start, inner;
    size_t bytes_before, peak;
};

// Written on the host's thread, outside forks.
struct FrameWatch {
    int column, row;           // pixel of the full frame, from the bottom left; -1: none
    const Genotype* genotype;  // of the frame that was watched; null: none was made
    bool whole;                // it came to its end
    int64_t nanoseconds;       // of evaluating it
    size_t plane_bytes;        // of one plane
    int depth;
    WatchSpan spans[16];
    WatchedNode nodes[max_watched_nodes];
};

}  // namespace velloran
