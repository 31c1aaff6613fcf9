// The two ways in which boxes are worked along lines; box_lines.h chooses between them.
#pragma once

#include "operators/blur/boxes/box_lines.h"

#include <cstddef>

namespace velloran {

struct BoxLinesRows {
    BoxLinesFunction rows, columns;
};

// Rows are staged as lanes: positions taken in at a time, a multiple of 32, and room for those that wait to go out.
constexpr int stage_positions = 64;
constexpr int stage_out_positions = stage_positions + row_lanes;

// Where a group of columns is worked in parts, or goes by way of a stage: the positions of a block, so few that it
// stays in the first cache.
constexpr int part_positions = 32;

// Delay lines between the passes: any lines, and in place.
const BoxLinesRows& box_chain_rows();
size_t box_chain_scratch(const BoxLines& lines, int lanes);

// Sums that are made again where they leave a window: lines for which box_taps_apply, rows of a plane, columns of a
// long image that go to a plane.
const BoxLinesRows& box_tap_rows();
size_t box_tap_scratch(const BoxLines& lines);

}  // namespace velloran
