#include "hosts/render/making.h"

#include "hosts/render/console.h"
#include "hosts/render/failure.h"
#include "hosts/render/recipe.h"
#include "hosts/render/setup_file.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <filesystem>

namespace render {
namespace {

constexpr const char* this_program = "velloran 4.04";

std::string text_of(const nlohmann::ordered_json& object) {
    return object.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

// A bit that turned over in a file may leave words that can be read and say something else.
std::string mark_of(const nlohmann::ordered_json& object) {
    const std::string text = text_of(object);
    char mark[17];
    std::snprintf(mark, sizeof(mark), "%016llx", static_cast<unsigned long long>(hash_bytes(text.data(), text.size())));
    return mark;
}

}  // namespace

std::string making_text(const RenderPlan& plan) {
    const auto& effects = plan.description.effects;
    nlohmann::ordered_json object = {{"made_by", this_program}, {"plugin", plan.choice.plugin}};
    object["effect"] = effects.empty() ? "" : effects[plan.effect].name;
    if (!plan.choice.text_path.empty()) {
        object["file"] = std::filesystem::path(plan.choice.text_path).filename().string();
        object["text"] = plan.choice.text;
    }
    object["setup"] = setup_lines(plan);
    object["mark"] = mark_of(object);
    return text_of(object);
}

Making read_making(const std::string& path) {
    std::string error;
    const std::string text = spark_host::picture_functions().making_of(path, &error);
    if (text.empty()) throw Failure(error, status_of(error));
    auto object = nlohmann::ordered_json::parse(text, nullptr, false);
    const auto word = [&](const char* key) {
        const auto found = object.is_object() ? object.find(key) : object.end();
        return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
    };
    Making making;
    making.made_by = word("made_by");
    making.setup = word("setup");
    const std::string plugin = word("plugin"), file = word("file");
    const std::string mark = word("mark");
    if (object.is_object()) object.erase("mark");
    if (mark.empty() || mark != mark_of(object) || making.setup.empty() || plugin.empty() ||
        plugin.find('/') != std::string::npos)
        throw Failure(path + ": what it says about how it was made is damaged");
    if (making.made_by != this_program) warn(path + ": was made by " + making.made_by + ", this is " + this_program);
    if (file.empty()) {
        making.choice = choose_effect(plugin);
    } else {
        making.choice.plugin = plugin;
        making.choice.module_path = text_module_path();
        making.choice.text_path = path + " (" + file + ")";
        making.choice.text = word("text");
    }
    making.choice.effect = word("effect");
    return making;
}

}  // namespace render
