#include "hosts/render/effect.h"

#include "hosts/common/library_call.h"
#include "hosts/render/failure.h"
#include "hosts/render/param_notes.h"
#include "hosts/render/suggest.h"
#include "stubs/describe.h"

#include <algorithm>
#include <filesystem>

namespace render {
namespace fs = std::filesystem;
using spark_host::Plugin;

namespace {

using CheckFn = int (*)(const char*, const char*, const char*, void (*)(void*, int, int, int, const char*), void*);

bool file_p(const std::string& path) {
    std::error_code error;
    return fs::exists(path, error) && !fs::is_directory(path, error);
}

bool looks_like_path(const std::string& text) {
    return text.find('/') != std::string::npos || fs::path(text).extension() == ".text" ||
           fs::path(text).extension() == ".txt";
}

EffectChoice choose_file(const std::string& path, const std::string& effect) {
    if (fs::path(path).extension() != ".so") return choose_text(read_text_file(path), path, effect);
    EffectChoice choice;
    choice.plugin = fs::path(path).stem().string();
    choice.effect = effect;
    choice.module_path = fs::absolute(path).string();
    return choice;
}

ParamDescription copy_param(const SparkParamInfo& info) {
    ParamDescription param;
    param.effect = info.Effect;
    param.name = info.Name;
    param.key = info.Key ? info.Key : "";
    param.kind = info.Kind;
    param.group = info.Group ? info.Group : "";
    param.variant = info.Variant;
    param.channels = std::clamp(info.Channels, 1, 4);
    for (int i = 0; i < 4; i++) {
        param.channel_names[i] = info.ChannelNames[i] ? info.ChannelNames[i] : "";
        param.defaults[i] = info.Default[i];
    }
    param.numbers.assign(info.Numbers, info.Numbers + std::clamp(info.Controls, 0, 4));
    param.hidden = (info.Flags & SPARK_PARAM_HIDDEN) != 0;
    param.on_screen = (info.Flags & SPARK_PARAM_ON_SCREEN) != 0;
    param.pixels = (info.Flags & SPARK_PARAM_PIXELS) != 0;
    param.moves = (info.Flags & SPARK_PARAM_MOVES) != 0;
    // Beyond a hundred thousand a bound only says that there is none.
    constexpr float boundless = 99999;
    if (info.Min <= info.Max && info.Min > -boundless) param.min = info.Min;
    if (info.Min <= info.Max && info.Max < boundless) param.max = info.Max;
    param.step = info.Step;
    for (int i = 0; i < info.Labels; i++) param.labels.push_back(info.LabelTexts[i] ? info.LabelTexts[i] : "");
    return param;
}

// The line and a caret below the place; tabs keep the two aligned. A very long line is cut around it.
std::string place_text(const std::string& whole, int column) {
    constexpr size_t most = 160;
    const size_t at = std::min(static_cast<size_t>(std::max(1, column) - 1), whole.size());
    const size_t start = at > most / 2 && whole.size() > most ? at - most / 2 : 0;
    const std::string shown = whole.substr(start, most);
    std::string caret;
    for (size_t i = 0; i < at - start; i++) caret += i < shown.size() && shown[i] == '\t' ? '\t' : ' ';
    return shown + "\n" + caret + "^\n";
}

std::string line_of(const std::string& text, int number) {
    size_t at = 0;
    for (int i = 1; i < number && at != std::string::npos; i++) {
        at = text.find('\n', at);
        if (at != std::string::npos) at++;
    }
    if (at == std::string::npos) return "";
    std::string line = text.substr(at, text.find('\n', at) - at);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

// Definitions of that name in the text; all of them without a name.
int count_definitions(const Plugin& plugin, const EffectChoice& choice) {
    const auto init = reinterpret_cast<void* (*)(void*)>(plugin_symbol(plugin, "V4_init_globals"));
    const auto split = reinterpret_cast<int (*)(const char*, const char*, const char*, void*)>(
        plugin_symbol(plugin, "V4_split_effects"));
    const auto release = reinterpret_cast<void (*)(void*)>(plugin_symbol(plugin, "V4_free_globals"));
    if (!init || !split || !release) throw Failure("this library cannot read texts");
    const spark_host::LibraryCall call;
    void* const record = init(nullptr);
    const int count = record ? split(choice.text.c_str(), choice.text_path.c_str(), choice.effect.c_str(), record) : 0;
    if (record) release(record);
    return count;
}

}  // namespace

EffectChoice choose_text(const std::string& text, const std::string& name, const std::string& effect) {
    EffectChoice choice;
    choice.plugin = fs::path(name).stem().string();
    choice.effect = effect;
    choice.module_path = text_module_path();
    choice.text_path = name;
    choice.text = text;
    if (text.find('\0') != std::string::npos) throw Failure(name + ": not a text: it holds a zero byte");
    return choice;
}

EffectChoice choose_effect(const std::string& argument) {
    if (argument.empty()) throw Failure("an effect is needed; 'velloran list' shows them");
    if (file_p(argument)) {
        const bool bare = !looks_like_path(argument) && fs::path(argument).extension() != ".so";
        const std::string module = bare ? find_module(argument) : "";
        if (module.empty()) return choose_file(argument, "");
    }
    const size_t colon = argument.rfind(':');
    const std::string name = argument.substr(0, colon);
    const std::string effect = colon == std::string::npos ? "" : argument.substr(colon + 1);
    if (colon != std::string::npos && effect.empty())
        throw Failure("'" + argument + "': the effect's name is missing behind ':'");
    EffectChoice choice;
    choice.plugin = name;
    choice.effect = effect;
    if (name.find('/') == std::string::npos && name != "text") choice.module_path = find_module(name);
    if (!choice.module_path.empty()) return choice;
    if (colon != std::string::npos && file_p(name)) return choose_file(name, effect);
    if (looks_like_path(name)) {
        read_text_file(name);  // says what is wrong
        return choose_file(name, effect);
    }
    throw Failure("there is no plug-in or file '" + name + "'" + did_you_mean(name, plugin_names()));
}

std::unique_ptr<Plugin> load_choice(spark_host::Host& host, const EffectChoice& choice, const std::string& config) {
    std::string error;
    auto plugin = spark_host::load_plugin(host, choice.module_path, config + "/" + choice.plugin, &error);
    if (!plugin) throw Failure(error, status_of(error));
    if (choice.text_path.empty()) return plugin;
    const auto define = reinterpret_cast<SparkTextDefinitionsFn>(plugin_symbol(*plugin, "SparkTextDefinitions"));
    if (!define) throw Failure(choice.module_path + ": does not take a text");
    std::vector<TextMessage> messages;
    // A name that is not there brings all effects in, so that find_effect can suggest the right one.
    const bool named = !choice.effect.empty() && count_definitions(*plugin, choice) > 0;
    if (check_text(*plugin, choice.text, choice.text_path, named ? choice.effect.c_str() : "", messages) > 0) {
        std::string report;
        for (const TextMessage& message : messages) report += message_text(message, choice.text, choice.text_path);
        Failure failure(choice.text_path +
                        (named ? ": this effect cannot be read\n" : ": some definitions cannot be read\n") +
                        report.substr(0, report.find_last_not_of('\n') + 1));
        failure.file = choice.text_path;
        const auto first = std::find_if(messages.begin(), messages.end(), error_p);
        if (first != messages.end()) failure.line = first->line, failure.column = first->column;
        throw failure;
    }
    define(choice.text.c_str(), choice.text_path.c_str(), named ? choice.effect.c_str() : nullptr);
    return plugin;
}

PluginDescription describe_plugin(const Plugin& plugin) {
    PluginDescription description;
    const auto describe = reinterpret_cast<SparkDescribeFn>(plugin_symbol(plugin, "SparkDescribe"));
    if (!describe) return description;
    const spark_host::LibraryCall call;
    SparkDescribeVisitor visitor;
    visitor.Context = &description;
    visitor.Effect = [](void* context, const SparkEffectInfo* info) {
        EffectDescription& effect = static_cast<PluginDescription*>(context)->effects.emplace_back();
        effect.index = info->Index;
        effect.name = info->Name;
        effect.remembers = (info->Flags & SPARK_EFFECT_REMEMBERS) != 0;
        effect.reads_frames = (info->Flags & SPARK_EFFECT_READS_FRAMES) != 0;
        effect.retimes = (info->Flags & SPARK_EFFECT_RETIMES) != 0;
        effect.inputs.assign(info->InputNames, info->InputNames + info->Inputs);
    };
    visitor.Param = [](void* context, const SparkParamInfo* info) {
        auto& all = *static_cast<PluginDescription*>(context);
        (info->Effect < 0 || all.effects.empty() ? all.standard : all.effects.back().params)
            .push_back(copy_param(*info));
    };
    describe(&visitor);
    if (const auto text = reinterpret_cast<SparkDefinitionsTextFn>(plugin_symbol(plugin, "SparkDefinitionsText")))
        read_notes(text(), description);
    for (EffectDescription& effect : description.effects)
        for (ParamDescription& param : effect.params)
            if (param.unit.empty() && param.pixels) param.unit = "pixels";
    return description;
}

int frames_that_come_out(const Plugin& plugin, int frames) {
    const auto count = reinterpret_cast<SparkDestFramesFn>(plugin_symbol(plugin, "SparkDestFrames"));
    const spark_host::LibraryCall call;
    return count ? count(frames) : frames;
}

size_t find_effect(const PluginDescription& description, const EffectChoice& choice) {
    if (choice.effect.empty() || description.effects.empty()) return 0;
    std::vector<std::string> names;
    for (size_t i = 0; i < description.effects.size(); i++) {
        names.push_back(description.effects[i].name);
        if (same_name_p(names.back(), choice.effect)) return i;
    }
    throw Failure("'" + choice.plugin + "' has no effect '" + choice.effect + "'" + did_you_mean(choice.effect, names));
}

int check_text(const Plugin& text_module, const std::string& text, const std::string& path, const char* effect,
               std::vector<TextMessage>& messages) {
    const auto check = reinterpret_cast<CheckFn>(plugin_symbol(text_module, "V4_check_effects"));
    if (!check) throw Failure("this library cannot check texts");
    const spark_host::LibraryCall call;
    return check(
        text.c_str(), path.c_str(), effect,
        [](void* context, int level, int line, int column, const char* message) {
            TextMessage& kept = static_cast<std::vector<TextMessage>*>(context)->emplace_back();
            kept = {level, line, column, message};
            kept.text.erase(kept.text.find_last_not_of(" \n") + 1);
            kept.text.erase(0, kept.text.find_first_not_of(" \n"));
        },
        &messages);
}

bool error_p(const TextMessage& message) { return message.level >= 8; }

const char* severity(const TextMessage& message) {
    return error_p(message) ? "error" : message.level >= 5 ? "warning" : "note";
}

std::string message_text(const TextMessage& message, const std::string& text, const std::string& path) {
    std::string out = path;
    if (message.line > 0) out += ":" + std::to_string(message.line) + ":" + std::to_string(std::max(1, message.column));
    out += std::string(": ") + severity(message) + ": " + message.text + "\n";
    if (message.line > 0) out += place_text(line_of(text, message.line), message.column);
    return out;
}

}  // namespace render
