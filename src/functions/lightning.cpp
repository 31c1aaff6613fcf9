// Lightning bolts.
#include "functions/rows.h"

#include "compile/need_rect.h"
#include "operators/lightning/lightning_functions.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name             category        cost wt image     flags run aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {189, "zap",           category_other, 2,   0, "-1/1/0", "nc", "", "1,0", image_zap,
      "start:p, end:p, vary_end:p, bolts:p, width_vary:p, end_pointiness:p, start_len:p, wrinkle_curve:p, "
      "branchiness:p, branch_ang_len:p, seed_phase:p",
      "1<22112122122", "lightning between two points"},
    {190, "zap_to",        category_other, 2,   0, "0/1/0",  "nc", "", "1,0", image_zap_to,
      "to_obj:i, center:p, radius:p, bolts_points:p, width_vary:p, end_pointiness:p, start_len:p, wrinkle_amp:p, "
      "branchiness:p, branch_ang_len:p, seed_phase:p, threshold_show:p",
      "1<121221211222", "lightning from a point to an object", {.need_rect = need_rect_plane}},
    {191, "zap_from",      category_other, 2,   0, "0/1/0",  "nc", "", "1,0", image_zap_from,
      "from_obj:i, max_len_vary:p, vary_spacing:p, bolts:p, width_vary:p, end_pointiness:p, start_len:p, "
      "wrinkle_curve:p, branchiness:p, branch_ang_len:p, seed_phase:p, threshold_show:p",
      "1<121121221222", "lightning out of an object", {.need_rect = need_rect_plane}},
    {192, "zap_from_mask", category_other, 2,   0, "0/2/0",  "nc", "", "1,0", image_zap_from_mask,
      "from_obj:i, mask:i, max_len_vary_spacing:p, bolts:p, width_vary:p, end_pointiness:p, start_len:p, "
      "wrinkle_curve:p, branchiness:p, branch_ang_len:p, seed_phase:p, threshold_show:p",
      "1<113121221222", "lightning out of an object, inside a mask", {.need_rect = need_rect_two_planes}},
};
// clang-format on

}  // namespace

const FunRows lightning_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
