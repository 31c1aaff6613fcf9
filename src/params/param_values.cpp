#include "params/param_values.h"

#include "frame/host_buffers.h"
#include "params/control_kinds.h"
#include "params/standard_controls.h"
#include "params/undo.h"
#include "records/rinfo.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "support/host_info.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace velloran {

namespace {

constexpr float smallest_scale = 0.0001f;

float usable_scale(float scale) { return scale > smallest_scale ? scale : 1.0f; }

int screen_mode(const Param* p) { return p->scale_flags & scale_mode_mask; }

float hold(float v, float low, float high) { return v < low ? low : v > high ? high : v; }

// Holds a value that is about to be stored, but for the default: what the text says stands until a control is moved.
float hold_to_bounds(const Param* p, float v, float default_here) {
    if (v == default_here || !(p->min_value <= p->max_value)) return v;
    return hold(v, p->min_value, p->max_value);
}

float default_internal(const Param* p, int channel) {
    return button_to_param(p, channel, p->default_value[channel], button_geometry(), convert_with_scales);
}

float shown_value(const Param* p, int channel) {
    return param_to_button(p, channel, p->value[channel], button_geometry(), convert_with_scales);
}

// The colour that a packed value stands for: exact where it is the one that p has or had from its text.
void color_from_packed(const Param* p, uint32_t packed, float rgb[3]) {
    const float* exact = packed == pack_float_color_native(p->value)           ? p->value
                         : packed == pack_float_color_native(p->default_value) ? p->default_value
                                                                               : nullptr;
    if (exact)
        std::copy(exact, exact + 3, rgb);
    else
        unpack_float_color_native(packed, rgb);
}

bool store(Param* p, int channel, float v) {
    if (p->value[channel] == v) return false;
    p->value[channel] = v;
    return true;
}

int last_popup_entry(const Param* p) { return p->n_popup_entries > 0 ? p->n_popup_entries - 1 : INT32_MAX; }

void record_undo(Param* p, int channel, int mode, bool first_channel) {
    if (!(mode & (set_undo_boundary | set_undo_fold)) || Globals_V4->selected_effect < 0) return;
    const int boundary = (mode & set_undo_fold) || !first_channel ? 0 : 1;
    spark_set_undo_from_state(spark_make_undo_state_1(p, channel), boundary);
}

void show_control(int number) {
    if (number > 0) sparkControlUpdate(number);
}

void set_control_name(const char* format, int number) {
    if (!format || number <= 0) return;
    char name[SPARK_MAX_STRING];
    format_to_name(name, sizeof(name), format);
    sparkSetControlName(1, number, name);
}

// Writes a value, in internal units, into the control's structure. The result: the structure changed.
bool write_control(Param* p, int channel, float v) {
    if (!p->controls[channel]) return false;
    const bool in_units = param_kind(p).number;
    const float b = in_units ? param_to_button(p, channel, v, button_geometry(), convert_with_scales) : v;
    return control_kind(p).write(p->controls[channel], b);
}

int set_color_values(Param* p, int first, int count, const float* values, int mode) {
    if (first != 0 || count != 3) {
        V_error(level_warning, "param_set_values(%s): colors must be set all at once, not %d/%d", p->name, first,
                count);
        return 0;
    }
    const uint32_t packed = pack_float_color_native(values);
    const bool differs = !std::equal(values, values + 3, p->value);
    auto* const control = static_cast<SparkColourStruct*>(p->controls[0]);
    bool shown_differs = false;
    if (control && !(mode & (set_leave_color | set_no_control)) && control->Value != packed) {
        control->Value = packed;
        shown_differs = true;
    }
    const bool has_half = !(p->kind_flags & kind_color_only) && !(p->owner_flags & owner_global);
    const int number = param_control_number(p, 0);
    if ((mode & set_name) && has_half) {
        auto* const half = static_cast<SparkFloatStruct*>(p->controls[1]);
        if (half && p->button_formats[0]) half->Title = p->button_formats[0];
        set_control_name(p->button_formats[0], number);
    }
    if (differs) {
        record_undo(p, 0, mode, true);
        std::copy(values, values + 3, p->value);
    }
    if (((mode & set_update_control) && (differs || shown_differs)) || (mode & set_name)) {
        show_control(number);
        if (has_half && number > 0) show_control(number + 7);
    }
    return differs || shown_differs;
}

}  // namespace

