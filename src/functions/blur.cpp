// Blurs.
#include "functions/rows.h"

#include "operators/blur/blur_functions.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name               category       cost wt image    flags   run   aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {120, "blur",            category_blur, 5,   1, "0/1/0", "long", "e1", "0,2", image_blur,
      "image:i, amount:p, filter_shape:p, scale:p, subpixel:p",
      "1<11111 1<12111 1<12121 2<21111 2<22111 2<22121 3<31111 3<32111 3<32131 3<32141 4<41111 4<42111 4<42141",
      "soft focus", {.pass = pass_blur, .need_rect = need_rect_blur}},
    {121, "blur_channels",   category_blur, 5,   1, "0/1/0", "long", "e1", "0,2", image_blur_channels,
      "image:i, amount:p, channel_amount:p, filter_shape:p, scale:p, subpixel:p",
      "3<323111 3<313111 3<123111 3<113111 2<222111 2<212111 2<122111 2<112111 3<323131 3<313131 3<123131 3<113131 "
      "2<222121 2<212121 2<122121 2<112121 1<124141 3<324141 4<424141",
      "soft focus with an amount for each channel", {.need_rect = need_rect_blur_channels}},
    {122, "masked_blur",     category_blur, 10,  0, "0/1/3", "long", "e2", "0,4", image_masked_blur,
      "image:i, mask:c, amount:p, filter_shape:p, subpixel:p",
      "1<11111 2<21111 3<31111 4<41111 1<11211 2<21211 3<31211 4<41211",
      "soft focus inside a mask", {.need_rect = need_rect_masked_blur}},
    {123, "dir_blur",        category_blur, 5,   1, "0/1/1", "long", "",   "1,0", image_dir_blur,
      "image:i, amount:p, angle:p, shift:p, edge_mode:p, scale:p, bias:p, filter:p",
      "1<11111111 2<22121111 3<33131111 4<44141111",
      "blur along a direction", {.pass = pass_dir_blur, .need_rect = need_rect_dir_blur}},
    {124, "masked_dir_blur", category_blur, 5,   1, "0/1/4", "long", "",   "1,0", image_masked_dir_blur,
      "image:i, mask:c, amount:p, angle:p, shift:p, edge_mode:p, scale:p, bias:p, filter:p",
      "1<111111111 2<212121111 3<313131111 4<414141111",
      "blur along a direction inside a mask", {.pass = pass_masked_dir_blur, .need_rect = need_rect_masked_dir_blur}},
};
// clang-format on

}  // namespace

const FunRows blur_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
