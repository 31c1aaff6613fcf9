// Making values, taking them apart, changing their element count, and values that steer the evaluation.
#include "functions/rows.h"

#include "compile/pass_rules.h"
#include "operators/pixel/pixel_funs.h"
#include "operators/pixel/pixel_rules.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name                     category        cost wt image flags     run aux function
    //   "arguments", "signatures", "meaning", {rules}
    {51,  "monochrome",            category_math,  1,   0, "",   "",       "", "", pixel_monochrome,
      "color", "1<1 1<2 1<3 1<4", "brightness of a colour", {.pass = pass_same_elnum}},
    {52,  "monochrome_a",          category_math,  1,   0, "",   "",       "", "", pixel_monochrome_a,
      "color", "1<1 2<2 1<3 2<4", "brightness of a colour, with alpha if it has one", {.pass = pass_same_elnum}},
    {53,  "v2",                    category_basic, 1,   1, "",   "",       "", "", pixel_v2,
      "x, y", "2<11", "a 2-vector of two numbers"},
    {54,  "v3",                    category_basic, 1,   1, "",   "",       "", "", pixel_v3,
      "red, green, blue", "3<111", "a colour of three numbers"},
    {55,  "v4",                    category_basic, 1,   1, "",   "",       "", "", pixel_v4,
      "red, green, blue, alpha", "4<1111", "a colour with alpha of four numbers"},
    {56,  "element_of",            category_basic, 1,   1, "",   "",       "", "", pixel_element_of,
      "vector, element_n", "1<11 1<21 2<22 3<23 4<24 1<31 2<32 3<33 4<34 1<41 2<42 3<43 4<44",
      "one element of a vector, counted from 0", {.pass = pass_scalar}},
    {57,  "v3_to_v4",              category_basic, 1,   1, "",   "",       "", "", pixel_v3_to_v4,
      "v3, alpha", "4<31 4<33 4<41 4<43 4<11 4<13", "the colour with this alpha"},
    {58,  "v3_to_v4_if4",          category_basic, 1,   1, "",   "last",   "", "", pixel_v3_to_v4_if4,
      "v3, alpha, to_vect_type", "4<314 4<414 4<114 3<313 3<113 3<311 1<111 2<112",
      "the colour, with this alpha if the last argument carries alpha", {.pass = pass_v3_to_v4_if4}},
    {59,  "v3_to_v4_if4_a",        category_basic, 1,   1, "",   "last",   "", "", pixel_v3_to_v4_if4_a,
      "v3, alpha, to_vect_type", "4<314 4<414 4<114 3<313 3<113 3<311 1<111 2<112",
      "as v3_to_v4_if4; a single number becomes the alpha", {.pass = pass_v3_to_v4_if4_a}},
    {60,  "alpha_from_rgb_max_v4", category_basic, 1,   1, "",   "",       "", "", pixel_alpha_from_rgb_max_v4,
      "rgb, scale:p", "4<11 4<31 4<41", "the colour with its largest element times scale as alpha"},
    {61,  "alpha_from_rgb_max",    category_basic, 1,   1, "",   "last",   "", "", pixel_alpha_from_rgb_max,
      "rgb, scale:p, coerce_to", "4<114 4<314 4<414 3<113 3<313 3<413 3<111 3<311 3<411",
      "the same if the last argument carries alpha, else the colour", {.pass = pass_v3_to_v4_if4}},
    {62,  "coerce_to_v3",          category_basic, 1,   1, "",   "",       "", "", pixel_coerce_to_v3,
      "v", "3<1 3<2 3<3 3<4", "value as a colour without alpha", {.pass = pass_same_elnum}},
    {63,  "coerce_up_to_v3",       category_basic, 1,   1, "",   "",       "", "", pixel_coerce_up_to_v3,
      "v", "3<1 3<2 3<3 4<4", "value as a colour, alpha kept", {.pass = pass_same_elnum}},
    {64,  "coerce_to_v4",          category_basic, 1,   1, "",   "",       "", "", pixel_coerce_to_v4,
      "v", "4<1 4<3 4<4", "value as a colour with alpha", {.pass = pass_same_elnum}},
    {65,  "coerce_up",             category_basic, 1,   1, "",   "last",   "", "", pixel_coerce_up,
      "vector, to_vect_type", "2<12 3<13 4<14 4<34 1<11 2<21 2<22 3<31 3<33 4<41 4<43 4<44 3<23 4<24",
      "value with at least as many elements as the last argument", {.pass = pass_same_elnum}},
    {66,  "coerce_up_a1",          category_basic, 1,   1, "",   "last",   "", "", pixel_coerce_up_a1,
      "vector, to_vect_type", "2<12 4<14 3<13 4<34 1<11 2<21 2<22 3<31 3<33 4<41 4<43 4<44 3<23 4<24",
      "as coerce_up, with 1 for a missing alpha", {.pass = pass_same_elnum}},
    {67,  "coerce_to",             category_basic, 1,   1, "",   "last",   "", "", pixel_coerce_to,
      "vector, to_vect_type", "4<44 4<34 4<14 3<43 3<33 3<13 2<12 1<11 1<21",
      "value with as many elements as the last argument", {.pass = pass_same_elnum}},
    {68,  "coerce_to_alpha",       category_basic, 1,   1, "",   "",       "", "", pixel_coerce_to_alpha,
      "v", "1<1 1<2 1<3 1<4", "value as a matte: its alpha, or its brightness", {.pass = pass_same_elnum}},
    {69,  "get_alpha",             category_basic, 1,   1, "",   "",       "", "", pixel_get_alpha,
      "v", "1<1 1<2 1<3 1<4", "alpha, 1 where there is none"},
    {70,  "get_alpha_or_luma",     category_basic, 1,   1, "",   "",       "", "", pixel_get_alpha_or_luma,
      "v", "1<1 1<2 1<3 1<4", "alpha, or the brightness where there is none"},
    {71,  "remove_alpha",          category_basic, 1,   1, "",   "",       "", "", pixel_remove_alpha,
      "v", "1<1 1<2 3<3 3<4", "value without its alpha", {.pass = pass_same_elnum}},
    {177, "force_no_cache",        category_basic, 0,   0, "",   "ncache", "", "", pixel_force_no_cache,
      "value", "any1", "value, never kept from frame to frame", {.pass = pass_always}},
    {178, "no_pass_vars",          category_basic, 0,   0, "",   "",       "", "", pixel_no_pass_vars,
      "value, log_res_factor", "1<11 2<21 3<31 4<41",
      "value, evaluated even where it is just a variable", {.pass = pass_no_pass_vars}},
    {179, "copy",                  category_basic, 0,   0, "",   "",       "", "", pixel_copy,
      "value", "any1", "value, with an image of its own", {.pass = pass_always}},
};
// clang-format on

}  // namespace

const FunRows pixel_values_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
