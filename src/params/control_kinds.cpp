#include "params/control_kinds.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

using Float = SparkFloatStruct;
using Int = SparkIntStruct;
using Colour = SparkColourStruct;
using Boolean = SparkBooleanStruct;
using Popup = SparkPopupStruct;
using String = SparkStringStruct;

template <class Structure>
Structure& as(void* control) {
    return *static_cast<Structure*>(control);
}

template <class Structure>
const Structure& as(const void* control) {
    return *static_cast<const Structure*>(control);
}

template <class T, class V>
bool put(T& place, V value) {
    if (place == static_cast<T>(value)) return false;
    place = static_cast<T>(value);
    return true;
}

template <class Structure>
double read(const void* control) {
    return as<Structure>(control).Value;
}

template <class Structure>
bool write(void* control, double value) {
    return put(as<Structure>(control).Value, value);
}

template <class Structure>
const char*& title(void* control) {
    return as<Structure>(control).Title;
}

template <class Structure>
void set_bounds(void* control, float min, float max, float step) {
    auto& c = as<Structure>(control);
    c.Min = static_cast<decltype(c.Min)>(min);
    c.Max = static_cast<decltype(c.Max)>(max);
    c.Step = static_cast<decltype(c.Step)>(step);
}

bool write_held_float(void* control, double value) {
    auto& c = as<Float>(control);
    const auto v = static_cast<float>(value);
    return put(c.Value, c.Min <= c.Max ? std::clamp(v, c.Min, c.Max) : v);
}

bool write_held_int(void* control, double value) {
    auto& c = as<Int>(control);
    const double v = std::floor(value + 0.5);
    return put(c.Value, c.Min <= c.Max ? std::clamp<double>(v, c.Min, c.Max) : v);
}

double read_boolean(const void* control) { return as<Boolean>(control).Value ? 1 : 0; }
bool write_boolean(void* control, double value) { return put(as<Boolean>(control).Value, value != 0); }
bool write_held_boolean(void* control, double value) { return put(as<Boolean>(control).Value, value > 0); }

bool write_held_popup(void* control, double value) {
    auto& c = as<Popup>(control);
    return put(c.Value, std::clamp(value, 0.0, std::max(0.0, c.Entries - 1.0)));
}

// The text of a string is no number.
double read_nothing(const void*) { return 0; }
bool write_nothing(void*, double) { return false; }

// clang-format off
void* float_at(const GlobalsV4Record* g, int n) { return g->float_controls[n]; }
void* int_at(const GlobalsV4Record* g, int n) { return g->int_controls[n]; }
void* color_at(const GlobalsV4Record* g, int n) { return g->color_controls[n]; }
void* boolean_at(const GlobalsV4Record* g, int n) { return g->boolean_controls[n]; }
void* toggle_at(const GlobalsV4Record* g, int n) { return g->toggle_controls[n]; }
void* popup_at(const GlobalsV4Record* g, int n) { return g->popup_controls[n]; }
void* string_at(const GlobalsV4Record* g, int n) { return g->string_controls[n]; }

constexpr ParamKind param_kinds[] = {
    // control        standard control number stored whole  zero   padded width field
    {control_boolean, control_boolean, false, false, false, false, false, 0,  ""},       // unknown
    {control_float,   control_float,   true,  true,  false, false, true,  0,  nullptr},  // float
    {control_float,   control_int,     true,  true,  true,  false, true,  28, ": %d"},   // int
    {control_color,   control_color,   false, false, false, false, true,  23, ":"},      // color
    {control_popup,   control_popup,   false, true,  true,  false, false, 0,  ""},       // popup
    {control_boolean, control_boolean, false, true,  true,  false, false, 0,  ""},       // boolean
    {control_boolean, control_boolean, false, true,  false, true,  false, 0,  ""},       // button
    {control_string,  control_string,  false, false, false, true,  true,  0,  ": %s"},   // string
    {control_popup,   control_popup,   false, true,  true,  true,  false, 0,  ""},       // label
};
// clang-format on
constexpr int n_param_kinds = sizeof(param_kinds) / sizeof(param_kinds[0]);
static_assert(n_param_kinds == param_label + 1);

}  // namespace

// clang-format off
const ControlKind control_kinds[n_control_kinds] = {
    {float_at,   read<Float>,  write<Float>,  write_held_float,   title<Float>,   set_bounds<Float>},
    {int_at,     read<Int>,    write<Int>,    write_held_int,     title<Int>,     set_bounds<Int>},
    {color_at,   read<Colour>, write<Colour>, write<Colour>,      title<Colour>,  nullptr},
    {boolean_at, read_boolean, write_boolean, write_held_boolean, title<Boolean>, nullptr},
    {toggle_at,  read_boolean, write_boolean, write_held_boolean, title<Boolean>, nullptr},
    {popup_at,   read<Popup>,  write<Popup>,  write_held_popup,   title<Popup>,   nullptr},
    {string_at,  read_nothing, write_nothing, write_nothing,      title<String>,  nullptr},
};
// clang-format on

const ParamKind& param_kind(const Param* p) {
    return param_kinds[p->type > 0 && p->type < n_param_kinds ? p->type : param_unknown];
}

const ControlKind& control_kind(const Param* p) {
    const ParamKind& kind = param_kind(p);
    if (p->kind_flags & kind_widget_enable) return control_kinds[control_toggle];
    return control_kinds[p->owner_flags & owner_global ? kind.standard_control : kind.control];
}

}  // namespace velloran
