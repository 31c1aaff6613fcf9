// Blurs, defocus, glows, and slopes and edges.
#include "functions/rows.h"
#include "operators/blur/blur_functions.h"
#include "operators/edges/edge_functions.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    // name                category           cost  wt  image     flags      pass  run      aux    function
    //   "arguments", "signatures", "meaning"
    { "blur",              category_blur,     5,    1,  "0/1/0",  "nr long", 'Z',  "e1",    "0,2", image_blur,
      "image:i, amount:p, filter_shape:p, scale:p, subpixel:p",
      "1<11111 1<12111 1<12121 2<21111 2<22111 2<22121 3<31111 3<32111 3<32131 3<32141 4<41111 4<42111 4<42141",
      "soft focus", need_rect_blur},
    { "blur_channels",     category_blur,     5,    1,  "0/1/0",  "nr long",  0 ,  "e1",    "0,2", image_blur_channels,
      "image:i, amount:p, channel_amount:p, filter_shape:p, scale:p, subpixel:p",
      "3<323111 3<313111 3<123111 3<113111 2<222111 2<212111 2<122111 2<112111 3<323131 3<313131 3<123131 3<113131 "
      "2<222121 2<212121 2<122121 2<112121 1<124141 3<324141 4<424141",
      "soft focus with an amount for each channel", need_rect_blur_channels},
    { "masked_blur",       category_blur,     10,   0,  "0/1/3",  "nr long",  0 ,  "e2",    "0,4", image_masked_blur,
      "image:i, mask:c, amount:p, filter_shape:p, subpixel:p",
      "1<11111 2<21111 3<31111 4<41111 1<11211 2<21211 3<31211 4<41211",
      "soft focus inside a mask", need_rect_masked_blur},
    { "dir_blur",          category_blur,     5,    1,  "0/1/1",  "nr long", 'a',  "",      "1,0", image_dir_blur,
      "image:i, amount:p, angle:p, shift:p, edge_mode:p, scale:p, bias:p, filter:p",
      "1<11111111 2<22121111 3<33131111 4<44141111", "blur along a direction", need_rect_dir_blur},
    { "masked_dir_blur",   category_blur,     5,    1,  "0/1/4",  "nr long", 'b',  "",      "1,0", image_masked_dir_blur,
      "image:i, mask:c, amount:p, angle:p, shift:p, edge_mode:p, scale:p, bias:p, filter:p",
      "1<111111111 2<212121111 3<313131111 4<414141111",
      "blur along a direction inside a mask", need_rect_masked_dir_blur},
    { "defocus",           category_blur,     300,  1,  "0/1/1",  "nr long",  0 ,  "r1",    "0,1", no_code,
      "image:i, radius:p, gamma:p, scale:p, subpixel:p, shape:p",
      "1<111111 2<211111 3<311111 4<411111 1<121111 2<221111 3<321111 4<421111",
      "blur by a lens out of focus", need_rect_defocus},
    { "defocus_adv",       category_blur,     5,    1,  "0/1/1",  "nr long",  0 ,  "r1",    "0,1", no_code,
      "image:i, radii:p, nsides:p, pointiness:p, rotate:p, gamma:p, scale:p, bokeh:p, noise_freq:p, noise_amp:p, "
      "noise_seed:p, edge_mode:p, show_shape:p, boost_highlights:p, highlight_threshold:p",
      "1<121111112111111 2<221111112111111 3<321111112111111 4<421111112111111",
      "blur by a lens out of focus, with its aperture described", need_rect_plane},
    { "defocus_prism_adv", category_blur,     5,    1,  "0/1/1",  "nr long",  0 ,  "r1",    "0,1", no_code,
      "image:i, radii_x:p, radii_y:p, ring_radii_x:p, ring_radii_y:p, nsides:p, pointiness:p, rotate:p, gamma:p, "
      "scale:p, bokeh:p, noise_freq_amp_seed:p, edge_mode:p, show_shape:p, highlight_boost_thresh:p",
      "3<133331111314112 3<333331111314112 4<433331111314112 4<144441111314112 4<244441111314112 4<344441111314112 "
      "4<444441111314112", "the same with radii of their own for each channel", need_rect_plane},
    { "z_blur",            category_blur,     5,    0,  "0/4/8",  "nr long",  0 ,  "r2 s2", "2,2", no_code,
      "image:i, zbuffer:c, n_layers:p, combine:p, focal_point:p, depth_of_field:p, blur_amount:p, blur_near:p, "
      "blur_far:p",
      "1<111111211 3<311111211 4<411111211", "blur that grows with the distance from the focal depth", need_rect_plane},
    { "z_glow",            category_blur,     5,    0,  "0/2/4",  "nr long",  0 ,  "r2 s2", "2,2", no_code,
      "image:i, zbuffer:c, n_layers:p, combine:p, width_near:p, width_far:p, width_xy_near:p, width_xy_far:p, "
      "brightness_near:p, brightness_far:p",
      "3<3111332233", "glow that varies with depth", need_rect_plane},
    { "z_defocus",         category_blur,     5,    0,  "0/4/9",  "nr long",  0 ,  "r2 s2", "2,2", no_code,
      "image:i, zbuffer:c, n_layers:p, combine:p, focal_point:p, depth_of_field:p, width:p, lens_shape:p, "
      "noise_freq:p, noise_amp:p, noise_seed:p, use_gamma:p, brightness:p, edge_mode:p, rel_nearfar:p",
      "3<311111242111112 4<411111242111112",
      "lens blur that grows with the distance from the focal depth", need_rect_plane},
    { "z_convolve",        category_basic,    1,    1,  "0/4/11", "long",     0 ,  "r3 s3", "2,2", no_code,
      "image, kernel, z_buffer, z_args:p, kernel_scale:p, scale_rel_nearfar:p, kernel_minmax:p, kernel_center:p, "
      "gamma:p, dest_scale:p, autocenter_p:p, edge_type:p, autoscale_type:p, convolve_alpha_p:p, threshold:p",
      "1<111422421112113 3<311422421112113 4<411422421112113",
      "convolution with a kernel that grows with depth", need_rect_plane},
    { "band_pass",         category_blur,     10,   1,  "0/1/1",  "nr long",  0 ,  "",      "0,4", image_band_pass,
      "image:i, blur_amount1:p, blur_amount2:p, scale:p", "1<1111 2<2111 3<3111 1<1221 2<2221 3<3221",
      "detail between two blurs, around a middle grey", need_rect_band_pass},
    { "sharpen",           category_blur,     5,    1,  "0/1/1",  "nr long",  0 ,  "",      "0,2", image_sharpen,
      "image:i, scale:p, granularity:p", "1<111 2<211 3<311 4<411 3<331",
      "detail of one granularity added to the image", need_rect_sharpen},
    { "glow",              category_blur,     5,    0,  "0/2/0",  "nr long",  0 ,  "e3",    "0,2", no_code,
      "image:i, threshold:p, width_xy:p, width:p, brightness:p, scale_source:p, subpixel:p",
      "1<1121111 3<1121311 3<1123111 3<1123311 3<1323311 3<3121111 3<3121311 3<3123111 3<3123311 3<3321111 3<3321311 "
      "3<3323111 3<3323311 3<4323311", "light that bleeds from bright parts", need_rect_glow},
    { "glint",             category_blur,     10,   1,  "0/2/1",  "nr long",  0 ,  "",      "0,4", no_code,
      "image:i, threshold:p, pre_blur:p, size:p, brightness:p, ray_sizes:p, ray_brightnesses:p, scale_source:p",
      "1<11111441 3<11113441 3<11131441 3<11133441 3<13133441 3<31111441 3<31113441 3<31131441 3<31133441 3<33111441 "
      "3<33113441 3<33131441 3<33133441 3<43133441", "star rays on bright parts", need_rect_plane},
    { "rainbow_glint",     category_blur,     10,   1,  "0/2/1",  "nr long",  0 ,  "",      "0,4", no_code,
      "image:i, threshold:p, pre_blur:p, size:p, brightness:p, ray_sizes:p, ray_brightnesses:p, color_spread:p, "
      "scale_source:p",
      "3<111114421 3<311114421 3<331114421 3<111134421 3<131134421 3<311134421 3<331134421 3<431134421",
      "star rays on bright parts, split into colours", need_rect_plane},
    { "grad",              category_gradient, 5,    1,  "0/1/0",  "nr long",  0 ,  "",      "0,2", image_grad,
      "image:i, pre_blur:p, scale:p, subpixel_blur:p", "2<1111", "slope of the image in x and y", need_rect_stencil},
    { "grad_for_mipmap",   category_gradient, 5,    1,  "0/1/0",  "nr long",  0 ,  "",      "0,2", image_grad_for_mipmap,
      "image:i, scale:p, rel_p:p", "2<211", "scale of a warp's coordinates for filtered warps", need_rect_stencil_only},
    { "edge_detect",       category_gradient, 5,    1,  "0/1/0",  "nr long",  0 ,  "",      "0,2", image_edge_detect,
      "image:i, pre_blur:p, scale:p, subpixel_blur:p", "1<1111 2<2111 3<3111", "strength of edges", need_rect_stencil},
    { "grad_direction",    category_gradient, 5,    0,  "0/1/0",  "nr long",  0 ,  "",      "0,2", image_grad_direction,
      "image:i, pre_blur:p, offset:p, subpixel_blur:p", "1<1111 2<2111 3<3111",
      "direction of the slope in turns", need_rect_stencil},
    { "grad_in_direction", category_gradient, 5,    1,  "0/1/0",  "nr long",  0 ,  "",      "0,2", image_grad_in_direction,
      "image:i, direction, pre_blur:p, subpixel_blur:p", "1<1211 2<2211 3<3211",
      "slope of the image along a direction", need_rect_stencil_2},
    { "emboss",            category_gradient, 10,   1,  "0/0/2",  "nr long",  0 ,  "",      "8,0", image_emboss,
      "height_map:i, pre_blur:p, scale_height:p, surface_color, light_color:p, light_direction:p, specular:p, "
      "shininess:p, subpixel_blur:p",
      "3<111332111 3<111132111 3<111312111 4<111432111", "a height map lit from the side", need_rect_stencil},
};
// clang-format on

}  // namespace

const FunRows filters_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
