// Glare around bright parts.
#include "functions/rows.h"

#include "compile/need_rect.h"
#include "operators/glare/glare_functions.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name     category          cost wt image    flags   run   aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {162, "glare", category_pattern, 40,  0, "0/2/0", "long", "r3", "0,1", image_glare,
      "image:i, threshold:p, pre_blur:p, size:p, brightness:p, saturation:p, type:p, convolve?:p, rotate:p, "
      "rays_num_scale:p, rays_length:p, rays_thickness:p, res_factor:p",
      "3<1112111111111 3<3112111111111 3<1112311111111 3<3112311111111 3<1312111111111 3<3312111111111 "
      "3<1312311111111 3<3312311111111 3<4312311111111",
      "a small flare at every bright part", {.need_rect = need_rect_plane}},
};
// clang-format on

}  // namespace

const FunRows glare_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
