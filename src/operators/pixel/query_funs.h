// Queries of frame, time and format: pixel functions without a picture behind them. Their value is the same for a whole
// pass, and they fill their lines with it.
#pragma once

namespace velloran {

struct Node;
struct Param;

// How a curve's value, in the units of its control, becomes the param's: set by whoever knows the controls. Null: as
// is.
extern float (*curve_value_to_param)(const Param* param, int channel, float value);

void pixel_get_curve_val(Node* node);
void pixel_get_frame_number(Node* node);
void pixel_get_total_frames(Node* node);
void pixel_get_time(Node* node);
void pixel_get_percent_time(Node* node);
void pixel_get_frames_per_second(Node* node);
void pixel_get_aspect_ratio(Node* node);
void pixel_get_frame_width(Node* node);
void pixel_get_frame_height(Node* node);
void pixel_get_frame_half_dims(Node* node);
void pixel_get_pixel_coords_scale(Node* node);
void pixel_get_max_fnoise_freq(Node* node);
void pixel_get_transform_scale(Node* node);

}  // namespace velloran
