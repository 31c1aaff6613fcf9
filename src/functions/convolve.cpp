// Convolution with a picture as kernel.
#include "functions/rows.h"

#include "operators/convolve/convolve_functions.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name        category        cost wt image    flags         run aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {203, "convolve", category_basic, 1,   1, "0/2/0", "long whole", "", "1,0", image_convolve,
      "image, kernel, kernel_min:p, kernel_max:p, kernel_center:p, kernel_xyscale:p, gamma:p, dest_scale:p, "
      "kernel_color_p:p, autocenter_p:p, edge_type:p, autoscale_type:p, threshold:p, boost_highlights:p, "
      "highlight_threshold:p",
      "1<112222111121111 3<312222111121311 4<412222111121311 3<332222111121311 4<442222111121311",
      "image convolved with another as kernel"},
};
// clang-format on

}  // namespace

const FunRows convolve_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
