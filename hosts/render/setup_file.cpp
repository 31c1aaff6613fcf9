#include "hosts/render/setup_file.h"

#include "hosts/common/library_call.h"
#include "hosts/common/numbers.h"
#include "hosts/common/setup_text.h"
#include "hosts/render/console.h"
#include "hosts/render/failure.h"
#include "hosts/render/look_file.h"
#include "hosts/render/output_file.h"
#include "hosts/render/suggest.h"
#include "stubs/describe.h"

#include <algorithm>
#include <optional>
#include <set>
#include <sstream>

namespace render {
namespace {

using spark_host::Control;
using spark_host::number_text;

constexpr const char* header = "velloran-setup";
constexpr long file_version = 1;
constexpr const char* made_by = "velloran 4.04";

std::string effect_name(const RenderPlan& plan) {
    const auto& effects = plan.description.effects;
    return underscored(plan.choice.plugin + (effects.empty() ? "" : ":" + effects[plan.effect].name));
}

std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) out += c == '"' || c == '\\' ? std::string{'\\', c} : c == '\n' ? "\\n" : std::string{c};
    return out + "\"";
}

std::optional<std::string> unquoted(const std::string& line) {
    const size_t first = line.find('"');
    std::string out;
    for (size_t i = first + 1; first != std::string::npos && i < line.size(); i++) {
        if (line[i] == '"') return out;
        if (line[i] == '\\' && ++i < line.size())
            out += line[i] == 'n' ? '\n' : line[i];
        else if (i < line.size())
            out += line[i];
    }
    return std::nullopt;
}

// Channel of a value in its control: those of a colour share one.
const Control* control_of(const spark_host::Plugin& plugin, const ParamDescription& param, size_t channel, int& part) {
    const bool colour = param.kind == "color";
    part = colour ? static_cast<int>(channel) : 0;
    const size_t place = colour || param.effect < 0 ? 0 : channel;
    return place < param.numbers.size() ? find_control(plugin.panel, param.numbers[place]) : nullptr;
}

float file_units(const ParamDescription& param, float value) { return param.kind == "color" ? value / 255 : value; }

void write_param(const RenderPlan& plan, const ParamDescription& param, std::string& out) {
    const std::string name = underscored(settable_name(param));
    if (param.kind == "string") {
        const Control* const control = find_control(plan.plugin->panel, param.numbers[0]);
        if (control) out += "text " + name + " " + quoted(value_text(*control)) + "\n";
        return;
    }
    // A param that moves by itself is only there if somebody set it.
    const bool given = std::any_of(plan.assignments.begin(), plan.assignments.end(),
                                   [&](const Assignment& assignment) { return assignment.param == &param; });
    if (param.moves && !given) return;
    std::string values, keys;
    const size_t channels = static_cast<size_t>(param.effect < 0 && param.kind != "color" ? 1 : param.channels);
    for (size_t channel = 0; channel < channels; channel++) {
        int part = 0;
        const Control* const control = control_of(*plan.plugin, param, channel, part);
        if (!control) return;
        values += " " + number_text(file_units(param, control_value(*control, part)));
        for (const spark_host::Key& key : control->curves[part].keys)
            keys += "key " + name + " " + std::to_string(channel) + " " + number_text(key.frame) + " " +
                    number_text(file_units(param, key.value)) + " " + interpolation_word(key.interpolation) + "\n";
    }
    out += std::string(param.effect < 0 ? "control " : "param ") + name + values + "\n" + keys;
}

const ParamDescription* find_settable(const std::vector<ParamDescription>& params, const std::string& name) {
    for (const ParamDescription& param : params)
        if (settable_p(param) && same_name_p(settable_name(param), name)) return &param;
    return nullptr;
}

struct SetupReader {
    const RenderPlan& plan;
    const std::string& path;
    const std::vector<ParamDescription>& params;
    std::vector<Assignment> assignments;
    std::set<const ParamDescription*> named;
    float across = 1, up = 1;  // what positions in pixels are multiplied with

    [[noreturn]] void broken(const std::string& line) const { throw Failure(path + ": is damaged at '" + line + "'"); }

    // Null after a word to the user: the effect has changed since.
    const ParamDescription* param_of(const std::string& name, bool standard) {
        const auto& list = standard ? plan.description.standard : params;
        if (const ParamDescription* const param = find_settable(list, name)) {
            named.insert(param);
            return param;
        }
        std::vector<std::string> names;
        for (const ParamDescription& param : list) names.push_back(settable_name(param));
        warn(path + ": there is no " + (standard ? "standard control '" : "param '") + name +
             "' any more, its value is left out" + did_you_mean(name, names));
        return nullptr;
    }

