// Lens flares.
#include "functions/rows.h"

#include "compile/need_rect.h"
#include "operators/flares/flare_functions.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name                    category          cost wt image     flags      run   aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {158, "lens_flare",           category_pattern, 5,   0, "-1/0/3", "nc",      "r5", "1,0", image_lens_flare,
      "type:p, hotspot:p, pivot:p, gamma:p, saturation:p, scale_size:p, rotate:p, hotspot_color:p, rays_color:p, "
      "other_color:p, scale_rays_number:p, scale_rays_width:p, scale_rays_length:p, scale_other_width:p",
      "3<12211113331111 3<12211213331111 3<12211113131111 3<12211213131111", "lens flare of a kind at a hotspot"},
    {159, "lens_flare_mask",      category_pattern, 5,   0, "0/0/3",  "nc",      "r5", "1,0", image_lens_flare_mask,
      "mask, type:p, hotspot:p, pivot:p, gamma:p, saturation:p, scale_size:p, rotate:p, hotspot_color:p, "
      "rays_color:p, other_color:p, scale_rays_number:p, scale_rays_width:p, scale_rays_length:p, "
      "scale_other_widths:p",
      "3<312211113331111 3<312211213331111 3<312211113131111 3<312211213131111", "lens flare hidden by a mask"},
    {160, "lens_flare_auto",      category_pattern, 10,  0, "0/0/3",  "nc long", "r6", "3,0", image_lens_flare_auto,
      "image, pre_blur:p, type:p, pivot:p, gamma:p, saturation:p, scale_size:p, rotate:p, hotspot_color:p, "
      "rays_color:p, other_color:p, shift:p, max_flares:p, scale_rays:p",
      "3<11121121333214 3<11121121313214",
      "lens flares at the bright parts of an image", {.need_rect = need_rect_plane}},
    {161, "lens_flare_auto_mask", category_pattern, 10,  0, "0/0/3",  "nc long", "r6", "3,0", image_lens_flare_auto_mask,
      "image, mask, pre_blur:p, type:p, pivot:p, gamma:p, saturation:p, scale_size:p, rotate:p, hotspot_color:p, "
      "rays_color:p, other_color:p, shift:p, max_flares:p, scale_rays:p",
      "3<131121121333214 3<131121121313214",
      "lens flares at the bright parts of an image, inside a mask", {.need_rect = need_rect_plane}},
};
// clang-format on

}  // namespace

const FunRows flares_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
