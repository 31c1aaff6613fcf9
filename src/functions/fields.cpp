// Fields: taking them apart and weaving them together.
#include "functions/rows.h"

#include "operators/fields/field_functions.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name                category        cost wt image    flags    run aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {183, "extract_field",    category_other, 2,   0, "0/1/0", "",      "", "0,1", image_extract_field,
      "image:i, field:p", "1<11 3<31 4<41", "one field of an image, the other filled in",
      {.need_rect = need_rect_extract_field}},
    {184, "interlace",        category_other, 2,   0, "",      "nc hold", "", "",  pixel_interlace,
      "frame1:i, frame2:i, dominance:p", "1<111 1<221 1<331 1<441", "a frame woven from the fields of two images"},
    {196, "auto_deinterlace", category_other, 2,   0, "0/2/0", "nc of whole", "", "1,0", image_auto_deinterlace,
      "source:i, max_len:p, detect_dominance:p", "1<111 2<211 3<311 4<411",
      "whole frames out of a clip with fields or pulldown"},
    {197, "auto_reinterlace", category_other, 2,   0, "0/2/0", "nc of whole", "", "1,0", image_auto_reinterlace,
      "source:i", "any1", "the fields or pulldown that auto_deinterlace took away"},
};
// clang-format on

}  // namespace

const FunRows fields_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
