// Dirt that lies on film: spots, specks, scratches and hairs stamped onto an image.
#include "functions/rows.h"

#include "operators/stamps/stamps_functions.h"
#include "operators/stamps/stamps_rules.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name         category        cost wt image    flags           run aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {47, "stains",    category_basic, 1,   1, "0/1/0", "nc fr ncache", "", "1,0", image_stains,
      "image, seed:p, color1:p, color2:p, vary_color:p, vary_brightness:p, opacity:p, vary_opacity:p, density:p, "
      "vary_density:p, scale:p, vary_scale:p",
      "3<313311111111 4<413311111111", "large soft spots of dirt over the image", {.pass = pass_dirt}},
    {48, "dust",      category_basic, 1,   1, "0/1/0", "nc fr ncache", "", "1,0", image_dust,
      "image, seed:p, color1:p, color2:p, vary_color:p, vary_brightness:p, opacity:p, vary_opacity:p, density:p, "
      "vary_density:p, scale:p, vary_scale:p",
      "3<313311111111 4<413311111111", "small specks of dirt over the image", {.pass = pass_dirt}},
    {49, "scratches", category_basic, 1,   1, "0/1/0", "nc fr ncache", "", "1,0", image_scratches,
      "image, seed:p, n_scratches:p, length:p, width:p, luma:p, alpha:p, sputter:p, x:p, taper:p",
      "1<1111434241 2<2111434241 3<3111434241 4<4111434241 1<1122434241 2<2122434241 3<3122434241 4<4122434241",
      "lines scratched along the film, over the image"},
    {50, "hairs",     category_basic, 1,   1, "0/1/0", "nc fr ncache", "", "1,0", image_hairs,
      "image, seed:p, color:p, opacity:p, max_hairs:p, frequency:p, threshold:p, scale:p, vary_scale:p, noise_amp:p, "
      "noise_freq:p",
      "3<31311111111 4<41311111111", "hairs lying on the film, over the image", {.pass = pass_hairs}},
};
// clang-format on

}  // namespace

const FunRows stamps_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
