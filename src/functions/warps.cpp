// Look-ups of an image elsewhere, and coordinates that repeat.
#include "functions/rows.h"

#include "operators/pixel/pixel_funs.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    // name                 category          cost  wt  image    flags          pass  run   aux    function
    //   "arguments", "signatures", "meaning"
    { "warp",               category_warp,    6,    1,  "0/0/4", "nr mip filt", 'c',  "",   "1,0", no_code,
      "image:c, coords:i, wrap:p, filter:p", "1<1221 2<2221 3<3221 4<4221",
      "image looked up at coordinates", need_rect_plane},
    { "warp_rel",           category_warp,    6,    1,  "0/0/4", "nr mip",      'd',  "",   "1,0", no_code,
      "image:c, coords, wrap:p, filter:p", "1<1221 2<2221 3<3221 4<4221",
      "image looked up at the position plus an offset", need_rect_plane},
    { "warp_filter",        category_warp,    6,    0,  "0/1/0", "nr mip filt", 'c',  "",   "1,0", no_code,
      "image:c, coords:i, mipmap_levels, wrap:p", "1<1222 3<3222 4<4222",
      "image looked up at coordinates, softened by mipmap levels", need_rect_plane},
    { "blur_warp",          category_warp,    100,  1,  "0/2/0", "nr",           0 ,  "",   "1,0", no_code,
      "image:c, from_coords:c, to_coords:c, ends_brightness:p, scale:p, wrap:p, subpixel:p, log_res_factor:p",
      "1<12221211 2<22221211 3<32221211 4<42221211", "image smeared along the way between two warps", need_rect_plane},
    { "repeat_warp",        category_warp,    4,    1,  "0/1/0", "nr mip",       0 ,  "r5", "1,0", no_code,
      "image:c, from_coords:c, to_coords:c, ends_brightness:p, wrap:p, steps:p", "1<122221 2<222221 3<322221 4<422221",
      "images of several steps between two warps, added up", need_rect_plane},
    { "repeat_warp_filter", category_warp,    4,    1,  "0/1/0", "nr mip filt",  0 ,  "r7", "1,0", no_code,
      "image:c, from_coords:c, to_coords:c, from_levels:p, to_levels:p, ends_brightness:p, wrap:p, steps:p",
      "1<12222221 2<22222221 3<32222221 4<42222221", "as repeat_warp, softened by mipmap levels", need_rect_plane},
    { "chroma_warp",        category_warp,    5,    1,  "0/1/0", "nr mip",       0 ,  "r4", "1,0", no_code,
      "image:c, from_coords:c, to_coords:c, wrap:p, steps:p, color1:p, color2:p, color3:p, white_balance:p, "
      "brightness:p",
      "3<1222133311 3<3222133311 4<4222133311", "steps between two warps, each in its colour", need_rect_plane},
    { "chroma_warp_filter", category_warp,    5,    1,  "0/1/0", "nr mip filt",  0 ,  "r6", "1,0", no_code,
      "image:c, from_coords:c, to_coords:c, from_levels:p, to_levels:p, wrap:p, steps:p, color1:p, color2:p, "
      "color3:p, white_balance:p, brightness:p",
      "3<122222133311 3<322222133311 4<422222133311", "as chroma_warp, softened by mipmap levels", need_rect_plane},
    { "flys_eye",           category_pattern, 20,   1,  "0/1/0", "nr mip",       0 ,  "",   "1,0", no_code,
      "image:c, coords:c, frequency:p, shift:p, rotate:p, inside_zdist:p, inside_rotate:p, overall_zdist:p, "
      "edge_softness:p, wrap:p",
      "1<1222111112 2<2222111112 3<3222111112 4<4222111112",
      "image repeated in the facets of a fly's eye", need_rect_plane},
    { "drops",              category_pattern, 20,   1,  "0/1/0", "nr",           0 ,  "",   "1,0", no_code,
      "image:c, coords:c, amplitude:p, frequency:p, phase:p, rotate:p, in_out_rads:p, in_out_soft:p, max_centers:p",
      "2<121211221", "offsets of rings that drops make on water", need_rect_two_planes},
    { "paint",              category_paint,   10,   1,  "0/1/2", "nr long",      0 ,  "",   "3,0", no_code,
      "image:c, frequency:p, pre_blur:p, follow_grad:p, grad_blur:p, rand_seed:p",
      "1<111111 2<211111 3<311111 4<411111", "brush strokes laid over the image", need_rect_plane},
    { "edge_dist",          category_paint,   8,    0,  "0/1/1", "nc nr",        0 ,  "",   "1,0", no_code,
      "image:i, scale:p", "1<11", "distance from the nearest edge of a matte", need_rect_plane},
    { "kaleido",            category_kaleido, 4,    1,  "",      "",             0 ,  "",   "",    pixel_kaleido,
      "coords:c, scale", "2<21", "coordinates mirrored in triangles"},
    { "kaleido_diamonds",   category_kaleido, 4,    1,  "",      "",             0 ,  "",   "",    pixel_kaleido_diamonds,
      "coords:c, scale", "2<21", "coordinates mirrored in diamonds"},
    { "kaleido_oct",        category_kaleido, 4,    1,  "",      "",             0 ,  "",   "",    pixel_kaleido_oct,
      "coords:c, scale", "2<21", "coordinates mirrored in eight sectors"},
};
// clang-format on

}  // namespace

const FunRows warps_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