ScreenGeometry button_geometry() {
    ScreenGeometry g = {0, 0, the_frame->pixel_aspect_ratio, 1, 1};
    if (spark_info_ptr) {
        g.width = static_cast<float>(spark_info_ptr->FrameWidth);
        g.height = static_cast<float>(spark_info_ptr->FrameHeight);
    } else if (Globals_V4) {
        g.width = static_cast<float>(Globals_V4->setup_width);
        g.height = static_cast<float>(Globals_V4->setup_height);
    }
    if (the_frame->render_info.render_step) {
        g.scale_x = static_cast<float>(the_frame->render_info.ratio_scale[0]);
        g.scale_y = static_cast<float>(the_frame->render_info.ratio_scale[1]);
    }
    return g;
}

float norm_height(const ScreenGeometry& g) {
    return g.height * usable_scale(g.scale_x) / (g.width * usable_scale(g.scale_y)) * g.aspect;
}

namespace {

// All screen modes are linear: internal = (button + offset) * factor + shift.
struct Conversion {
    float offset, factor, shift;
};

Conversion screen_conversion(const Param* p, int channel, const ScreenGeometry& g, int mode) {
    const bool scaled = (mode & convert_with_scales) != 0;
    const float x = scaled ? 1.0f / usable_scale(g.scale_x) : 1.0f;
    const float y = scaled ? 1.0f / usable_scale(g.scale_y) : 1.0f;
    const bool frame_known = g.width > 0 && g.height > 0;
    const float size = channel == 0 ? g.width : g.height;
    const float reach = channel == 0 ? 1.0f : frame_known ? norm_height(g) : 1.0f;
    switch (screen_mode(p)) {
        case screen_screen:
        case screen_center0:
            return {0, channel == 0 ? x : y, 0};
        case screen_center:
            return {channel <= 1 ? size * 0.5f : 0.0f, channel == 0 ? x : y, 0};
        case screen_normalize_scale:
            return {0, p->normalize_scale != 0 ? p->normalize_scale : 1.0f, 0};
        case screen_to_norm:
            if (!frame_known) break;
            return {0, 2.0f * reach / size, -reach};
        case screen_center_to_norm:
            if (!frame_known) break;
            return {0, 2.0f * reach / size, 0};
        case screen_x:
            return {0, x, 0};
        case screen_y:
            return {0, y, 0};
        default:
            break;
    }
    return {0, 1, 0};
}

}  // namespace

float button_to_param(const Param* p, int channel, float value, const ScreenGeometry& g, int conversion) {
    if (screen_mode(p) == screen_none) return value;
    const Conversion c = screen_conversion(p, channel, g, conversion);
    return (value + c.offset) * c.factor + c.shift;
}

float param_to_button(const Param* p, int channel, float value, const ScreenGeometry& g, int conversion) {
    if (screen_mode(p) == screen_none) return value;
    const Conversion c = screen_conversion(p, channel, g, conversion);
    return (value - c.shift) / c.factor - c.offset;
}

float exact_button_value(const Param* p, int channel) {
    const ScreenGeometry g = button_geometry();
    const float value = p->value[channel];
    const float near = param_to_button(p, channel, value, g, convert_with_scales);
    // Both ways round: what is lost is in the last places.
    constexpr int last_places = 64;
    float below = near, above = near;
    for (int i = 0; i < last_places; ++i) {
        if (button_to_param(p, channel, below, g, convert_with_scales) == value) return below;
        if (button_to_param(p, channel, above, g, convert_with_scales) == value) return above;
        below = std::nextafter(below, -INFINITY);
        above = std::nextafter(above, INFINITY);
    }
    return near;
}

uint32_t pack_float_color_native(const float rgb[3]) {
    uint32_t packed = 0;
    for (int i = 0; i < 3; ++i) {
        const float held = rgb[i] > 0 ? std::min(rgb[i], 1.0f) : 0.0f;  // also without a number
        const auto byte = static_cast<uint32_t>(held * 255.0f + 0.5f);
        packed |=
            byte << (byte_order_little_endian_p || std::endian::native == std::endian::little ? 8 * i : 24 - 8 * i);
    }
    return packed;
}

void unpack_float_color_native(uint32_t packed, float rgb[3]) {
    for (int i = 0; i < 3; ++i) {
        const int shift = byte_order_little_endian_p || std::endian::native == std::endian::little ? 8 * i : 24 - 8 * i;
        rgb[i] = static_cast<float>((packed >> shift) & 255u) * (1.0f / 255.0f);
    }
}

double read_control(const Param* p, int channel) {
    return p->controls[channel] ? control_kind(p).read(p->controls[channel]) : 0;
}

