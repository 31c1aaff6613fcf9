// Looks of their own kind: paint, light, gradients, damage and its repair, and means over a region.
#include "functions/rows.h"

#include "compile/need_rect.h"
#include "operators/looks/looks_functions.h"
#include "operators/looks/looks_rules.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name            category        cost wt image     flags    run aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {153, "paint",        category_paint, 10,  1, "0/1/2",  "long",  "", "3,0", image_paint,
      "image:c, frequency:p, pre_blur:p, follow_grad:p, grad_blur:p, rand_seed:p",
      "1<111111 2<211111 3<311111 4<411111", "brush strokes laid over the image", {.need_rect = need_rect_plane}},
    {185, "ave_in_rect",  category_other, 2,   0, "0/1/0",  "",      "", "0,1", image_ave_in_rect,
      "image:i, rect_center:p, rect_size:p", "1<122 2<222 3<322 4<422",
      "mean of the image in a rectangle", {.need_rect = need_rect_plane}},
    {186, "ave_in_matte", category_other, 2,   0, "0/1/1",  "",      "", "0,1", image_ave_in_matte,
      "image:i, matte", "1<11 2<21 3<31 4<41",
      "mean of the image inside a matte", {.need_rect = need_rect_two_planes}},
    {188, "jpeg_damage",  category_other, 2,   0, "0/1/0",  "long",  "", "1,0", image_jpeg_damage,
      "image:i, quality:p, scale_freqs:p, scale_xy_freqs:p, chroma_luma:p, error_rate:p, error_density:p, "
      "error_amp:p, error_coherence:p, seed:p, res_factor:p",
      "3<31322111112", "compression with faults on the way back", {.need_rect = need_rect_plane}},
    {198, "gradient_n",   category_other, 1,   0, "-1/1/0", "nc",    "", "1,0", image_gradient_n,
      "n_points:p, p12:p, p34:p, p56:p, color1:p, color2:p, color3:p, color4:p, color5:p, color6:p, scale_soft:p, "
      "softness123:p, softness456:p, size123:p, size456:p",
      "3<144433333313333", "gradient between up to six points of colour"},
    {199, "light_3d",     category_other, 1,   0, "",       "",      "", "",    pixel_light_3d,
      "source:i, normal:i, hilite_brights:p, hilite_sizes:p, diffuse_brights:p, ambient_bright:p, light_enables:p, "
      "light_color1:p, light_color2:p, light_color3:p, light_color4:p, light_dir1:p, light_dir2:p, light_dir3:p, "
      "light_dir4:p",
      "3<334441433333333", "up to four lights on a surface with normals"},
    {201, "deband",       category_other, 1,   0, "0/2/1",  "fr whole", "", "1,0", image_deband,
      "source:i, mask:i, threshold:p, radius:p, converge_rate:p", "3<31111",
      "bands broken up by pixels found at random nearby", {.pass = pass_deband}},
};
// clang-format on

}  // namespace

const FunRows looks_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
