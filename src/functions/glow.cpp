// Light that bleeds from bright parts.
#include "functions/rows.h"

#include "compile/need_rect.h"
#include "operators/glow/glow_functions.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name             category       cost wt image    flags   run   aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {134, "glow",          category_blur, 5,   0, "0/2/0", "long", "e3", "0,2", image_glow,
      "image:i, threshold:p, width_xy:p, width:p, brightness:p, scale_source:p, subpixel:p",
      "1<1121111 3<1121311 3<1123111 3<1123311 3<1323311 3<3121111 3<3121311 3<3123111 3<3123311 3<3321111 3<3321311 "
      "3<3323111 3<3323311 3<4323311", "light that bleeds from bright parts", {.need_rect = need_rect_glow}},
    {135, "glint",         category_blur, 10,  1, "0/2/1", "long", "",   "0,4", image_glint,
      "image:i, threshold:p, pre_blur:p, size:p, brightness:p, ray_sizes:p, ray_brightnesses:p, scale_source:p",
      "1<11111441 3<11113441 3<11131441 3<11133441 3<13133441 3<31111441 3<31113441 3<31131441 3<31133441 3<33111441 "
      "3<33113441 3<33131441 3<33133441 3<43133441", "star rays on bright parts", {.need_rect = need_rect_plane}},
    {136, "rainbow_glint", category_blur, 10,  1, "0/2/1", "long", "",   "0,4", image_rainbow_glint,
      "image:i, threshold:p, pre_blur:p, size:p, brightness:p, ray_sizes:p, ray_brightnesses:p, color_spread:p, "
      "scale_source:p",
      "3<111114421 3<311114421 3<331114421 3<111134421 3<131134421 3<311134421 3<331134421 3<431134421",
      "star rays on bright parts, split into colours", {.need_rect = need_rect_plane}},
};
// clang-format on

}  // namespace

const FunRows glow_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
