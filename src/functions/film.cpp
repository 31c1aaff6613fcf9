// The look of film.
#include "functions/rows.h"

#include "operators/film/film_functions.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name           category        cost wt image    flags                      run aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {194, "film_effect", category_other, 2,   0, "0/1/1", "nc fr ncache long", "", "1,0", image_film_effect,
      "image:i, films_fields_blur:p, cc_gammas:p, neg_exposure:p, print_exposure:p, offset_scale:p, "
      "glow_brightness:p, glow_soft_focus:p, glow_width:p, grain_amp:p, midtones_mono:p, grain_blur:p, grain_misc:p",
      "3<3441323133434 4<4441323133434", "the look of a film stock", {.need_rect = need_rect_film_effect}},
    {195, "grain",       category_other, 2,   0, "0/1/1", "nc fr ncache long", "", "1,0", image_grain,
      "image:i, grain_amp:p, midtones:p, darks_brights:p, grain_mono:p, grain_blur:p, grain_hold:p, seed:p",
      "3<33321311 4<43321311", "film grain", {.need_rect = need_rect_grain}},
};
// clang-format on

}  // namespace

const FunRows film_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
