// The vocabulary of effect texts, from the library's own table.
#include "hosts/common/plugin.h"
#include "hosts/render/commands.h"
#include "hosts/render/console.h"
#include "hosts/render/effect.h"
#include "hosts/render/failure.h"
#include "hosts/render/suggest.h"
#include "records/argument_help.h"
#include "records/node_fun.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace render {
namespace {

using velloran::NodeFun;
using DescribeFn = void (*)(void (*)(void*, const NodeFun*), void*);

using ArgumentHelpFn = const velloran::ArgumentHelp* (*)(const NodeFun*, int);

struct Argument {
    std::string name, meaning, unit, range;
    std::vector<std::pair<int, std::string>> choices;
    bool same_over_frame = false;
};

struct FunctionRow {
    std::string name, meaning;
    std::vector<Argument> arguments;
    std::vector<std::vector<int>> signatures;  // element counts: the result's, then the arguments'
    bool whole_image = false, has_code = false;
};

// "0 box, 1 tent, 2 bell". What is no number and a word says something of the rest.
std::vector<std::pair<int, std::string>> split_choices(const std::string& text) {
    std::vector<std::pair<int, std::string>> choices;
    for (size_t at = 0; at < text.size();) {
        const size_t comma = std::min(text.find(", ", at), text.size());
        const std::string item = text.substr(at, comma - at);
        const size_t blank = item.find(' ');
        const bool numbered = blank != std::string::npos && item.find_first_not_of("0123456789") == blank;
        if (numbered)
            choices.emplace_back(std::stoi(item), item.substr(blank + 1));
        else if (!choices.empty())
            choices.back().second += ", " + item;
        at = comma + 2;
    }
    return choices;
}

Argument copy_argument(const NodeFun& fun, int i, ArgumentHelpFn help_of) {
    Argument argument;
    argument.name = fun.arg_names[i] ? fun.arg_names[i] : "arg" + std::to_string(i + 1);
    argument.same_over_frame = fun.params_hold && fun.arg_restrictions[i] == velloran::arg_acts_as_param;
    const velloran::ArgumentHelp* const help = help_of ? help_of(&fun, i) : nullptr;
    if (!help) return argument;
    argument.meaning = help->meaning;
    argument.unit = help->unit;
    argument.range = help->range;
    argument.choices = split_choices(help->choices);
    return argument;
}

FunctionRow copy_row(const NodeFun& fun, ArgumentHelpFn help_of) {
    FunctionRow row;
    row.name = fun.name;
    row.meaning = fun.meaning ? fun.meaning : "";
    row.whole_image = fun.image_fun_p != 0;
    row.has_code = fun.pixel_funs[0] != nullptr;
    const int arguments = std::clamp<int>(fun.arg_number, 0, velloran::MAX_ARG_NUMBER);
    for (int i = 0; i < arguments; i++) row.arguments.push_back(copy_argument(fun, i, help_of));
    const int combinations = std::clamp<int>(fun.arg_type_combo_number, 0, velloran::MAX_ARG_TYPE_COMBOS);
    for (int c = 0; c < combinations; c++) {
        const uint32_t combination = fun.arg_type_combos[c];
        auto& signature = row.signatures.emplace_back();
        signature.push_back(static_cast<int>(combination & 3) + 1);
        for (int i = 0; i < arguments; i++) signature.push_back(static_cast<int>(combination >> (2 + 2 * i) & 3) + 1);
    }
    return row;
}

// As it stands in a text.
std::string call_text(const FunctionRow& row) {
    std::string text = "(" + row.name;
    for (const Argument& argument : row.arguments) text += " " + argument.name;
    return text + ")";
}

std::string signature_text(const std::vector<int>& signature) {
    std::string text = "(";
    for (size_t i = 1; i < signature.size(); i++) text += (i > 1 ? ", " : "") + std::to_string(signature[i]);
    return text + ") -> " + std::to_string(signature[0]);
}

std::string argument_text(const Argument& argument, size_t width) {
    std::string name = argument.name;
    name.resize(std::max(width, name.size()), ' ');
    std::string text = "  " + name + "  " + argument.meaning;
    const std::string parting = argument.unit.empty() || argument.range.empty() ? "" : "; ";
    if (!argument.unit.empty() || !argument.range.empty())
        text += " (" + argument.unit + parting + argument.range + ")";
    for (size_t i = 0; i < argument.choices.size(); i++)
        text += (i ? ", " : ": ") + std::to_string(argument.choices[i].first) + " " + argument.choices[i].second;
    return text + (argument.same_over_frame ? " *\n" : "\n");
}

std::string details(const FunctionRow& row) {
    std::string text = call_text(row) + "\n";
    if (!row.meaning.empty()) text += "  " + row.meaning + "\n";
    if (row.whole_image) text += "  works on whole images, which hold -8 to 8\n";
    if (!row.has_code) text += "  has no code yet: frames that need it are refused\n";
    size_t width = 0;
    for (const Argument& argument : row.arguments) width = std::max(width, argument.name.size());
    if (width) text += "  arguments:\n";
    bool any_same = false;
    for (const Argument& argument : row.arguments) {
        text += "  " + argument_text(argument, width);
        any_same |= argument.same_over_frame;
    }
    if (any_same)
        text +=
            "    * must be the same over the whole frame: made of numbers, params and time, not of pixels or x and y\n";
    text += "  elements:\n";
    for (const auto& signature : row.signatures) text += "    " + signature_text(signature) + "\n";
    return text;
}

nlohmann::ordered_json argument_json(const Argument& argument) {
    nlohmann::ordered_json json = {{"name", argument.name}, {"meaning", argument.meaning}};
    if (!argument.unit.empty()) json["unit"] = argument.unit;
    if (!argument.range.empty()) json["range"] = argument.range;
    for (const auto& [value, meaning] : argument.choices)
        json["choices"].push_back({{"value", value}, {"meaning", meaning}});
    json["same_over_frame"] = argument.same_over_frame;
    return json;
}

nlohmann::ordered_json row_json(const FunctionRow& row) {
    nlohmann::ordered_json arguments = nlohmann::ordered_json::array(), signatures = nlohmann::ordered_json::array();
    for (const Argument& argument : row.arguments) arguments.push_back(argument_json(argument));
    for (const auto& signature : row.signatures)
        signatures.push_back(
            {{"arguments", std::vector<int>(signature.begin() + 1, signature.end())}, {"result", signature[0]}});
    return {{"name", row.name},         {"arguments", arguments},
            {"signatures", signatures}, {"whole_image", row.whole_image},
            {"has_code", row.has_code}, {"meaning", row.meaning}};
}

}  // namespace