    float scaled(const ParamDescription& param, size_t channel, float value) const {
        return !param.pixels ? value : value * (channel == 0 ? across : up);
    }

    void values(const std::string& line, std::istringstream& words, const ParamDescription& param) {
        Assignment assignment;
        assignment.param = &param;
        ValueKey& key = assignment.keys.emplace_back();
        for (std::string word; words >> word;) {
            float value = 0;
            if (!spark_host::read_number(word, value)) broken(line);
            key.values.push_back(scaled(param, key.values.size(), value));
        }
        const size_t channels = static_cast<size_t>(param.effect < 0 && param.kind != "color" ? 1 : param.channels);
        if (key.values.size() != channels)
            return warn(path + ": " + settable_name(param) + " takes " + std::to_string(channels) + " values, not " +
                        std::to_string(key.values.size()) + "; it is left out");
        assignments.push_back(std::move(assignment));
    }

    void key(const std::string& line, std::istringstream& words, const ParamDescription* param) {
        std::string channel_word, frame_word, value_word, interpolation;
        words >> channel_word >> frame_word >> value_word >> interpolation;
        long channel = 0;
        float value = 0, frame = 0;
        ValueKey made;
        if (!spark_host::read_number(channel_word, channel) || !spark_host::read_number(frame_word, frame) ||
            !spark_host::read_number(value_word, value) ||
            !spark_host::read_interpolation(interpolation.c_str(), made.interpolation))
            broken(line);
        if (!param || assignments.empty() || assignments.back().param != param) return;
        if (channel < 0 || channel >= param->channels) broken(line);
        made.timed = true;
        made.frame = static_cast<int>(frame) + plan.first_frame - 1;
        made.channel = static_cast<int>(channel);
        made.values = {scaled(*param, static_cast<size_t>(channel), value)};
        assignments.back().keys.push_back(std::move(made));
    }

    void line(const std::string& text) {
        std::istringstream words(text);
        std::string kind, name;
        words >> kind >> name;
        if (kind == "param" || kind == "control") {
            const ParamDescription* const param = param_of(name, kind == "control");
            if (param) values(text, words, *param);
        } else if (kind == "key") {
            const ParamDescription* param = find_settable(params, name);
            if (!param) param = find_settable(plan.description.standard, name);
            key(text, words, param);
        } else if (kind == "text") {
            const auto value = unquoted(text);
            if (!value) broken(text);
            const ParamDescription* const param = param_of(name, false);
            if (!param) return;
            Assignment assignment;
            assignment.param = param;
            assignment.text = *value;
            assignments.push_back(std::move(assignment));
        } else {
            broken(text);
        }
    }
};

}  // namespace

std::string underscored(std::string name) {
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
}

// The crop's edges before the switch, or each of them would be held to the frame's.
std::vector<Assignment> read_setup_lines(const RenderPlan& plan, const std::string& path, const std::string& text) {
    static const std::vector<ParamDescription> none;
    const auto& effects = plan.description.effects;
    SetupReader reader{plan, path, effects.empty() ? none : effects[plan.effect].params, {}, {}};
    std::istringstream lines(text);
    std::string line, word, effect, size;
    long version = 0;
    std::getline(lines, line);
    std::istringstream first(line);
    first >> word >> word;
    if (!spark_host::read_number(word, version) || version != file_version)
        throw Failure(path + ": is a setup of version '" + word + "', this program reads version 1");
    bool whole = false;
    while (std::getline(lines, line)) {
        if (whole) throw Failure(path + ": goes on behind its end");
        std::istringstream words(line);
        std::string kind;
        words >> kind;
        if (kind == "effect") {
            words >> effect;
            if (!same_name_p(effect, effect_name(plan)))
                throw Failure(path + ": is a setup of " + effect + ", not of " + effect_name(plan));
        } else if (kind == "size") {
            float width = 0, height = 0;
            std::string across, up;
            words >> across >> up;
            if (!spark_host::read_number(across, width) || !spark_host::read_number(up, height) || width < 1 ||
                height < 1)
                reader.broken(line);
            reader.across = static_cast<float>(plan.host.format.width) / width;
            reader.up = static_cast<float>(plan.host.format.height) / height;
        } else if (kind == "end") {
            whole = !lines.eof();  // its own line feed is the last byte
        } else if (kind != "made-by") {
            if (effect.empty()) throw Failure(path + ": does not say whose setup it is");
            reader.line(line);
        }
    }
    if (!whole) throw Failure(path + ": ends early, its last line is missing");
    for (const ParamDescription& param : reader.params)
        if (settable_p(param) && !param.moves && !reader.named.count(&param))
            warn(path + ": does not name " + settable_name(param) + ", which keeps its default");
    return std::move(reader.assignments);
}

