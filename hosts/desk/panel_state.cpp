#include "hosts/desk/panel_state.h"

#include "hosts/common/numbers.h"

#include <algorithm>
#include <cctype>
#include <cmath>

namespace desk {

using render::ParamDescription;
using render::RenderPlan;
using spark_host::Control;

bool ControlState::same_layout(const ControlState& other) const {
    return number == other.number && kind == other.kind && caption == other.caption && button == other.button &&
           name == other.name && param == other.param && group == other.group && entries == other.entries;
}

namespace {

// "Radius: %.2f" is "Radius" with two decimals; a doubled percent sign stands for one.
QString plain_title(const std::string& title, int& decimals) {
    std::string name;
    for (size_t i = 0; i < title.size(); i++) {
        if (title[i] == '%' && i + 1 < title.size() && title[i + 1] == '%') {
            name += '%';
            i++;
        } else if (title[i] == '%') {
            const size_t dot = title.find('.', i);
            const size_t end = title.find_first_of("fdgs", i);
            if (end != std::string::npos && title[end] == 'd') decimals = 0;
            if (dot != std::string::npos && dot < end && std::isdigit(static_cast<unsigned char>(title[dot + 1])))
                decimals = title[dot + 1] - '0';
            i = end == std::string::npos ? title.size() : end;
        } else {
            name += title[i];
        }
    }
    QString text = QString::fromStdString(name).trimmed();
    while (text.endsWith(':')) text.chop(1);
    return text.trimmed();
}

QString number_word(float value) { return QString::fromStdString(spark_host::number_text(value)); }

QString help_of(const ParamDescription& param) {
    QStringList lines;
    lines << "<b>" + QString::fromStdString(render::settable_name(param)).toHtmlEscaped() + "</b>";
    if (!param.note.empty()) lines << QString::fromStdString(param.note).toHtmlEscaped();
    QStringList facts;
    if (!param.unit.empty()) facts << "in " + QString::fromStdString(param.unit).toHtmlEscaped();
    if (param.soft_min && param.soft_max)
        facts << "usually " + number_word(*param.soft_min) + " to " + number_word(*param.soft_max);
    if (param.min && param.max) facts << "held to " + number_word(*param.min) + " to " + number_word(*param.max);
    if (param.kind == "float" || param.kind == "int") {
        QStringList defaults;
        for (int i = 0; i < param.channels; i++) defaults << number_word(param.defaults[i]);
        facts << "default " + defaults.join(", ");
    }
    if (!facts.isEmpty()) lines << facts.join("; ");
    return lines.join("<br>");
}

void fill_from_param(ControlState& state, const ParamDescription& param, int channel) {
    state.param = QString::fromStdString(render::settable_name(param));
    state.standard = param.effect < 0;
    state.help = help_of(param);
    const bool colour = param.kind == "color";
    for (int i = 0; i < state.channels; i++) {
        const int from = std::clamp(colour ? i : channel, 0, 3);
        state.defaults[i] = param.defaults[from] * (colour ? 255.0f : 1.0f);
    }
    if (param.min) state.min = *param.min;
    if (param.max) state.max = *param.max;
    if (param.soft_min && param.soft_max) {
        state.low = *param.soft_min;
        state.high = *param.soft_max;
    } else if (param.min && param.max) {
        state.low = *param.min;
        state.high = *param.max;
    }
    if (param.step > 0) state.step = param.step;
    const bool action =
        param.key == "doc" || param.key == "undo" || param.key == "load_defaults" || param.key == "crop_set_default";
    state.button = param.kind == "button" || action;
    if (param.kind == "label") state.caption = true;
}

template <class T>
const T& structure_of(const Control& control) {
    return *static_cast<const T*>(control.structure);
}

ControlState control_state(const RenderPlan& plan, const Control& control) {
    ControlState state;
    state.number = control.number;
    const int place = (control.number - SPARK_FIRST_CONTROL) % SPARK_CONTROLS_PER_PAGE;
    state.page = (control.number - SPARK_FIRST_CONTROL) / SPARK_CONTROLS_PER_PAGE;
    state.row = place % SPARK_CONTROLS_PER_COLUMN;
    state.column = place / SPARK_CONTROLS_PER_COLUMN;
    state.kind = control.kind;
    state.enabled = control.enabled;
    state.channels = control_channels(control);
    state.name = plain_title(control_title(control), state.decimals);
    state.group = QString::fromStdString(control.group);
    for (int i = 0; i < state.channels; i++) {
        state.values[i] = control_value(control, i);
        for (const spark_host::Key& key : control.curves[i].keys)
            state.keys[i].push_back({key.frame, key.value, key.interpolation == spark_host::Interpolation::hermite,
                                     key.interpolation == spark_host::Interpolation::constant});
    }
    if (control.kind == SPARK_CONTROL_INT) {
        const auto& integer = structure_of<SparkIntStruct>(control);
        state.min = static_cast<float>(integer.Min);
        state.max = static_cast<float>(integer.Max);
        state.step = 1;
        state.decimals = 0;
    } else if (control.kind == SPARK_CONTROL_FLOAT) {
        const auto& number = structure_of<SparkFloatStruct>(control);
        state.min = number.Min;
        state.max = number.Max;
        if (number.Step > 0) state.step = number.Step;
    } else if (control.kind == SPARK_CONTROL_POPUP) {
        const auto& popup = structure_of<SparkPopupStruct>(control);
        for (int i = 0; i < std::clamp<int>(popup.Entries, 0, SPARK_MAX_POPUP_ENTRIES); i++)
            state.entries << QString::fromUtf8(popup.Names[i] ? popup.Names[i] : "");
        if (state.name.isEmpty() && state.entries.size() == 1) state.caption = true;
    } else if (control.kind == SPARK_CONTROL_STRING) {
        state.text = QString::fromStdString(value_text(control));
    }
    int channel = 0;
    const ParamDescription* const param = find_param(plan, control.number, &channel);
    if (param)
        fill_from_param(state, *param, channel);
    else if (control.kind == SPARK_CONTROL_FLOAT)
        state.caption = true;  // the name of a colour, whose pot stands in the next column
    return state;
}

}  // namespace

const ParamDescription* find_param(const RenderPlan& plan, int number, int* channel) {
    const auto look = [&](const std::vector<ParamDescription>& params) -> const ParamDescription* {
        for (const ParamDescription& param : params) {
            const auto at = std::find(param.numbers.begin(), param.numbers.end(), number);
            if (at == param.numbers.end()) continue;
            if (channel) *channel = param.effect < 0 ? 0 : static_cast<int>(at - param.numbers.begin());
            return &param;
        }
        return nullptr;
    };
    if (plan.effect < plan.description.effects.size())
        if (const ParamDescription* const param = look(plan.description.effects[plan.effect].params)) return param;
    return look(plan.description.standard);
}

void note_given(RenderPlan& plan, int number) {
    const ParamDescription* const param = find_param(plan, number);
    if (!param || !param->moves) return;
    for (const render::Assignment& known : plan.assignments)
        if (known.param == param) return;
    plan.assignments.emplace_back().param = param;
}

PanelState panel_state(const RenderPlan& plan) {
    PanelState panel;
    panel.frame = plan.host.frame;
    for (const auto& [number, control] : plan.plugin->panel.controls) {
        if (!control.structure || number < SPARK_FIRST_CONTROL) continue;
        ControlState state = control_state(plan, control);
        if (!state.enabled && state.name.isEmpty()) continue;
        // Of another effect of the plug-in.
        if (!state.standard && state.param.isEmpty() && (!state.enabled || control.kind == SPARK_CONTROL_COLOUR))
            continue;
        if (state.name.isEmpty() && state.entries.isEmpty() && control.kind != SPARK_CONTROL_COLOUR) continue;
        while (panel.pages.size() <= state.page) panel.pages << QString();
        panel.controls.push_back(std::move(state));
    }
    for (int i = 0; i < panel.pages.size(); i++) {
        const auto title = plan.plugin->panel.page_titles.find(i);
        panel.pages[i] = title == plan.plugin->panel.page_titles.end()
                             ? QString("Page %1").arg(i + 1)
                             : QString::fromStdString(title->second).trimmed();
    }
    return panel;
}

}  // namespace desk
