#include "hosts/render/function_list.h"

#include "hosts/common/library_call.h"
#include "hosts/common/plugin.h"
#include "hosts/render/effect.h"
#include "hosts/render/failure.h"
#include "records/argument_help.h"
#include "records/node_fun.h"

#include <algorithm>

namespace render {
namespace {

using velloran::NodeFun;
using DescribeFn = void (*)(void (*)(void*, const NodeFun*), void*);
using ArgumentHelpFn = const velloran::ArgumentHelp* (*)(const NodeFun*, int);

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

FunctionArgument copy_argument(const NodeFun& fun, int i, ArgumentHelpFn help_of) {
    FunctionArgument argument;
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

std::string signature_text(const std::vector<int>& signature) {
    std::string text = "(";
    for (size_t i = 1; i < signature.size(); i++) text += (i > 1 ? ", " : "") + std::to_string(signature[i]);
    return text + ") -> " + std::to_string(signature[0]);
}

std::string argument_text(const FunctionArgument& argument, size_t width) {
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

}  // namespace

std::string call_text(const FunctionRow& row) {
    std::string text = "(" + row.name;
    for (const FunctionArgument& argument : row.arguments) text += " " + argument.name;
    return text + ")";
}

std::string function_details(const FunctionRow& row) {
    std::string text = call_text(row) + "\n";
    if (!row.meaning.empty()) text += "  " + row.meaning + "\n";
    if (row.whole_image) text += "  works on whole images, which hold -8 to 8\n";
    size_t width = 0;
    for (const FunctionArgument& argument : row.arguments) width = std::max(width, argument.name.size());
    if (width) text += "  arguments:\n";
    bool any_same = false;
    for (const FunctionArgument& argument : row.arguments) {
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

std::vector<FunctionRow> function_rows() {
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
    const spark_host::LibraryCall call;
    describe(
        [](void* context, const NodeFun* fun) {
            auto& all = *static_cast<Collected*>(context);
            all.rows.push_back(copy_row(*fun, all.help_of));
        },
        &collected);
    return collected.rows;
}

}  // namespace render
