// Slopes, edges and detail.
#include "functions/rows.h"

#include "compile/need_rect.h"
#include "operators/edges/edge_functions.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name                 category           cost wt image    flags    run aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {132, "band_pass",         category_blur,     10,  1, "0/1/1", "long",  "", "0,4", image_band_pass,
      "image:i, blur_amount1:p, blur_amount2:p, scale:p", "1<1111 2<2111 3<3111 1<1221 2<2221 3<3221",
      "detail between two blurs, around a middle grey", {.need_rect = need_rect_band_pass, .fold = fold_band_pass}},
    {133, "sharpen",           category_blur,     5,   1, "0/1/1", "long",  "", "0,2", image_sharpen,
      "image:i, scale:p, granularity:p", "1<111 2<211 3<311 4<411 3<331",
      "detail of one granularity added to the image", {.need_rect = need_rect_sharpen}},
    {137, "grad",              category_gradient, 5,   1, "0/1/0", "long",  "", "0,2", image_grad,
      "image:i, pre_blur:p, scale:p, subpixel_blur:p", "2<1111",
      "slope of the image in x and y", {.need_rect = need_rect_grad, .fold = fold_slopes}},
    {138, "grad_for_mipmap",   category_gradient, 5,   1, "0/1/0", "long",  "", "0,2", image_grad_for_mipmap,
      "image:i, scale:p, rel_p:p", "2<211",
      "scale of a warp's coordinates for filtered warps",
      {.need_rect = need_rect_grad_for_mipmap, .fold = fold_slopes}},
    {139, "edge_detect",       category_gradient, 5,   1, "0/1/0", "long",  "", "0,2", image_edge_detect,
      "image:i, pre_blur:p, scale:p, subpixel_blur:p", "1<1111 2<2111 3<3111",
      "strength of edges", {.need_rect = need_rect_edge_detect, .fold = fold_slopes}},
    {140, "grad_direction",    category_gradient, 5,   0, "0/1/0", "long",  "", "0,2", image_grad_direction,
      "image:i, pre_blur:p, offset:p, subpixel_blur:p", "1<1111 2<2111 3<3111",
      "direction of the slope in turns", {.need_rect = need_rect_grad_direction, .fold = fold_slopes}},
    {141, "grad_in_direction", category_gradient, 5,   1, "0/1/0", "long",  "", "0,2", image_grad_in_direction,
      "image:i, direction, pre_blur:p, subpixel_blur:p", "1<1211 2<2211 3<3211",
      "slope of the image along a direction", {.need_rect = need_rect_grad_in_direction, .fold = fold_slopes}},
    {142, "emboss",            category_gradient, 10,  1, "0/0/2", "long",  "", "8,0", image_emboss,
      "height_map:i, pre_blur:p, scale_height:p, surface_color, light_color:p, light_direction:p, specular:p, "
      "shininess:p, subpixel_blur:p",
      "3<111332111 3<111132111 3<111312111 4<111432111",
      "a height map lit from the side", {.need_rect = need_rect_emboss, .fold = fold_slopes}},
    {154, "edge_dist",         category_paint,    8,   0, "0/1/1", "nc",    "", "1,0", image_edge_dist,
      "image:i, scale:p", "1<11", "distance from the nearest edge of a matte", {.need_rect = need_rect_plane}},
    {200, "edgedetect_simple", category_other,    1,   0, "0/1/3", "whole", "", "1,0", image_edgedetect_simple,
      "source:i, threshold:p", "1<31", "1 where a pixel differs from a neighbour"},
};
// clang-format on

}  // namespace

const FunRows edges_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
