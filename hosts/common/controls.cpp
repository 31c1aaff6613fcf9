#include "hosts/common/controls.h"

#include "hosts/common/numbers.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace spark_host {
namespace {

template <class T>
T& as(const Control& control) {
    return *static_cast<T*>(control.structure);
}

unsigned char* colour_bytes(const Control& control) {
    return reinterpret_cast<unsigned char*>(&as<SparkColourStruct>(control).Value);
}

const char* structure_title(const Control& control) {
    switch (control.kind) {
        case SPARK_CONTROL_FLOAT:
            return as<SparkFloatStruct>(control).Title;
        case SPARK_CONTROL_INT:
            return as<SparkIntStruct>(control).Title;
        case SPARK_CONTROL_COLOUR:
            return as<SparkColourStruct>(control).Title;
        case SPARK_CONTROL_BOOLEAN:
        case SPARK_CONTROL_TOGGLE:
            return as<SparkBooleanStruct>(control).Title;
        case SPARK_CONTROL_POPUP:
            return as<SparkPopupStruct>(control).Title;
        case SPARK_CONTROL_STRING:
            return as<SparkStringStruct>(control).Title;
    }
    return nullptr;
}

int to_int(float value) { return static_cast<int>(std::lround(std::clamp(value, -1e9f, 1e9f))); }

}  // namespace

void set_controls(ControlPanel& panel, const SparkControl* list, int count) {
    for (auto& [number, control] : panel.controls) control.structure = nullptr;
    for (int i = 0; i < count; i++) {
        Control& control = panel.controls[list[i].Number];
        control.number = list[i].Number;
        control.kind = list[i].Kind;
        control.structure = list[i].Control;
    }
}

const Control* find_control(const ControlPanel& panel, int number) {
    const auto at = panel.controls.find(number);
    return at == panel.controls.end() || !at->second.structure ? nullptr : &at->second;
}

Control* find_control(ControlPanel& panel, int number) {
    return const_cast<Control*>(find_control(std::as_const(panel), number));
}

int control_channels(const Control& control) {
    return control.kind == SPARK_CONTROL_COLOUR ? 3 : control.kind == SPARK_CONTROL_STRING ? 0 : 1;
}

float control_value(const Control& control, int channel) {
    switch (control.kind) {
        case SPARK_CONTROL_FLOAT:
            return as<SparkFloatStruct>(control).Value;
        case SPARK_CONTROL_INT:
            return static_cast<float>(as<SparkIntStruct>(control).Value);
        case SPARK_CONTROL_COLOUR:
            return colour_bytes(control)[channel];
        case SPARK_CONTROL_BOOLEAN:
        case SPARK_CONTROL_TOGGLE:
            return as<SparkBooleanStruct>(control).Value;
        case SPARK_CONTROL_POPUP:
            return static_cast<float>(as<SparkPopupStruct>(control).Value);
        case SPARK_CONTROL_STRING:
            break;
    }
    return 0;
}

void set_control_value(Control& control, int channel, float value) {
    switch (control.kind) {
        case SPARK_CONTROL_FLOAT:
            as<SparkFloatStruct>(control).Value = value;
            break;
        case SPARK_CONTROL_INT:
            as<SparkIntStruct>(control).Value = to_int(value);
            break;
        case SPARK_CONTROL_COLOUR:
            colour_bytes(control)[channel] = static_cast<unsigned char>(std::clamp(to_int(value), 0, 255));
            break;
        case SPARK_CONTROL_BOOLEAN:
        case SPARK_CONTROL_TOGGLE:
            as<SparkBooleanStruct>(control).Value = to_int(value) != 0;
            break;
        case SPARK_CONTROL_POPUP:
            as<SparkPopupStruct>(control).Value = to_int(value);
            break;
        case SPARK_CONTROL_STRING:
            break;
    }
}

float value_at(const Control& control, int channel, float frame) {
    return curve_value(control.curves[channel], frame, control_value(control, channel));
}

void apply_curves(ControlPanel& panel, float frame) {
    for (auto& [number, control] : panel.controls) {
        if (!control.structure) continue;
        for (int channel = 0; channel < control_channels(control); channel++)
            if (!control.curves[channel].keys.empty())
                set_control_value(control, channel, value_at(control, channel, frame));
    }
}

const char* kind_word(SparkControlKind kind) {
    switch (kind) {
        case SPARK_CONTROL_FLOAT:
            return "float";
        case SPARK_CONTROL_INT:
            return "int";
        case SPARK_CONTROL_COLOUR:
            return "colour";
        case SPARK_CONTROL_BOOLEAN:
            return "boolean";
        case SPARK_CONTROL_POPUP:
            return "popup";
        case SPARK_CONTROL_STRING:
            return "string";
        case SPARK_CONTROL_TOGGLE:
            return "toggle";
    }
    return "unknown";
}

std::string control_title(const Control& control) {
    if (!control.name.empty() || !control.structure) return control.name;
    const char* const title = structure_title(control);
    return title ? title : "";
}

std::string value_text(const Control& control) {
    if (control.kind == SPARK_CONTROL_STRING) return as<SparkStringStruct>(control).Value;
    if (control.kind == SPARK_CONTROL_POPUP) {
        const auto& popup = as<SparkPopupStruct>(control);
        const bool named = popup.Value >= 0 && popup.Value < std::min<int>(popup.Entries, SPARK_MAX_POPUP_ENTRIES);
        if (named && popup.Names[popup.Value]) return popup.Names[popup.Value];
    }
    std::string text;
    for (int channel = 0; channel < control_channels(control); channel++)
        text += (channel ? "," : "") + number_text(control_value(control, channel));
    return text;
}

std::vector<ControlPage> control_pages(const ControlPanel& panel) {
    std::map<int, ControlPage> pages;
    for (const auto& [number, control] : panel.controls) {
        if (!control.structure || number < SPARK_FIRST_CONTROL) continue;
        if (!control.enabled && control_title(control).empty()) continue;
        const int index = (number - SPARK_FIRST_CONTROL) / SPARK_CONTROLS_PER_PAGE;
        const int place = (number - SPARK_FIRST_CONTROL) % SPARK_CONTROLS_PER_PAGE;
        ControlPage& page = pages[index];
        page.index = index;
        page.columns.resize((SPARK_CONTROLS_PER_PAGE + SPARK_CONTROLS_PER_COLUMN - 1) / SPARK_CONTROLS_PER_COLUMN);
        ShownControl shown{number,          control.kind, control_title(control), value_text(control), control.group,
                           control.enabled, false};
        for (const Curve& curve : control.curves) shown.animated |= !curve.keys.empty();
        page.columns[static_cast<size_t>(place / SPARK_CONTROLS_PER_COLUMN)].push_back(std::move(shown));
    }
    std::vector<ControlPage> list;
    for (auto& [index, page] : pages) {
        const auto title = panel.page_titles.find(index);
        if (title != panel.page_titles.end()) page.title = title->second;
        list.push_back(std::move(page));
    }
    return list;
}

}  // namespace spark_host
