// Values on their way between the host's controls and the params.
//
// A control shows button units: pixels of the full frame, or the value as it is. A param keeps internal units, which
// its screen mode relates to the frame. A value stays exactly what the effect's text gave until its control is moved:
// reading a control that still shows the param's value changes nothing, and the default passes every bound.
//
// Host's thread only. Channels count from 0. Null controls are skipped everywhere: a stub may lack one.
#pragma once

#include "records/genotype.h"
#include "records/param.h"

#include <cstdint>

namespace velloran {

// Mode bits of the functions that set values. With no bit the value goes to the param and its control's structure.
enum SetMode : int {
    set_update_control = 1,       // tell the host to show the control anew
    set_undo_boundary = 2,        // keep the old value for Undo; the first channel starts a new record
    set_undo_fold = 4,            // keep the old value for Undo within the last record
    set_no_control = 8,           // leave the host control's structure alone
    set_name = 0x100000,          // rewrite the control's name
    set_host_channel = 0x200000,  // hand the value to the host's own channel, also where it did not change
    set_leave_color = 0x400000    // leave a colour control alone
};

// What a screen mode relates values to.
struct ScreenGeometry {
    float width, height;     // the full frame in pixels
    float aspect;            // of a pixel: see pixel_aspect_ratio
    float scale_x, scale_y;  // at or below 0.0001 counts as 1
};

// Bit of a conversion's mode: the modes screen, screen_center, screen_center0, screen_x and screen_y use the scales.
// Controls and setups set it.
enum : int { convert_with_scales = 1 };

// The geometry of controls and setups in the call in hand. Its scales are the pixel scales of render_info, 1 whatever
// the resolution: operators take full-frame pixels and reduce them themselves, so that a value does not depend on the
// resolution at which it was set.
ScreenGeometry button_geometry();

// Half the height of the frame in the units in which half its width is 1.
float norm_height(const ScreenGeometry& g);

float button_to_param(const Param* p, int channel, float value, const ScreenGeometry& g, int conversion);
float param_to_button(const Param* p, int channel, float value, const ScreenGeometry& g, int conversion);
// The button value of a channel for a text: where there is one from which button_to_param makes exactly the param's
// value again, that one.
float exact_button_value(const Param* p, int channel);

// Colours: red, green, blue from 0 to 1 (others are held) as the bytes of one word in memory order.
uint32_t pack_float_color_native(const float rgb[3]);
void unpack_float_color_native(uint32_t packed, float rgb[3]);

// Reads the controls of p. 1 if a value changed.
int param_sync_from_button(Param* p);
// The params of an effect that are on the controls now; for the frame about to be rendered. 1 if a value changed.
int sync_effect_params(Genotype* genotype);
// The internal value of a channel at a moment of the host's timeline, which counts frames from 1: its curve's, or the
// present one where the control has none. Hosts below API 2.5 cannot be asked between frames, so the two frames around
// the moment are mixed.
float param_value_at(const Param* p, int channel, float host_frame);
// True while the controls of p show p and not a param of another effect.
bool param_on_buttons_p(const Param* p);

float param_get_value(Param* p, int channel);            // after param_sync_from_button
double param_get_value_c1(const Param* p, int channel);  // as it stands; a colour packed, channel 0 only
int param_set_value(Param* p, int channel, float value, int mode);
int param_set_value_c1(Param* p, int channel, double value, int mode);  // a colour packed

// Sets channels first to first + count - 1 from values, in internal units, held to the bounds. A colour is set whole.
// 1 if something changed.
int param_set_values(Param* p, int first, int count, const float* values, int mode);
int param_set_color(Param* p, float red, float green, float blue);
// The default, converted from button units. set_param_default for all channels with the given mode.
int set_param_default(Param* p, int mode);
// Every param of the effect to its default, without undo and without touching controls; when the plug-in starts.
void reset_params_to_defaults(Genotype* genotype);

// What the host control of a channel holds, in button units and unclamped; a colour packed. 0 without a control.
double read_control(const Param* p, int channel);
// The same from copy of a standard control.
double read_global_control(const Param* p, int copy);

// The internal value that a control's reading stands for (a colour packed): exact where the control shows the present
// value or the default.
double control_to_internal(const Param* p, int channel, double reading);

// The text of a string param; "" without a control.
const char* string_param_get_from_buttons(const Param* p);

// Standard controls by GlobalParamIndex. A control that this plug-in does not have reads as 0 and takes nothing.
float global_param_get_value(int index);
void global_param_set_value(int index, float value);
void global_param_set_min_max(int index, float min, float max);
void global_param_adjust_min(int index, float min);
void global_param_adjust_max(int index, float max);
// Takes the value from one copy of a standard control and writes it into all others. 1 if a value changed.
int global_param_sync_from_button(Param* p, int copy);

// Step that suits a range.
float calc_slider_granularity(float min, float max);

// Makes p's button_formats: the name padded to the panel's width, a colon and a number field. In a format a percent
// sign of the name is doubled.
void make_button_format(Param* p);
// The name that a format shows: up to and with the colon before the number field, percent signs single again.
void format_to_name(char* out, int size, const char* format);
// Titles, bounds and entries of p's control structures.
void fill_control_structures(Param* p);

// Control number of a channel, or of copy for a standard control; 0 none. A standard control may lack its first copies.
int param_control_number(const Param* p, int channel);
int global_control_number(const Param* p, int copy);
int first_global_copy(const Param* p);

}  // namespace velloran
