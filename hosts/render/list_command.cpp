#include "hosts/render/commands.h"
#include "hosts/render/console.h"
#include "hosts/render/effect.h"
#include "hosts/render/failure.h"
#include "hosts/render/list_json.h"
#include "hosts/render/look_file.h"
#include "hosts/render/values.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace render {

namespace {

using nlohmann::ordered_json;

std::string values_text(const ParamDescription& param) {
    std::string text;
    for (int i = 0; i < param.channels; i++) text += (i ? "," : "") + list_number(param.defaults[i]);
    return text;
}

std::string param_text(const ParamDescription& param, size_t name_width) {
    std::string name = settable_name(param);
    name.resize(std::max(name_width, name.size()), ' ');
    std::string kind = param.kind;
    kind.resize(std::max<size_t>(8, kind.size()), ' ');
    std::string text = "    " + name + "  " + kind;
    if (param.kind == "label") {
        text += "  " + (param.labels.empty() ? "" : param.labels[0]);
    } else if (param.kind == "popup") {
        const auto labels = first_labels(param);
        text += "  default " + values_text(param) + "  entries:";
        for (size_t i = 0; i < labels.size(); i++)
            text += (i ? ", " : " ") + std::to_string(i) + " \"" + labels[i] + "\"";
    } else if (param.kind != "string" && param.kind != "button") {
        text += "  default " + values_text(param);
        if (has_range(param)) {
            text += "  range " + (param.min ? list_number(*param.min) : "...") + " to " +
                    (param.max ? list_number(*param.max) : "...");
            text += "  step " + list_number(param.step);
        }
    }
    if (param.moves) text += "  (moves from 0 to 1 over the clip by itself; -p " + param.name + "=0 holds it)";
    if (param.on_screen) text += "  (on screen)";
    if (param.hidden) text += "  (hidden)";
    text += "\n";
    std::string words = param.note;
    if (!param.unit.empty()) words += (words.empty() ? "Unit: " : " Unit: ") + param.unit + ".";
    if (param.soft_min && param.soft_max)
        words += " Usual: " + list_number(*param.soft_min) + " to " + list_number(*param.soft_max) + ".";
    return words.empty() ? text : text + "      " + std::string(name_width, ' ') + words + "\n";
}

std::string params_text(const std::vector<ParamDescription>& params) {
    size_t width = 0;
    for (const ParamDescription& param : params) width = std::max(width, settable_name(param).size());
    std::string text, group;
    for (const ParamDescription& param : params) {
        if (param.group != group) text += param.group.empty() ? "   (no group)\n" : "   " + param.group + ":\n";
        group = param.group;
        text += param_text(param, std::min<size_t>(width, 32));
    }
    return text;
}

std::string looks_text(const std::vector<Look>& looks) {
    std::string text = looks.empty() ? "" : "  looks (--look)\n";
    size_t width = 0;
    for (const Look& look : looks) width = std::max(width, look.name.size());
    for (const Look& look : looks)
        text += "    " + look.name + std::string(width - look.name.size(), ' ') + "  " + look.note + "\n";
    return text;
}

struct Started {
    spark_host::Host host;
    std::unique_ptr<spark_host::Plugin> plugin;
    PluginDescription description;
};

std::unique_ptr<Started> start(const EffectChoice& choice, const std::string& config) {
    auto started = std::make_unique<Started>();
    started->host.calling_env = SPARK_ENV_BATCH;
    started->host.format = {1920, 1080, SPARK_DEPTH_8};
    started->host.memory_buffers = 10000;
    started->host.on_error = [](const std::string& text) { fail(text); };
    started->plugin = load_choice(started->host, choice, config);
    if (!start_plugin(*started->plugin)) throw Failure(choice.plugin + ": the plug-in cannot be used");
    started->description = describe_plugin(*started->plugin);
    return started;
}

int list_all(const std::string& config, bool json) {
    ordered_json report = ordered_json::array();
    int status = exit_done;
    const std::vector<std::string> names = plugin_names();
    for (const std::string& name : names) {
        std::string effects;
        ordered_json list = ordered_json::array();
        try {
            EffectChoice choice;
            choice.plugin = name;
            choice.module_path = find_module(name);
            const auto started = start(choice, config);
            for (const EffectDescription& effect : started->description.effects) {
                effects += (effects.empty() ? "" : ", ") + effect.name;
                list.push_back(effect.name);
            }
        } catch (const Failure& problem) {
            fail(problem.what());
            status = exit_nothing_done;
            continue;
        }
        report.push_back({{"plugin", name}, {"effects", list}});
        if (!json) print(name + ": " + effects + "\n");
    }
    if (json) print(report.dump(2) + "\n");
    if (names.empty()) note("no plug-ins are installed; a text of definitions can be listed: velloran list my.text");
    return status;
}

}  // namespace

int list_command(const std::string& argument, const std::string& config_option, bool json) {
    drop_plugin_output();
    const std::string config = config_option.empty() ? default_config_directory() : config_option;
    if (argument.empty()) return list_all(config, json);
    const EffectChoice choice = choose_effect(argument);
    const auto started = start(choice, config);
    const PluginDescription& description = started->description;
    const size_t chosen = find_effect(description, choice);
    const std::vector<Look> all_looks = read_looks(choice, config);
    if (json) {
        print(plugin_json(choice.plugin, description, choice.effect.empty() ? nullptr : &description.effects[chosen],
                          all_looks)
                  .dump(2, ' ', false, nlohmann::json::error_handler_t::replace) +
              "\n");
        return exit_done;
    }
    for (size_t i = 0; i < description.effects.size(); i++) {
        if (!choice.effect.empty() && i != chosen) continue;
        const EffectDescription& effect = description.effects[i];
        std::string inputs;
        for (const std::string& input : effect.inputs) inputs += (inputs.empty() ? "" : ", ") + input;
        print(choice.plugin + ":" + effect.name + "\n  inputs  " + (inputs.empty() ? "none" : inputs) + "\n");
        if (!effect.note.empty()) print("  " + effect.note + "\n");
        if (effect.remembers)
            print("  remembers: a frame depends on the frames before it, so ranges begin with the clip\n");
        print(effect.params.empty() ? "  no params\n" : "  params (-p)\n" + params_text(effect.params));
        print(looks_text(looks_of(all_looks, effect.name)));
    }
    std::vector<ParamDescription> settable;
    std::copy_if(description.standard.begin(), description.standard.end(), std::back_inserter(settable), settable_p);
    if (!settable.empty()) print("standard controls (-c)\n" + params_text(settable));
    return exit_done;
}

}  // namespace render
