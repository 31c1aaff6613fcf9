#include "hosts/desk/command_line.h"

#include "hosts/common/numbers.h"
#include "hosts/render/setup_file.h"

#include <algorithm>
#include <filesystem>

namespace desk {

using render::ParamDescription;
using render::RenderPlan;
using spark_host::Control;
using spark_host::number_text;

namespace {

const Control* control_of(const RenderPlan& plan, const ParamDescription& param, int channel, int& part) {
    const bool one = param.kind == "color" || param.effect < 0;
    part = param.kind == "color" ? channel : 0;
    const size_t place = one ? 0 : static_cast<size_t>(channel);
    return place < param.numbers.size() ? find_control(plan.plugin->panel, param.numbers[place]) : nullptr;
}

int channels_of(const ParamDescription& param) {
    return param.effect < 0 && param.kind != "color" ? 1 : std::max(1, param.channels);
}

float shown_units(const ParamDescription& param, float value) { return param.kind == "color" ? value / 255 : value; }

// Keys can be given as VALUE@FRAME only where all channels have them at the same whole frames, and go evenly.
bool keys_can_be_said(const RenderPlan& plan, const ParamDescription& param) {
    const std::vector<spark_host::Key>* first = nullptr;
    for (int i = 0; i < channels_of(param); i++) {
        int part = 0;
        const Control* const control = control_of(plan, param, i, part);
        if (!control) return true;
        const auto& keys = control->curves[part].keys;
        if (!first) first = &keys;
        if (keys.size() != first->size()) return false;
        for (size_t k = 0; k < keys.size(); k++)
            if (keys[k].frame != (*first)[k].frame || keys[k].interpolation != spark_host::Interpolation::linear ||
                keys[k].frame != static_cast<float>(static_cast<int>(keys[k].frame)))
                return false;
    }
    return true;
}

// "name=value,...", empty if the default stands.
std::string assignment_text(const RenderPlan& plan, const ParamDescription& param) {
    if (!render::settable_p(param)) return "";
    const std::string name = render::underscored(render::settable_name(param));
    if (param.kind == "string") {
        const Control* const control = find_control(plan.plugin->panel, param.numbers[0]);
        const std::string text = control ? value_text(*control) : "";
        return text.empty() ? "" : name + "=" + text;
    }
    bool changed = false;
    std::string values;
    size_t keys = 0;
    for (int i = 0; i < channels_of(param); i++) {
        int part = 0;
        const Control* const control = control_of(plan, param, i, part);
        if (!control) return "";
        const float value = shown_units(param, control_value(*control, part));
        changed |= std::abs(value - param.defaults[param.kind == "color" ? i : std::min(i, 3)]) > 1e-6f;
        values += (i ? "," : "") + number_text(value);
        keys = std::max(keys, control->curves[part].keys.size());
    }
    if (keys == 0) return changed ? name + "=" + values : "";
    values.clear();
    for (size_t k = 0; k < keys; k++)
        for (int i = 0; i < channels_of(param); i++) {
            int part = 0;
            const auto& key = control_of(plan, param, i, part)->curves[part].keys[k];
            values += (values.empty() ? "" : ",") + number_text(shown_units(param, key.value));
            if (i + 1 == channels_of(param))
                values += "@" + std::to_string(static_cast<int>(key.frame) + plan.first_frame - 1);
        }
    return name + "=" + values;
}

}  // namespace

std::vector<std::string> render_arguments(const RenderPlan& plan, int length, const std::string& output,
                                          const std::string& frames, const std::string& directory) {
    const auto& effect = plan.description.effects[plan.effect];
    const bool from_text = !plan.choice.text_path.empty();
    std::vector<std::string> words = {
        "render", (from_text ? plan.choice.text_path : plan.choice.plugin) + ":" + render::underscored(effect.name)};
    for (size_t i = 0; i < plan.inputs.size(); i++) {
        if (!plan.inputs[i]) continue;
        const bool named = i > 0 && !plan.inputs[i - 1] && i < effect.inputs.size();
        words.insert(words.end(), {"-i", (named ? effect.inputs[i] + "=" : "") + plan.inputs[i]->path});
    }
    words.insert(words.end(), {"-o", output});
    const bool timed = std::any_of(plan.inputs.begin(), plan.inputs.end(), [](const auto& input) {
        return input && input->kind != render::InputClip::Kind::still;
    });
    if (!timed && length > 1) words.insert(words.end(), {"--length", std::to_string(length)});
    if (!frames.empty()) words.insert(words.end(), {"-f", frames});
    const spark_host::FrameFormat& format = plan.host.format;
    if (std::none_of(plan.inputs.begin(), plan.inputs.end(), [](const auto& input) { return input != nullptr; })) {
        words.insert(words.end(), {"--size", std::to_string(format.width) + "x" + std::to_string(format.height), "-d",
                                   format.depth == SPARK_DEPTH_8 ? "8" : "16"});
    }
    const auto moved = [&](const ParamDescription& param) {
        return param.moves && std::none_of(plan.assignments.begin(), plan.assignments.end(),
                                           [&](const render::Assignment& given) { return given.param == &param; });
    };
    bool sayable = true;
    for (const ParamDescription& param : effect.params)
        if (!moved(param)) sayable &= keys_can_be_said(plan, param);
    for (const ParamDescription& param : plan.description.standard) sayable &= keys_can_be_said(plan, param);
    if (!sayable) {
        static int n = 0;
        const std::string path = directory + "/" + plan.choice.plugin + "-" + std::to_string(++n) + ".setup";
        save_setup(plan, path);
        words.insert(words.end(), {"--setup", path});
        return words;
    }
    for (const ParamDescription& param : effect.params) {
        const std::string text = moved(param) ? "" : assignment_text(plan, param);
        if (!text.empty()) words.insert(words.end(), {"-p", text});
    }
    bool cropped = false;
    std::string edges[4];
    for (const ParamDescription& param : plan.description.standard) {
        int part = 0;
        const Control* const control = control_of(plan, param, 0, part);
        if (control && param.key == "crop_enable") cropped = control_value(*control, part) != 0;
        if (control && param.key == "crop" && param.variant >= 1 && param.variant <= 4)
            edges[param.variant - 1] = number_text(control_value(*control, part));
    }
    for (const ParamDescription& param : plan.description.standard) {
        if (param.key == "redraw_wait" || param.key == "crop" || param.key == "crop_enable" || param.key == "crop_view")
            continue;
        const std::string text = assignment_text(plan, param);
        if (!text.empty()) words.insert(words.end(), {"-c", text});
    }
    if (cropped)
        words.insert(words.end(), {"-c", "crop=" + edges[0] + "," + edges[1] + "," + edges[2] + "," + edges[3]});
    return words;
}

std::string shell_word(const std::string& word) {
    const bool plain = !word.empty() && word.find_first_not_of(
                                            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                            "0123456789_-./:=,%@+") == std::string::npos;
    if (plain) return word;
    std::string out = "'";
    for (const char c : word) out += c == '\'' ? "'\\''" : std::string(1, c);
    return out + "'";
}

std::string render_line(const RenderPlan& plan, int length, const std::string& output, const std::string& frames,
                        const std::string& directory) {
    std::string line = "velloran";
    for (const std::string& word : render_arguments(plan, length, output, frames, directory))
        line += " " + shell_word(word);
    return line;
}

}  // namespace desk
