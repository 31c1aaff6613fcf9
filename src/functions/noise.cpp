// Noise, random numbers and cell patterns.
#include "functions/rows.h"

#include "operators/noise/noise_functions.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name                   category          cost wt image     flags           run aux    function
    //   "arguments", "signatures", "meaning", {rules}
    {104, "warp_noise",          category_cell,    20,  1, "",       "",             "", "",    pixel_warp_noise,
      "coords:c, frequency:p, octaves:p, rand_seed:p", "1<2111 1<2211",
      "coherent noise at coordinates"},
    {105, "warp_noise2",         category_cell,    20,  1, "",       "",             "", "",    pixel_warp_noise2,
      "coords:c, frequency:p, octaves:p, rand_seed:p, scale:p", "2<21111 2<22111",
      "coherent noise of two elements at coordinates"},
    {106, "warp_noise3",         category_cell,    20,  1, "",       "",             "", "",    pixel_warp_noise3,
      "coords:c, frequency:p, octaves:p, rand_seed:p", "3<2111 3<2211",
      "coherent noise of three elements at coordinates"},
    {107, "noise",               category_random,  10,  1, "-1/1/0", "nc long",      "", "0,1", image_noise,
      "frequency:p, octaves:p, shift:p, rand_seed:p", "1<1121 1<2121", "coherent noise over the frame"},
    {108, "noise2",              category_random,  10,  1, "-1/1/0", "nc long",      "", "0,1", image_noise2,
      "frequency:p, octaves:p, shift:p, rand_seed:p, scale:p", "2<11211 2<21211",
      "coherent noise of two elements over the frame", {.pass = pass_noise2}},
    {109, "noise3",              category_random,  10,  1, "-1/1/0", "nc long",      "", "0,1", image_noise3,
      "frequency:p, octaves:p, shift:p, rand_seed:p", "3<1121 3<2121",
      "coherent noise of three elements over the frame"},
    {110, "static",              category_random,  1,   0, "",       "nc fr ncache", "", "",    pixel_static,
      "", "1<", "white noise, new each frame"},
    {111, "static2",             category_random,  1,   0, "",       "nc fr ncache", "", "",    pixel_static2,
      "", "2<", "white noise of two elements, new each frame"},
    {112, "static3",             category_random,  1,   0, "",       "nc fr ncache", "", "",    pixel_static3,
      "", "3<", "white noise of three elements, new each frame"},
    {113, "random",              category_random,  1,   0, "",       "",             "", "",    pixel_random,
      "seed", "1<1 2<2", "random number that depends on seed alone"},
    {114, "spots",               category_cell,    20,  1, "",       "",             "", "",    pixel_spots,
      "coords:c, frequency:p, radius:p, rand_seed:p", "1<2111 1<2211",
      "round spots strewn at random"},
    {115, "voronoi",             category_cell,    20,  1, "",       "",             "", "",    pixel_voronoi,
      "coords:c, frequency:p, rotate_centers:p, rand_seed:p", "1<2111 1<2211",
      "cells around points strewn at random"},
    {116, "hex_tiles",           category_pattern, 2,   1, "",       "",             "", "",    pixel_hex_tiles,
      "coords:c, frequency:p, revs", "1<211 1<221", "honeycomb of tiles"},
    {117, "sawtooth_plus_noise", category_random,  1,   0, "",       "",             "", "",    pixel_sawtooth_plus_noise,
      "seed:p, time:p, octaves:p, weight_noise:p, weight_saw:p, threshold:p, frequency:p, noise_freq:p", "2<11111111",
      "sawtooth in time with noise added"},
    {118, "simplex_noise",       category_random,  10,  1, "",       "",             "", "",    pixel_simplex_noise,
      "coords:c, frequency:p, octaves:p, rand_seed:p, abs_mode:p", "1<21111 1<22111 1<31111 1<33111",
      "simplex gradient noise at coordinates"},
    {119, "perlin_noise",        category_random,  10,  1, "",       "",             "", "",    pixel_perlin_noise,
      "coords:c, frequency:p, octaves:p, rand_seed:p, abs_mode:p", "1<21111 1<22111 1<31111 1<33111",
      "lattice gradient noise at coordinates; of three elements 0", {.call_hint = hint_perlin_noise}},
};
// clang-format on

}  // namespace

const FunRows noise_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
