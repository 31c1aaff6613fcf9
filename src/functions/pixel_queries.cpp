// Questions about frame, time and format.
#include "functions/rows.h"

#include "operators/pixel/query_funs.h"

namespace velloran {
namespace {

// clang-format off
const FunRow rows[] = {
    //    name                      category        cost wt image flags        run aux function
    //   "arguments", "signatures", "meaning", {rules}
    {164, "get_curve_val",          category_query, 0,   0, "",   "fr ncache hold", "", "", pixel_get_curve_val,
      "param:p, rel_frame:p", "1<11 2<21 3<31 4<41", "value of a parameter at another frame"},
    {165, "get_frame_number",       category_query, 0,   0, "",   "fr ncache",      "", "", pixel_get_frame_number,
      "", "1<", "number of the frame, from 0"},
    {166, "get_total_frames",       category_query, 0,   0, "",   "",               "", "", pixel_get_total_frames,
      "", "1<", "frames of the clip"},
    {167, "get_time",               category_query, 0,   0, "",   "fr ncache",      "", "", pixel_get_time,
      "", "1<", "time in seconds"},
    {168, "get_percent_time",       category_query, 0,   0, "",   "fr ncache pct",  "", "", pixel_get_percent_time,
      "", "1<", "time from 0 at the first to 1 at the last frame"},
    {169, "get_frames_per_second",  category_query, 0,   0, "",   "",               "", "", pixel_get_frames_per_second,
      "", "1<", "frames in a second"},
    {170, "get_aspect_ratio",       category_query, 0,   0, "",   "",               "", "", pixel_get_aspect_ratio,
      "", "1<", "height of the frame over its width, as seen: y runs from minus this to this"},
    {171, "get_frame_width",        category_query, 0,   0, "",   "",               "", "", pixel_get_frame_width,
      "", "1<", "width of the frame in pixels"},
    {172, "get_frame_height",       category_query, 0,   0, "",   "",               "", "", pixel_get_frame_height,
      "", "1<", "height of the frame in pixels"},
    {173, "get_frame_half_dims",    category_query, 0,   0, "",   "",               "", "", pixel_get_frame_half_dims,
      "", "2<", "half the width and height in pixels"},
    {174, "get_pixel_coords_scale", category_query, 0,   0, "",   "",               "", "",
      pixel_get_pixel_coords_scale, "", "2<", "samples for each pixel of the frame, in x and y"},
    {175, "get_max_fnoise_freq",    category_query, 0,   0, "",   "",               "", "", pixel_get_max_fnoise_freq,
      "", "1<", "highest noise frequency that the frame can show"},
    {176, "get_transform_scale",    category_query, 0,   0, "",   "",               "", "", pixel_get_transform_scale,
      "", "2<", "scale of transforms in x and y"},
};
// clang-format on

}  // namespace

const FunRows pixel_queries_rows = {rows, sizeof(rows) / sizeof(rows[0])};

}  // namespace velloran
