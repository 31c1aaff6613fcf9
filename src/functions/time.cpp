// Frames of other times, and the output of the frame before.
#include "functions/rows.h"

#include "engine/images.h"
#include "operators/fields/field_functions.h"
#include "operators/time/time_functions.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name                    category         cost wt image    flags               run aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {180, "time_warp",            category_frames, 5,   0, "0/1/0", "of tw long",       "", "1,0", image_time_warp,
      "clip:i, frame, interp:p", "1<111 3<311 4<411", "clip at another time, mixed from the frames around it"},
    {181, "get_frame",            category_frames, 2,   0, "0/1/0", "of",               "", "1,0", image_get_frame,
      "clip:i, frame:p, interp:p", "1<111 3<311 4<411", "another frame of a clip"},
    {182, "interlace_get_frames", category_frames, 3,   0, "0/1/0", "nc of",            "", "1,0",
      image_interlace_get_frames,
      "clip0:i, frame0:p, field0:p, clip1:i, frame1:p, field1:p, rev_field_mode:p, field_dominance:p",
      "1<11111111 3<31131111 4<41141111", "a frame woven from fields of two others"},
    {187, "get_prev_dest",        category_other,  2,   0, "0/0/3", "nc fr own ncache", "", "1,0", image_get_prev_dest,
      "init_value", "3<1 3<3 4<4", "the result of the frame before"},
};
// clang-format on

}  // namespace

const FunRows time_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
