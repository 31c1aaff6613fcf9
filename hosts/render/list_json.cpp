#include "hosts/render/list_json.h"

#include "hosts/render/values.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>

namespace render {

using nlohmann::ordered_json;

std::string list_number(float value) {
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof(text), value, std::chars_format::general, 6).ptr);
}

std::vector<std::string> first_labels(const ParamDescription& param) {
    const auto end = std::find(param.labels.begin(), param.labels.end(), "");
    return {param.labels.begin(), end};
}

bool has_range(const ParamDescription& param) { return param.kind == "float" || param.kind == "int"; }

namespace {

double short_number(float value) {
    const std::string text = list_number(value);
    double number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

ordered_json param_json(const ParamDescription& param) {
    ordered_json object = {{"name", param.name}};
    if (param.effect < 0) object["key"] = settable_name(param);
    object["kind"] = param.kind;
    object["default"] = ordered_json::array();
    for (int i = 0; i < param.channels; i++) object["default"].push_back(short_number(param.defaults[i]));
    if (has_range(param)) {
        object["min"] = param.min ? ordered_json(short_number(*param.min)) : ordered_json();
        object["max"] = param.max ? ordered_json(short_number(*param.max)) : ordered_json();
        object["step"] = short_number(param.step);
        if (param.soft_min && param.soft_max)
            object["usual"] = {short_number(*param.soft_min), short_number(*param.soft_max)};
    }
    if (!param.note.empty()) object["note"] = param.note;
    if (!param.unit.empty()) object["unit"] = param.unit;
    if (!param.labels.empty()) object["labels"] = first_labels(param);
    if (!param.group.empty()) object["group"] = param.group;
    if (param.moves) object["moves"] = true;
    if (param.hidden) object["hidden"] = true;
    return object;
}

ordered_json looks_json(const std::vector<Look>& looks) {
    ordered_json list = ordered_json::array();
    for (const Look& look : looks) list.push_back({{"name", look.name}, {"note", look.note}, {"values", look.values}});
    return list;
}

}  // namespace

ordered_json plugin_json(const std::string& plugin, const PluginDescription& description, const EffectDescription* only,
                         const std::vector<Look>& looks) {
    ordered_json effects = ordered_json::array(), standard = ordered_json::array();
    for (const EffectDescription& effect : description.effects) {
        if (only && only != &effect) continue;
        ordered_json params = ordered_json::array();
        for (const ParamDescription& param : effect.params) params.push_back(param_json(param));
        effects.push_back({{"name", effect.name},
                           {"note", effect.note},
                           {"inputs", effect.inputs},
                           {"remembers", effect.remembers},
                           {"params", params},
                           {"looks", looks_json(looks_of(looks, effect.name))}});
    }
    for (const ParamDescription& param : description.standard)
        if (settable_p(param)) standard.push_back(param_json(param));
    return {{"plugin", plugin}, {"effects", effects}, {"standard", standard}};
}

}  // namespace render