double read_global_control(const Param* p, int copy) {
    return copy >= 0 && copy < 4 && p->global_controls[copy] ? control_kind(p).read(p->global_controls[copy]) : 0;
}

namespace {

// A number as its control holds it, before bounds: whole where an int stands on a control of fractions.
float rounded_reading(const Param* p, float b) {
    return p->type == param_int && !(p->owner_flags & owner_global) ? std::floor(b + 0.5f) : b;
}

// The internal value of a number whose control holds raw: what it is where that shows it already.
float number_from_control(const Param* p, int channel, float raw) {
    if (!(raw == raw) || raw == shown_value(p, channel)) return p->value[channel];
    float b = hold_to_bounds(p, rounded_reading(p, raw), p->default_value[channel]);
    if (p->type == param_int && (p->owner_flags & owner_global)) b = std::trunc(b);
    return button_to_param(p, channel, b, button_geometry(), convert_with_scales);
}

bool sync_channel(Param* p, int channel) {
    const ParamKind& kind = param_kind(p);
    if (kind.reads_zero) return store(p, channel, 0);
    void* const control = p->controls[channel];
    if (!control) return false;
    if (p->type == param_color) {
        float rgb[3];
        color_from_packed(p, static_cast<uint32_t>(read_control(p, 0)), rgb);
        bool changed = false;
        for (int i = 0; i < 3; ++i) changed |= store(p, i, rgb[i]);
        return changed;
    }
    if (!kind.stored) {
        V_error(level_warning, "param %s: unknown ptype %d", p->name, p->type);
        return false;
    }
    if (!kind.number) {
        // A value that the control cannot show is corrected there.
        control_kind(p).write_held(control, read_control(p, channel));
        return store(p, channel, static_cast<float>(read_control(p, channel)));
    }
    return store(p, channel, number_from_control(p, channel, static_cast<float>(read_control(p, channel))));
}

}  // namespace

int param_sync_from_button(Param* p) {
    bool changed = false;
    for (int channel = 0; channel < p->n_buttons && channel < 4; ++channel) changed |= sync_channel(p, channel);
    return changed;
}

float param_value_at(const Param* p, int channel, float host_frame) {
    if (!param_kind(p).number || p->first_button < 0 || !p->controls[channel]) return p->value[channel];
    const int number = param_control_number(p, channel);
    if (host_api_at_least(2.5f)) return number_from_control(p, channel, sparkGetCurveValuef(1, number, host_frame));
    const float before = std::floor(host_frame);
    const float v0 = sparkGetCurveValue(1, number, static_cast<int>(before));
    const float v1 = sparkGetCurveValue(1, number, static_cast<int>(before) + 1);
    return number_from_control(p, channel, v0 + (v1 - v0) * (host_frame - before));
}

double control_to_internal(const Param* p, int channel, double reading) {
    const ParamKind& kind = param_kind(p);
    if (kind.reads_zero) return 0;
    if (kind.number) {
        const auto b = static_cast<float>(reading);
        if (!(b == b) || b == shown_value(p, channel)) return p->value[channel];
        return button_to_param(p, channel, rounded_reading(p, b), button_geometry(), convert_with_scales);
    }
    if (p->type == param_color) {
        float rgb[3];
        color_from_packed(p, static_cast<uint32_t>(reading), rgb);
        return pack_float_color_native(rgb);
    }
    if (p->type != param_popup) return reading;
    const auto* const popup = static_cast<const SparkPopupStruct*>(p->controls[channel]);
    const double last = popup ? popup->Entries - 1.0 : last_popup_entry(p);
    return std::max(0.0, std::min(reading, last));
}

bool param_on_buttons_p(const Param* p) {
    if (p->owner_flags & owner_global) return true;
    const int index = p->n_buttons > 0 ? p->buttons[0] : -1;
    if (p->first_button < 0 || index < 0 || index >= N_BUTTON_TABLE) return false;
    return Globals_V4->button_table[index].param == p;
}

int sync_effect_params(Genotype* genotype) {
    int changed = 0;
    for (int i = 0; genotype && i < genotype->param_number; ++i) {
        Param* const p = genotype->params[i];
        if (p && param_on_buttons_p(p)) changed |= param_sync_from_button(p);
    }
    return changed;
}

float param_get_value(Param* p, int channel) {
    param_sync_from_button(p);
    return channel >= 0 && channel < 4 ? p->value[channel] : 0.0f;
}

double param_get_value_c1(const Param* p, int channel) {
    if (p->type == param_color) {
        if (channel != 0)
            V_error(level_warning, "param_get_value_c1(%s): getting channel %d of a packed color.", p->name, channel);
        return pack_float_color_native(p->value);
    }
    return channel >= 0 && channel < 4 ? p->value[channel] : 0.0;
}

