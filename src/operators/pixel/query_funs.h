// Queries of frame, time and format: pixel functions without a picture behind them. Their value is the same for a whole
// pass, and they fill their lines with it.
#pragma once

namespace velloran {

struct Node;
struct Param;

// The value of a param's channel at a moment of the host's timeline (frames from 1): set by whoever knows the controls.
// Null: params stand still.
extern float (*param_value_at_frame)(const Param* param, int channel, float host_frame);

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
