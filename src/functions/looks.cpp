// Lightning, film looks, field tools, drawn things, and convolution.
#include "functions/rows.h"
#include "operators/convolve/convolve_functions.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    // name                category        cost  wt  image     flags                pass  run  aux    function
    //   "arguments", "signatures", "meaning"
    { "jpeg_damage",       category_other, 2,    0,  "0/1/0",  "nr long",            0 ,  "",  "1,0", no_code,
      "image:i, quality:p, scale_freqs:p, scale_xy_freqs:p, chroma_luma:p, error_rate:p, error_density:p, "
      "error_amp:p, error_coherence:p, seed:p, res_factor:p",
      "3<31322111112", "compression with faults on the way back", need_rect_plane},
    { "zap",               category_other, 2,    0,  "-1/1/0", "nc",                 0 ,  "",  "1,0", no_code,
      "start:p, end:p, vary_end:p, bolts:p, width_vary:p, end_pointiness:p, start_len:p, wrinkle_curve:p, "
      "branchiness:p, branch_ang_len:p, seed_phase:p",
      "1<22112122122", "lightning between two points"},
    { "zap_to",            category_other, 2,    0,  "0/1/0",  "nc nr",              0 ,  "",  "1,0", no_code,
      "to_obj:i, center:p, radius:p, bolts_points:p, width_vary:p, end_pointiness:p, start_len:p, wrinkle_amp:p, "
      "branchiness:p, branch_ang_len:p, seed_phase:p, threshold_show:p",
      "1<121221211222", "lightning from a point to an object", need_rect_plane},
    { "zap_from",          category_other, 2,    0,  "0/1/0",  "nc nr",              0 ,  "",  "1,0", no_code,
      "from_obj:i, max_len_vary:p, vary_spacing:p, bolts:p, width_vary:p, end_pointiness:p, start_len:p, "
      "wrinkle_curve:p, branchiness:p, branch_ang_len:p, seed_phase:p, threshold_show:p",
      "1<121121221222", "lightning out of an object", need_rect_plane},
    { "zap_from_mask",     category_other, 2,    0,  "0/2/0",  "nc nr",              0 ,  "",  "1,0", no_code,
      "from_obj:i, mask:i, max_len_vary_spacing:p, bolts:p, width_vary:p, end_pointiness:p, start_len:p, "
      "wrinkle_curve:p, branchiness:p, branch_ang_len:p, seed_phase:p, threshold_show:p",
      "1<113121221222", "lightning out of an object, inside a mask", need_rect_two_planes},
    { "draw_grid",         category_other, 2,    0,  "-1/1/0", "nc",                 0 ,  "",  "1,0", no_code,
      "boxes:p, line_width:p, center:p, size:p, z_dist:p, latitude:p, swing:p, roll:p, tele_lens_width:p, "
      "major_line_spacing:p, major_line_width:p",
      "1<22221111111", "a grid of lines on a plane in space"},
    { "film_effect",       category_other, 2,    0,  "0/1/1",  "nc fr ncache long",  0 ,  "",  "1,0", no_code,
      "image:i, films_fields_blur:p, cc_gammas:p, neg_exposure:p, print_exposure:p, offset_scale:p, "
      "glow_brightness:p, glow_soft_focus:p, glow_width:p, grain_amp:p, midtones_mono:p, grain_blur:p, grain_misc:p",
      "3<3441323133434 4<4441323133434", "the look of a film stock", need_rect_plane},
    { "grain",             category_other, 2,    0,  "0/1/1",  "nc fr ncache long",  0 ,  "",  "1,0", no_code,
      "image:i, grain_amp:p, midtones:p, darks_brights:p, grain_mono:p, grain_blur:p, grain_hold:p, seed:p",
      "3<33321311 4<43321311", "film grain"},
    { "auto_deinterlace",  category_other, 2,    0,  "0/2/0",  "",                   0 ,  "",  "1,0", no_code,
      "source:i, max_len:p, detect_dominance:p", "1<111 2<211 3<311 4<411",
      "whole frames out of a clip with fields or pulldown", need_rect_plane},
    { "auto_reinterlace",  category_other, 2,    0,  "0/2/0",  "",                   0 ,  "",  "1,0", no_code,
      "source:i", "any1", "the fields or pulldown that auto_deinterlace took away", need_rect_plane},
    { "gradient_n",        category_other, 1,    0,  "-1/1/0", "nc",                 0 ,  "",  "1,0", no_code,
      "n_points:p, p12:p, p34:p, p56:p, color1:p, color2:p, color3:p, color4:p, color5:p, color6:p, scale_soft:p, "
      "softness123:p, softness456:p, size123:p, size456:p",
      "3<144433333313333", "gradient between up to six points of colour"},
    { "light_3d",          category_other, 1,    0,  "",       "",                   0 ,  "",  "",    no_code,
      "source:i, normal:i, hilite_brights:p, hilite_sizes:p, diffuse_brights:p, ambient_bright:p, light_enables:p, "
      "light_color1:p, light_color2:p, light_color3:p, light_color4:p, light_dir1:p, light_dir2:p, light_dir3:p, "
      "light_dir4:p",
      "3<334441433333333", "up to four lights on a surface with normals"},
    { "edgedetect_simple", category_other, 1,    0,  "0/1/3",  "",                   0 ,  "",  "1,0", no_code,
      "source:i, threshold:p", "1<31", "1 where a pixel differs from a neighbour", need_rect_stencil_only},
    { "deband",            category_other, 1,    0,  "0/2/1",  "",                  'g',  "",  "1,0", no_code,
      "source:i, mask:i, threshold:p, radius:p, converge_rate:p", "3<31111",
      "bands broken up by pixels found at random nearby", need_rect_two_planes},
    { "draw_shape",        category_other, 1,    0,  "0/1/0",  "nc",                 0 ,  "",  "1,0", no_code,
      "type:p, center:p, size:p, points:p, pointiness:p, roundness:p, swirl:p, rotate:p, color:p",
      "1<122111121 3<122111123 4<122111124", "a polygon or star, softly filled"},
    { "convolve",          category_basic, 1,    1,  "0/2/0",  "long",               0 ,  "",  "1,0", image_convolve,
      "image, kernel, kernel_min:p, kernel_max:p, kernel_center:p, kernel_xyscale:p, gamma:p, dest_scale:p, "
      "kernel_color_p:p, autocenter_p:p, edge_type:p, autoscale_type:p, threshold:p, boost_highlights:p, "
      "highlight_threshold:p",
      "1<112222111121111 3<312222111121311 4<412222111121311 3<332222111121311 4<442222111121311",
      "image convolved with another as kernel", need_rect_two_planes},
};
// clang-format on

}  // namespace

const FunRows looks_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
