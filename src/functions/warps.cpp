// Images looked up elsewhere.
#include "functions/rows.h"

#include "compile/need_rect.h"
#include "compile/pass_rules.h"
#include "operators/warps/warp_functions.h"
#include "operators/warps/warps_rules.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name                  category          cost wt image    flags       run   aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {143, "warp",               category_warp,    6,   1, "0/0/4", "mip filt", "",   "1,0", image_warp,
      "image:c, coords:i, wrap:p, filter:p", "1<1221 2<2221 3<3221 4<4221",
      "image looked up at coordinates", {.pass = pass_warp, .need_rect = need_rect_plane, .filter_arg = 3}},
    {144, "warp_rel",           category_warp,    6,   1, "0/0/4", "mip",      "",   "1,0", image_warp_rel,
      "image:c, coords, wrap:p, filter:p", "1<1221 2<2221 3<3221 4<4221",
      "image looked up at the position plus an offset", {.pass = pass_unmoved, .need_rect = need_rect_plane}},
    {145, "warp_filter",        category_warp,    6,   0, "0/1/0", "mip filt", "",   "1,0", image_warp_filter,
      "image:c, coords:i, mipmap_levels, wrap:p", "1<1222 3<3222 4<4222",
      "image looked up at coordinates, softened by mipmap levels", {.pass = pass_warp, .need_rect = need_rect_plane}},
    {146, "blur_warp",          category_warp,    100, 1, "0/2/0", "",         "",   "1,0", image_blur_warp,
      "image:c, from_coords:c, to_coords:c, ends_brightness:p, scale:p, wrap:p, subpixel:p, log_res_factor:p",
      "1<12221211 2<22221211 3<32221211 4<42221211",
      "image smeared along the way between two warps", {.need_rect = need_rect_plane, .fold = fold_blur_warp, .most_images = 4}},
    {147, "repeat_warp",        category_warp,    4,   1, "0/1/0", "mip",      "r5", "1,0", image_repeat_warp,
      "image:c, from_coords:c, to_coords:c, ends_brightness:p, wrap:p, steps:p", "1<122221 2<222221 3<322221 4<422221",
      "images of several steps between two warps, added up", {.need_rect = need_rect_plane}},
    {148, "repeat_warp_filter", category_warp,    4,   1, "0/1/0", "mip filt", "r7", "1,0", image_repeat_warp_filter,
      "image:c, from_coords:c, to_coords:c, from_levels:p, to_levels:p, ends_brightness:p, wrap:p, steps:p",
      "1<12222221 2<22222221 3<32222221 4<42222221",
      "as repeat_warp, softened by mipmap levels", {.need_rect = need_rect_plane}},
    {149, "chroma_warp",        category_warp,    5,   1, "0/1/0", "mip",      "r4", "1,0", image_chroma_warp,
      "image:c, from_coords:c, to_coords:c, wrap:p, steps:p, color1:p, color2:p, color3:p, white_balance:p, "
      "brightness:p",
      "3<1222133311 3<3222133311 4<4222133311",
      "steps between two warps, each in its colour", {.need_rect = need_rect_plane, .fold = fold_chroma_warp}},
    {150, "chroma_warp_filter", category_warp,    5,   1, "0/1/0", "mip filt", "r6", "1,0", image_chroma_warp_filter,
      "image:c, from_coords:c, to_coords:c, from_levels:p, to_levels:p, wrap:p, steps:p, color1:p, color2:p, "
      "color3:p, white_balance:p, brightness:p",
      "3<122222133311 3<322222133311 4<422222133311",
      "as chroma_warp, softened by mipmap levels", {.need_rect = need_rect_plane, .fold = fold_chroma_warp_filter}},
    {151, "flys_eye",           category_pattern, 20,  1, "0/1/0", "mip",      "",   "1,0", image_flys_eye,
      "image:c, coords:c, frequency:p, shift:p, rotate:p, inside_zdist:p, inside_rotate:p, overall_zdist:p, "
      "edge_softness:p, wrap:p",
      "1<1222111112 2<2222111112 3<3222111112 4<4222111112",
      "image repeated in the facets of a fly's eye", {.need_rect = need_rect_plane}},
    {152, "drops",              category_pattern, 20,  1, "0/1/0", "",         "",   "1,0", image_drops,
      "image:c, coords:c, amplitude:p, frequency:p, phase:p, rotate:p, in_out_rads:p, in_out_soft:p, max_centers:p",
      "2<121211221", "offsets of rings that drops make on water", {.need_rect = need_rect_two_planes, .fold = fold_drops}},
};
// clang-format on

}  // namespace

const FunRows warps_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