int param_set_value(Param* p, int channel, float value, int mode) {
    return param_set_values(p, channel, 1, &value, mode);
}

int param_set_value_c1(Param* p, int channel, double value, int mode) {
    if (p->type != param_color) return param_set_value(p, channel, static_cast<float>(value), mode);
    if (channel != 0)
        V_error(level_warning, "param_set_value_c1(%s): setting channel %d of a packed color.", p->name, channel);
    float rgb[3];
    color_from_packed(p, value > 0 && value <= 4294967295.0 ? static_cast<uint32_t>(value) : 0u, rgb);
    return param_set_values(p, 0, 3, rgb, mode);
}

namespace {

// One channel of anything but a colour. changed: an earlier channel changed. The result: this one did.
bool set_channel(Param* p, int channel, float v, int mode, bool first_channel, bool changed) {
    const bool has_button = channel < p->n_buttons;
    const int number = has_button ? param_control_number(p, channel) : 0;
    if (mode & set_name) {
        if (param_kind(p).padded) set_control_name(p->button_formats[channel], number);
    }
    const ParamKind& kind = param_kind(p);
    if (p->type == param_string) {  // the text lives in the control
        if (mode & set_host_channel) show_control(number);
        return false;
    }
    if (!kind.stored) {
        V_error(level_warning, "param %s: unknown ptype %d", p->name, p->type);
        return false;
    }
    if (!(v == v)) return false;
    if (v != p->value[channel]) v = hold_to_bounds(p, v, default_internal(p, channel));
    if (kind.whole) v = std::floor(v + 0.5f);
    if (p->type == param_popup) v = std::min(v, static_cast<float>(last_popup_entry(p)));
    const bool shown_differs = has_button && !(mode & set_no_control) && write_control(p, channel, v);
    const bool differs = v != p->value[channel];
    if (differs) {
        record_undo(p, channel, mode, first_channel);
        p->value[channel] = v;
    }
    if (mode & set_update_control) {
        if (differs || shown_differs || changed) show_control(number);
    } else if ((mode & set_host_channel) && !(mode & set_no_control)) {
        show_control(number);
    }
    return differs;
}

}  // namespace

int param_set_values(Param* p, int first, int count, const float* values, int mode) {
    const int end = std::min(first + count, std::clamp<int>(p->n_channels, 0, 4));
    if (first < 0 || first >= end) return 0;
    int changed = 0;
    if (p->type == param_color) {
        changed = set_color_values(p, first, end - first, values, mode);
    } else {
        for (int channel = first; channel < end; ++channel)
            changed |= set_channel(p, channel, values[channel - first], mode, channel == first, changed != 0);
    }
    if (p->owner_flags & owner_global) {
        global_param_sync_from_button(p, first_global_copy(p));
        if (changed) standard_control_changed(p);
    }
    return changed;
}

int param_set_color(Param* p, float red, float green, float blue) {
    const float rgb[3] = {red, green, blue};
    return param_set_values(p, 0, 3, rgb, set_update_control);
}

int set_param_default(Param* p, int mode) {
    float values[4];
    if (p->type == param_color) {
        std::copy(p->default_value, p->default_value + 4, values);
    } else {
        for (int channel = 0; channel < 4; ++channel) values[channel] = default_internal(p, channel);
    }
    return param_set_values(p, 0, p->n_channels, values, mode);
}

void reset_params_to_defaults(Genotype* genotype) {
    for (int i = 0; genotype && i < genotype->param_number; ++i)
        if (genotype->params[i]) set_param_default(genotype->params[i], set_no_control);
}

const char* string_param_get_from_buttons(const Param* p) {
    const auto* const control = static_cast<const SparkStringStruct*>(p->controls[0]);
    return control && p->type == param_string ? control->Value : "";
}

int param_control_number(const Param* p, int channel) {
    if (p->owner_flags & owner_global) return global_control_number(p, first_global_copy(p));
    if (p->first_button < 0 || channel < 0 || channel >= 4) return 0;
    return p->buttons[channel] + BUTTON_BASE;
}

int first_global_copy(const Param* p) {
    for (int copy = 0; copy < 4; ++copy)
        if (p->global_controls[copy]) return copy;
    return 0;
}

int global_control_number(const Param* p, int copy) {
    return copy >= 0 && copy < p->n_global_buttons && copy < 4 ? p->global_buttons[copy] : 0;
}

}  // namespace velloran
