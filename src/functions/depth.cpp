// Blurs, glows and convolutions that vary with depth.
#include "functions/rows.h"

#include "compile/need_rect.h"
#include "operators/depth/depth_functions.h"
#include "records/node.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name          category        cost wt image     flags         run      aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {128, "z_blur",     category_blur,  5,   0, "0/4/8",  "long",       "r2 s2", "2,2", image_z_blur,
      "image:i, zbuffer:c, n_layers:p, combine:p, focal_point:p, depth_of_field:p, blur_amount:p, blur_near:p, "
      "blur_far:p",
      "1<111111211 3<311111211 4<411111211",
      "blur that grows with the distance from the focal depth", {.need_rect = need_rect_z_blur}},
    {129, "z_glow",     category_blur,  5,   0, "0/2/4",  "long",       "r2 s2", "2,2", image_z_glow,
      "image:i, zbuffer:c, n_layers:p, combine:p, width_near:p, width_far:p, width_xy_near:p, width_xy_far:p, "
      "brightness_near:p, brightness_far:p",
      "3<3111332233", "glow that varies with depth", {.need_rect = need_rect_two_planes}},
    {130, "z_defocus",  category_blur,  5,   0, "0/4/9",  "long",       "r2 s2", "2,2", image_z_defocus,
      "image:i, zbuffer:c, n_layers:p, combine:p, focal_point:p, depth_of_field:p, width:p, lens_shape:p, "
      "noise_freq:p, noise_amp:p, noise_seed:p, use_gamma:p, brightness:p, edge_mode:p, rel_nearfar:p",
      "3<311111242111112 4<411111242111112",
      "lens blur that grows with the distance from the focal depth",
      {.need_rect = need_rect_two_planes, .most_images = MAX_NODE_IMAGE_COUNT}},
    {131, "z_convolve", category_basic, 1,   1, "0/4/11", "long whole", "r3 s3", "2,2", image_z_convolve,
      "image, kernel, z_buffer, z_args:p, kernel_scale:p, scale_rel_nearfar:p, kernel_minmax:p, kernel_center:p, "
      "gamma:p, dest_scale:p, autocenter_p:p, edge_type:p, autoscale_type:p, convolve_alpha_p:p, threshold:p",
      "1<111422421112113 3<311422421112113 4<411422421112113", "convolution with a kernel that grows with depth",
      {.most_images = MAX_NODE_IMAGE_COUNT}},
};
// clang-format on

}  // namespace

const FunRows depth_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