std::vector<Assignment> read_setup(RenderPlan& plan, const std::string& path) {
    const std::string text = read_text_file(path);
    if (text.rfind(std::string(header) + " ", 0) == 0) return read_setup_lines(plan, path, text);
    const auto before = shown_values(*plan.plugin);
    if (text.rfind("Velloran-save-file", 0) == 0) {
        const auto load = reinterpret_cast<SparkLoadSetupFn>(plugin_symbol(*plan.plugin, "SparkLoadSetup"));
        if (!load) throw Failure(path + ": this plug-in reads no setups of its own form");
        const spark_host::LibraryCall call;
        const int status = load(current_info(plan.host), path.c_str());
        if (status < 0) throw Failure(path + ": is not a setup of " + plan.choice.plugin + ", or damaged");
        if (status != 2) throw Failure(path + ": ends early");
        select_effect(*plan.plugin, plan.description, plan.effect);
        return {};
    }
    const size_t last = text.find_last_not_of(" \t\r\n");
    if (last == std::string::npos || last < 3 || text.compare(last - 2, 3, "End") != 0 || text[last - 3] != '\n')
        throw Failure(path + ": not a setup of this program, or one that ends early");
    if (!spark_host::read_setup_text(text, *plan.plugin)) throw Failure(path + ": not a setup of this program");
    warn(path + ": does not say which effect it belongs to, its values are taken by their controls' numbers");
    tell_changes(*plan.plugin, plan.description, before);
    return {};
}

std::string setup_lines(const RenderPlan& plan) {
    std::string out = std::string(header) + " " + std::to_string(file_version) + "\neffect " + effect_name(plan) +
                      "\nmade-by " + made_by + "\nsize " + std::to_string(plan.host.format.width) + " " +
                      std::to_string(plan.host.format.height) + "\n";
    const auto& effects = plan.description.effects;
    if (!effects.empty())
        for (const ParamDescription& param : effects[plan.effect].params)
            if (settable_p(param)) write_param(plan, param, out);
    // The crop's edges are held to the frame's size, so they only count where the crop is on.
    const ParamDescription* const crop = find_settable(plan.description.standard, "crop_enable");
    const Control* const crop_switch = crop ? find_control(plan.plugin->panel, crop->numbers[0]) : nullptr;
    const bool cropped = crop_switch && control_value(*crop_switch, 0) != 0;
    for (const ParamDescription& param : plan.description.standard)
        if (settable_p(param) && param.key.rfind("crop_view", 0) != 0 && (param.key != "crop" || cropped) &&
            param.key != "crop_enable")
            write_param(plan, param, out);
    if (crop) write_param(plan, *crop, out);
    return out + "end\n";
}

void save_setup(const RenderPlan& plan, const std::string& path) {
    const std::string out = setup_lines(plan);
    std::string error;
    if (!write_whole_file(path, std::vector<unsigned char>(out.begin(), out.end()), &error)) throw Failure(error);
}

void apply_values(RenderPlan& plan, const RenderOptions& options) {
    // A callback may want to look at a frame, so there must be one in hand.
    plan.host.frame = plan.frames.front() - plan.first_frame;
    select_effect(*plan.plugin, plan.description, plan.effect);
    if (!options.look.empty()) {
        if (!options.setup.empty() || !plan.setup.empty())
            throw Failure("a look and a setup each bring their own values; leave one of them out");
        std::vector<Assignment> from_look = read_look(plan, options.look);
        plan.assignments.insert(plan.assignments.begin(), std::make_move_iterator(from_look.begin()),
                                std::make_move_iterator(from_look.end()));
    }
    if (!options.setup.empty()) {
        std::vector<Assignment> from_setup = read_setup(plan, options.setup);
        // What the command line gives counts more.
        plan.assignments.insert(plan.assignments.begin(), std::make_move_iterator(from_setup.begin()),
                                std::make_move_iterator(from_setup.end()));
    }
    if (!plan.setup.empty()) {
        std::vector<Assignment> as_made = read_setup_lines(plan, options.recipe_from, plan.setup);
        plan.assignments.insert(plan.assignments.begin(), std::make_move_iterator(as_made.begin()),
                                std::make_move_iterator(as_made.end()));
    }
    for (const Assignment& assignment : plan.assignments) apply_assignment(*plan.plugin, assignment, plan.first_frame);
}

}  // namespace render