int functions_command(const std::string& name, bool json) {
    spark_host::Host host;
    std::string error;
    const auto module = spark_host::load_plugin(host, text_module_path(), "", &error);
    if (!module) throw Failure(error);
    const auto describe = reinterpret_cast<DescribeFn>(plugin_symbol(*module, "V4_describe_functions"));
    if (!describe) throw Failure("this library does not describe its functions");
    struct Collected {
        std::vector<FunctionRow> rows;
        ArgumentHelpFn help_of;
    } collected = {{}, reinterpret_cast<ArgumentHelpFn>(plugin_symbol(*module, "V4_argument_help"))};
    describe(
        [](void* context, const NodeFun* fun) {
            auto& all = *static_cast<Collected*>(context);
            all.rows.push_back(copy_row(*fun, all.help_of));
        },
        &collected);
    std::vector<FunctionRow>& rows = collected.rows;
    std::vector<std::string> names;
    for (const FunctionRow& row : rows) names.push_back(row.name);
    if (!name.empty()) {
        // A function may have rows of several argument counts.
        std::erase_if(rows, [&](const FunctionRow& row) { return row.name != name; });
        if (rows.empty()) throw Failure("there is no function '" + name + "'" + did_you_mean(name, names));
    }
    if (json) {
        nlohmann::ordered_json report = nlohmann::ordered_json::array();
        for (const FunctionRow& row : rows) report.push_back(row_json(row));
        print(report.dump(2) + "\n");
        return exit_done;
    }
    for (const FunctionRow& row : rows) {
        if (!name.empty()) {
            print(details(row));
            continue;
        }
        std::string call = call_text(row);
        if (call.size() < 36) call.resize(36, ' ');
        print(row.meaning.empty() ? call_text(row) + "\n" : call + "  " + row.meaning + "\n");
    }
    return exit_done;
}

}  // namespace render
