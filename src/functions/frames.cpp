// Other frames of a clip, fields, measurements over a frame, and feedback.
#include "functions/rows.h"

#include "engine/images.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    // name                   category         cost  wt  image    flags               pass  run  aux    function
    //   "arguments", "signatures", "meaning"
    { "time_warp",            category_frames, 5,    0,  "0/1/0", "of tw long",        0 ,  "",  "1,0", no_code,
      "clip:i, frame, interp:p", "1<111 3<311 4<411", "clip at another time, mixed from the frames around it"},
    { "get_frame",            category_frames, 2,    0,  "0/1/0", "of",                0 ,  "",  "1,0", no_code,
      "clip:i, frame:p, interp:p", "1<111 3<311 4<411", "another frame of a clip"},
    { "interlace_get_frames", category_frames, 3,    0,  "0/1/0", "of",                0 ,  "",  "1,0", no_code,
      "clip0:i, frame0:p, field0:p, clip1:i, frame1:p, field1:p, rev_field_mode:p, field_dominance:p",
      "1<11111111 3<31131111 4<41141111", "a frame woven from fields of two others"},
    { "extract_field",        category_other,  2,    0,  "0/1/0", "",                  0 ,  "",  "0,1", no_code,
      "image:i, field:p", "1<11 3<31 4<41", "one field of an image, the other filled in", need_rect_plane},
    { "interlace",            category_other,  2,    0,  "",      "",                  0 ,  "",  "",    no_code,
      "frame1:i, frame2:i, dominance:p", "1<111 1<221 1<331 1<441",
      "a frame woven from the fields of two images", need_rect_two_planes},
    { "ave_in_rect",          category_other,  2,    0,  "0/1/0", "nr",                0 ,  "",  "0,1", no_code,
      "image:i, rect_center:p, rect_size:p", "1<122 2<222 3<322 4<422",
      "mean of the image in a rectangle", need_rect_plane},
    { "ave_in_matte",         category_other,  2,    0,  "0/1/1", "nr",                0 ,  "",  "0,1", no_code,
      "image:i, matte", "1<11 2<21 3<31 4<41", "mean of the image inside a matte", need_rect_two_planes},
    { "get_prev_dest",        category_other,  2,    0,  "0/0/3", "nc fr own ncache",  0 ,  "",  "1,0", image_get_prev_dest,
      "init_value", "3<1 3<3 4<4", "the result of the frame before"},
};
// clang-format on

}  // namespace

const FunRows frames_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
