// The plug-in learns of a value as it would from a user: the control's value is set, then its callback called. The
// press action is used, which never starts a render; crop edges answer to the release action alone.
#include "hosts/render/values.h"

#include "hosts/common/numbers.h"
#include "hosts/render/console.h"
#include "hosts/render/failure.h"
#include "hosts/render/suggest.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>

namespace render {
namespace {

using spark_host::Control;
using spark_host::find_control;
using spark_host::Plugin;
using spark_host::read_number;

constexpr const char* crop_key = "crop";
constexpr const char* crop_enable_key = "crop_enable";
constexpr const char* edges[] = {"left", "top", "right", "bottom"};  // variants 1 to 4

std::pair<std::string, std::string> split_argument(const std::string& argument) {
    const size_t equals = argument.find('=');
    if (equals == std::string::npos || equals == 0) throw Failure("'" + argument + "' is not of the form NAME=VALUE");
    return {argument.substr(0, equals), argument.substr(equals + 1)};
}

std::vector<std::string> split_list(const std::string& text) {
    std::vector<std::string> parts;
    for (size_t at = 0;;) {
        const size_t comma = text.find(',', at);
        parts.push_back(text.substr(at, comma - at));
        if (comma == std::string::npos) return parts;
        at = comma + 1;
    }
}

// The entries of one channel's popup: a popup of several elements lists them one after the other, a blank between.
std::vector<std::string> labels_of_channel(const ParamDescription& param, int channel) {
    std::vector<std::string> labels;
    int at = 0;
    for (const std::string& label : param.labels) {
        if (label.empty())
            at++;
        else if (at == channel)
            labels.push_back(label);
    }
    return labels;
}

// "Mode: Fast Blur" is also known as "Fast Blur".
std::string entry_word(const std::string& label) {
    const size_t colon = label.find(": ");
    return colon == std::string::npos ? label : label.substr(colon + 2);
}

float read_label(const std::string& text, const ParamDescription& param, int channel) {
    const std::vector<std::string> labels = labels_of_channel(param, channel);
    std::vector<std::string> words;
    for (size_t i = 0; i < labels.size(); i++) {
        words.push_back(entry_word(labels[i]));
        if (same_name_p(labels[i], text) || same_name_p(words.back(), text)) return static_cast<float>(i);
    }
    long index = 0;
    if (read_number(text, index)) {
        if (index >= 0 && (labels.empty() || index < static_cast<long>(labels.size())))
            return static_cast<float>(index);
        throw Failure("'" + text + "' is not an index of " + param.name + ", which has the entries 0 to " +
                      std::to_string(static_cast<long>(labels.size()) - 1));
    }
    std::string known;
    for (const std::string& word : words) known += (known.empty() ? "" : ", ") + word;
    throw Failure("'" + text + "' is not an entry of " + param.name + " (" + known + ")" + did_you_mean(text, words));
}

float read_switch(const std::string& text, const ParamDescription& param) {
    for (const char* word : {"1", "on", "yes", "true"})
        if (same_name_p(text, word)) return 1;
    for (const char* word : {"0", "off", "no", "false"})
        if (same_name_p(text, word)) return 0;
    throw Failure("'" + text + "' is no value for " + param.name + ": give 1, 0, on, off, yes, no, true or false");
}

float read_value(const std::string& text, const ParamDescription& param, int channel) {
    if (param.kind == "popup") return read_label(text, param, channel);
    if (param.kind == "boolean" || param.kind == "button") return read_switch(text, param);
    float value = 0;
    if (!read_number(text, value)) throw Failure("'" + text + "' is no number for " + param.name);
    return value;
}

int value_count(const ParamDescription& param) {
    return param.kind == "popup" || param.kind == "boolean" ? std::max(1, param.channels) : param.channels;
}

std::vector<ValueKey> read_keys(const std::string& text, const ParamDescription& param) {
    std::vector<ValueKey> keys(1);
    for (std::string part : split_list(text)) {
        ValueKey& key = keys.back();
        const size_t at = part.rfind('@');
        if (at != std::string::npos) {
            long frame = 0;
            if (!read_number(part.substr(at + 1), frame) || frame < 0 || frame > 99999999)
                throw Failure("'" + part + "': there is no frame number behind '@'");
            key.timed = true;
            key.frame = static_cast<int>(frame);
            part.resize(at);
        }
        key.values.push_back(read_value(part, param, static_cast<int>(key.values.size())));
        if (key.timed) keys.emplace_back();
    }
    if (keys.size() > 1 && keys.back().values.empty()) keys.pop_back();
    for (const ValueKey& key : keys) {
        if (keys.size() > 1 && !key.timed)
            throw Failure(param.name + ": the last value has no '@FRAME' as the others have");
        const int count = value_count(param);
        if (static_cast<int>(key.values.size()) != count)
            throw Failure(param.name + " takes " + std::to_string(count) + (count == 1 ? " value" : " values") +
                          ", not " + std::to_string(key.values.size()));
    }
    return keys;
}

// The plug-in holds values to their bounds.
void tell_of_bounds(const ParamDescription& param, const std::vector<ValueKey>& keys) {
    if (param.kind != "float" && param.kind != "int") return;
    for (const ValueKey& key : keys)
        for (const float value : key.values) {
            const bool low = param.min && value < *param.min, high = param.max && value > *param.max;
            if (low || high)
                return warn(settable_name(param) + "=" + spark_host::number_text(value) + " is beyond its bounds, " +
                            spark_host::number_text(low ? *param.min : *param.max) + " is used");
        }
}

Assignment read_assignment(const std::string& value, const ParamDescription& param) {
    Assignment assignment;
    assignment.param = &param;
    if (param.kind == "label" || param.numbers.empty()) throw Failure(param.name + " has no value to set");
    if (param.kind == "string")
        assignment.text = value;
    else
        assignment.keys = read_keys(value, param);
    tell_of_bounds(param, assignment.keys);
    return assignment;
}

void tell(Plugin& plugin, const ParamDescription& param, int number) {
    if (param.kind == "string") return;  // read when it is needed
    use_control(plugin, number, param.key == crop_key ? SPARK_ACTION_RELEASE : SPARK_ACTION_PRESS);
}

float control_units(const ParamDescription& param, float value) { return param.kind == "color" ? value * 255 : value; }

// Of buttons that do something at once none makes sense for a render.
bool action_p(const ParamDescription& param) {
    return param.key == "doc" || param.key == "undo" || param.key == "load_defaults" || param.key == "crop_set_default";
}

}  // namespace

std::string settable_name(const ParamDescription& param) {
    if (param.effect >= 0) return param.name;
    const bool edge = param.key == crop_key && param.variant >= 1 && param.variant <= 4;
    return edge ? std::string("crop_") + edges[param.variant - 1] : param.key;
}

bool settable_p(const ParamDescription& param) {
    return param.kind != "label" && param.kind != "button" && !param.numbers.empty() &&
           !(param.effect < 0 && action_p(param));
}

Assignment parse_param(const std::string& argument, const std::vector<ParamDescription>& params) {
    const auto [name, value] = split_argument(argument);
    std::vector<std::string> names;
    for (const ParamDescription& param : params) {
        if (same_name_p(param.name, name)) return read_assignment(value, param);
        names.push_back(param.name);
    }
    throw Failure("there is no param '" + name + "'" + did_you_mean(name, names));
}

std::vector<Assignment> parse_control(const std::string& argument, const std::vector<ParamDescription>& standard) {
    const auto [key, value] = split_argument(argument);
    std::vector<std::string> keys;
    std::vector<Assignment> found;
    if (same_name_p(key, crop_key)) {
        const std::vector<std::string> values = split_list(value);
        if (values.size() != 4) throw Failure("crop takes 4 values: left, top, right, bottom");
        for (int i = 0; i < 4; i++)
            for (const ParamDescription& param : standard)
                if (param.key == crop_key && param.variant == i + 1)
                    found.push_back(read_assignment(values[static_cast<size_t>(i)], param));
        for (const ParamDescription& param : standard)
            if (param.key == crop_enable_key) found.push_back(read_assignment("1", param));
        if (found.size() == 5) return found;
        throw Failure("this plug-in has no crop controls");
    }
    for (const ParamDescription& param : standard) {
        if (!settable_p(param)) continue;
        keys.push_back(settable_name(param));
        if (same_name_p(keys.back(), key)) return {read_assignment(value, param)};
    }
    if (keys.empty()) throw Failure("this plug-in has no standard controls");
    keys.push_back(crop_key);
    throw Failure("there is no standard control '" + key + "'" + did_you_mean(key, keys));
}

void select_effect(Plugin& plugin, const PluginDescription& description, size_t effect) {
    if (description.effects.size() < 2) return;
    Control* const popup = find_control(plugin.panel, SPARK_FIRST_CONTROL);
    if (!popup || popup->kind != SPARK_CONTROL_POPUP) {
        if (effect == 0) return;
        throw Failure("the plug-in has no control to choose the effect with");
    }
    // Definitions that could not be read keep their places among the entries.
    const auto entry = static_cast<float>(description.effects[effect].index);
    if (control_value(*popup, 0) == entry) return;
    set_control_value(*popup, 0, entry);
    use_control(plugin, SPARK_FIRST_CONTROL, SPARK_ACTION_PRESS);
}

bool pressed_p(const Assignment& assignment) {
    return assignment.param->kind == "button" && !assignment.keys.empty() && assignment.keys[0].values[0] != 0;
}

void apply_assignment(Plugin& plugin, const Assignment& assignment, int first_frame) {
    const ParamDescription& param = *assignment.param;
    if (param.kind == "button" && !pressed_p(assignment)) return;
    const bool standard = param.effect < 0;
    const bool colour = param.kind == "color";
    for (size_t i = 0; i < param.numbers.size(); i++) {
        Control* const control = find_control(plugin.panel, param.numbers[i]);
        if (!control) continue;
        if (param.kind == "string") {
            if (control->kind != SPARK_CONTROL_STRING) continue;
            auto* const string = static_cast<SparkStringStruct*>(control->structure);
            if (assignment.text.size() >= SPARK_MAX_STRING)
                throw Failure(param.name + ": a text of at most " + std::to_string(SPARK_MAX_STRING - 1) +
                              " letters fits");
            std::memcpy(string->Value, assignment.text.c_str(), assignment.text.size() + 1);
            continue;
        }
        // Copies of a standard control all show the same value; a colour has its channels in one control.
        const int channels = colour ? std::min(3, control_channels(*control)) : 1;
        for (int channel = 0; channel < channels; channel++) {
            const size_t value = colour ? static_cast<size_t>(channel) : standard ? 0 : i;
            control->curves[channel].keys.clear();
            for (const ValueKey& key : assignment.keys) {
                if (key.channel >= 0 ? key.channel != static_cast<int>(value) : value >= key.values.size()) continue;
                const float units = control_units(param, key.values[key.channel >= 0 ? 0 : value]);
                if (key.timed)
                    set_key(control->curves[channel], static_cast<float>(key.frame - first_frame + 1), units,
                            key.interpolation);
                else
                    set_control_value(*control, channel, units);
            }
            if (!control->curves[channel].keys.empty())
                set_control_value(*control, channel,
                                  value_at(*control, channel, static_cast<float>(plugin.host->frame + 1)));
        }
    }
    for (size_t i = 0; i < param.numbers.size(); i++) {
        tell(plugin, param, param.numbers[i]);
        if (standard) break;
    }
}

std::vector<Assignment> default_values(std::span<const ParamDescription> params) {
    std::vector<Assignment> assignments;
    for (const ParamDescription& param : params) {
        if (!settable_p(param) || param.kind == "string") continue;
        Assignment& assignment = assignments.emplace_back();
        assignment.param = &param;
        assignment.keys.emplace_back().values.assign(param.defaults, param.defaults + param.channels);
    }
    return assignments;
}

void hold_given_values(Plugin& plugin, const std::vector<Assignment>& assignments, int first_frame) {
    for (const Assignment& assignment : assignments)
        if (assignment.param->moves && assignment.keys.size() == 1 && !assignment.keys[0].timed)
            apply_assignment(plugin, assignment, first_frame);
}

std::map<int, std::string> shown_values(const Plugin& plugin) {
    std::map<int, std::string> shown;
    for (const auto& [number, control] : plugin.panel.controls)
        if (control.structure) shown[number] = value_text(control);
    return shown;
}

void tell_changes(Plugin& plugin, const PluginDescription& description, const std::map<int, std::string>& before) {
    std::vector<const ParamDescription*> by_number(SPARK_LAST_CONTROL + 1);
    const auto note_numbers = [&](const std::vector<ParamDescription>& params) {
        for (const ParamDescription& param : params)
            for (const int number : param.numbers)
                if (number >= 0 && number <= SPARK_LAST_CONTROL) by_number[static_cast<size_t>(number)] = &param;
    };
    for (const EffectDescription& effect : description.effects) note_numbers(effect.params);
    note_numbers(description.standard);
    // The crop's edges first: once the crop is on, each of them would start a render.
    for (const bool crop : {true, false}) {
        for (const auto& [number, shown] : before) {
            const ParamDescription* const param =
                by_number[static_cast<size_t>(std::clamp(number, 0, static_cast<int>(SPARK_LAST_CONTROL)))];
            if ((param && param->key == crop_key) != crop) continue;
            const Control* const control = find_control(plugin.panel, number);
            if (!control || value_text(*control) == shown) continue;
            if (param)
                tell(plugin, *param, number);
            else
                use_control(plugin, number, SPARK_ACTION_PRESS);
        }
    }
}

}  // namespace render
