// Making values, taking them apart, and changing their element count.
#include "functions/rows.h"

#include "operators/pixel/pixel_funs.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    // name                    category        cost  wt  image  flags   pass  run  aux  function
    //   "arguments", "signatures", "meaning"
    { "monochrome",            category_math,  1,    0,  "",    "",     'Q',  "",  "",  pixel_monochrome,
      "color", "1<1 1<2 1<3 1<4", "brightness of a colour"},
    { "monochrome_a",          category_math,  1,    0,  "",    "",     'Q',  "",  "",  pixel_monochrome_a,
      "color", "1<1 2<2 1<3 2<4", "brightness of a colour, with alpha if it has one"},
    { "v2",                    category_basic, 1,    1,  "",    "",      0 ,  "",  "",  pixel_v2,
      "x, y", "2<11", "a 2-vector of two numbers"},
    { "v3",                    category_basic, 1,    1,  "",    "",      0 ,  "",  "",  pixel_v3,
      "red, green, blue", "3<111", "a colour of three numbers"},
    { "v4",                    category_basic, 1,    1,  "",    "",      0 ,  "",  "",  pixel_v4,
      "red, green, blue, alpha", "4<1111", "a colour with alpha of four numbers"},
    { "element_of",            category_basic, 1,    1,  "",    "",     'R',  "",  "",  pixel_element_of,
      "vector, element_n", "1<11 1<21 2<22 3<23 4<24 1<31 2<32 3<33 4<34 1<41 2<42 3<43 4<44",
      "one element of a vector, counted from 0"},
    { "v3_to_v4",              category_basic, 1,    1,  "",    "",      0 ,  "",  "",  pixel_v3_to_v4,
      "v3, alpha", "4<31 4<33 4<41 4<43 4<11 4<13", "the colour with this alpha"},
    { "v3_to_v4_if4",          category_basic, 1,    1,  "",    "last", 'S',  "",  "",  pixel_v3_to_v4_if4,
      "v3, alpha, to_vect_type", "4<314 4<414 4<114 3<313 3<113 3<311 1<111 2<112",
      "the colour, with this alpha if the last argument carries alpha"},
    { "v3_to_v4_if4_a",        category_basic, 1,    1,  "",    "last", 'T',  "",  "",  pixel_v3_to_v4_if4_a,
      "v3, alpha, to_vect_type", "4<314 4<414 4<114 3<313 3<113 3<311 1<111 2<112",
      "as v3_to_v4_if4; a single number becomes the alpha"},
    { "alpha_from_rgb_max_v4", category_basic, 1,    1,  "",    "",      0 ,  "",  "",  pixel_alpha_from_rgb_max_v4,
      "rgb, scale:p", "4<11 4<31 4<41", "the colour with its largest element times scale as alpha"},
    { "alpha_from_rgb_max",    category_basic, 1,    1,  "",    "last", 'S',  "",  "",  pixel_alpha_from_rgb_max,
      "rgb, scale:p, coerce_to", "4<114 4<314 4<414 3<113 3<313 3<413 3<111 3<311 3<411",
      "the same if the last argument carries alpha, else the colour"},
    { "coerce_to_v3",          category_basic, 1,    1,  "",    "",     'Q',  "",  "",  pixel_coerce_to_v3,
      "v", "3<1 3<2 3<3 3<4", "value as a colour without alpha"},
    { "coerce_up_to_v3",       category_basic, 1,    1,  "",    "",     'Q',  "",  "",  pixel_coerce_up_to_v3,
      "v", "3<1 3<2 3<3 4<4", "value as a colour, alpha kept"},
    { "coerce_to_v4",          category_basic, 1,    1,  "",    "",     'Q',  "",  "",  pixel_coerce_to_v4,
      "v", "4<1 4<3 4<4", "value as a colour with alpha"},
    { "coerce_up",             category_basic, 1,    1,  "",    "last", 'Q',  "",  "",  pixel_coerce_up,
      "vector, to_vect_type", "2<12 3<13 4<14 4<34 1<11 2<21 2<22 3<31 3<33 4<41 4<43 4<44 3<23 4<24",
      "value with at least as many elements as the last argument"},
    { "coerce_up_a1",          category_basic, 1,    1,  "",    "last", 'Q',  "",  "",  pixel_coerce_up_a1,
      "vector, to_vect_type", "2<12 4<14 3<13 4<34 1<11 2<21 2<22 3<31 3<33 4<41 4<43 4<44 3<23 4<24",
      "as coerce_up, with 1 for a missing alpha"},
    { "coerce_to",             category_basic, 1,    1,  "",    "last", 'Q',  "",  "",  pixel_coerce_to,
      "vector, to_vect_type", "4<44 4<34 4<14 3<43 3<33 3<13 2<12 1<11 1<21",
      "value with as many elements as the last argument"},
    { "coerce_to_alpha",       category_basic, 1,    1,  "",    "",     'Q',  "",  "",  pixel_coerce_to_alpha,
      "v", "1<1 1<2 1<3 1<4", "value as a matte: its alpha, or its brightness"},
    { "get_alpha",             category_basic, 1,    1,  "",    "",      0 ,  "",  "",  pixel_get_alpha,
      "v", "1<1 1<2 1<3 1<4", "alpha, 1 where there is none"},
    { "get_alpha_or_luma",     category_basic, 1,    1,  "",    "",      0 ,  "",  "",  pixel_get_alpha_or_luma,
      "v", "1<1 1<2 1<3 1<4", "alpha, or the brightness where there is none"},
    { "remove_alpha",          category_basic, 1,    1,  "",    "",     'Q',  "",  "",  pixel_remove_alpha,
      "v", "1<1 1<2 3<3 3<4", "value without its alpha"},
};
// clang-format on

}  // namespace

const FunRows values_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
