// Lenses out of focus.
#include "functions/rows.h"

#include "compile/need_rect.h"
#include "operators/defocus/defocus_functions.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name                 category       cost wt image    flags   run   aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {125, "defocus",           category_blur, 300, 1, "0/1/1", "long", "r1", "0,1", image_defocus,
      "image:i, radius:p, gamma:p, scale:p, subpixel:p, shape:p",
      "1<111111 2<211111 3<311111 4<411111 1<121111 2<221111 3<321111 4<421111",
      "blur by a lens out of focus", {.need_rect = need_rect_defocus}},
    {126, "defocus_adv",       category_blur, 5,   1, "0/1/1", "long", "r1", "0,1", image_defocus_adv,
      "image:i, radii:p, nsides:p, pointiness:p, rotate:p, gamma:p, scale:p, bokeh:p, noise_freq:p, noise_amp:p, "
      "noise_seed:p, edge_mode:p, show_shape:p, boost_highlights:p, highlight_threshold:p",
      "1<121111112111111 2<221111112111111 3<321111112111111 4<421111112111111",
      "blur by a lens out of focus, with its aperture described", {.need_rect = need_rect_plane}},
    {127, "defocus_prism_adv", category_blur, 5,   1, "0/1/1", "long", "r1", "0,1", image_defocus_prism_adv,
      "image:i, radii_x:p, radii_y:p, ring_radii_x:p, ring_radii_y:p, nsides:p, pointiness:p, rotate:p, gamma:p, "
      "scale:p, bokeh:p, noise_freq_amp_seed:p, edge_mode:p, show_shape:p, highlight_boost_thresh:p",
      "3<133331111314112 3<333331111314112 4<433331111314112 4<144441111314112 4<244441111314112 4<344441111314112 "
      "4<444441111314112", "the same with radii of their own for each channel", {.need_rect = need_rect_plane}},
};
// clang-format on

}  // namespace

const FunRows defocus_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
