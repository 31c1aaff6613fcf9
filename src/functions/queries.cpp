// Questions about frame, time and format, and values that steer the evaluation.
#include "functions/rows.h"

#include "operators/pixel/pixel_funs.h"
#include "operators/pixel/query_funs.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    // name                     category        cost  wt  image  flags        pass  run  aux  function
    //   "arguments", "signatures", "meaning"
    { "slow_in_out",            category_basic, 1,    0,  "",    "",           0 ,  "",  "",  pixel_slow_in_out,
      "value:p, in_slowness:p, out_slowness:p, derivative_p:p", "1<1111", "0 .. 1 with a slow start and end"},
    { "get_curve_val",          category_query, 0,    0,  "",    "fr ncache",  0 ,  "",  "",  pixel_get_curve_val,
      "param:p, rel_frame:p", "1<11 2<21 3<31 4<41", "value of a parameter at another frame"},
    { "get_frame_number",       category_query, 0,    0,  "",    "fr ncache",  0 ,  "",  "",  pixel_get_frame_number,
      "", "1<", "number of the frame, from 0"},
    { "get_total_frames",       category_query, 0,    0,  "",    "",           0 ,  "",  "",  pixel_get_total_frames,
      "", "1<", "frames of the clip"},
    { "get_time",               category_query, 0,    0,  "",    "fr ncache",  0 ,  "",  "",  pixel_get_time,
      "", "1<", "time in seconds"},
    { "get_percent_time",       category_query, 0,    0,  "",    "fr ncache",  0 ,  "",  "",  pixel_get_percent_time,
      "", "1<", "time from 0 at the first to 1 at the last frame"},
    { "get_frames_per_second",  category_query, 0,    0,  "",    "",           0 ,  "",  "",  pixel_get_frames_per_second,
      "", "1<", "frames in a second"},
    { "get_aspect_ratio",       category_query, 0,    0,  "",    "",           0 ,  "",  "",  pixel_get_aspect_ratio,
      "", "1<", "height of the frame over its width, as seen: y runs from minus this to this"},
    { "get_frame_width",        category_query, 0,    0,  "",    "",           0 ,  "",  "",  pixel_get_frame_width,
      "", "1<", "width of the frame in pixels"},
    { "get_frame_height",       category_query, 0,    0,  "",    "",           0 ,  "",  "",  pixel_get_frame_height,
      "", "1<", "height of the frame in pixels"},
    { "get_frame_half_dims",    category_query, 0,    0,  "",    "",           0 ,  "",  "",  pixel_get_frame_half_dims,
      "", "2<", "half the width and height in pixels"},
    { "get_pixel_coords_scale", category_query, 0,    0,  "",    "",           0 ,  "",  "",  pixel_get_pixel_coords_scale,
      "", "2<", "samples for each pixel of the frame, in x and y"},
    { "get_max_fnoise_freq",    category_query, 0,    0,  "",    "",           0 ,  "",  "",  pixel_get_max_fnoise_freq,
      "", "1<", "highest noise frequency that the frame can show"},
    { "get_transform_scale",    category_query, 0,    0,  "",    "",           0 ,  "",  "",  pixel_get_transform_scale,
      "", "2<", "scale of transforms in x and y"},
    { "force_no_cache",         category_basic, 0,    0,  "",    "ncache",    'e',  "",  "",  pixel_force_no_cache,
      "value", "any1", "value, never kept from frame to frame"},
    { "no_pass_vars",           category_basic, 0,    0,  "",    "",          'f',  "",  "",  pixel_no_pass_vars,
      "value, log_res_factor", "1<11 2<21 3<31 4<41", "value, evaluated even where it is just a variable"},
    { "copy",                   category_basic, 0,    0,  "",    "",          'e',  "",  "",  pixel_copy,
      "value", "any1", "value, with an image of its own"},
};
// clang-format on

}  // namespace

const FunRows queries_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
