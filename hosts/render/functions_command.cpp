// `velloran functions`: the vocabulary of effect texts for people and programs.
#include "hosts/render/commands.h"
#include "hosts/render/console.h"
#include "hosts/render/failure.h"
#include "hosts/render/function_list.h"
#include "hosts/render/suggest.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace render {
namespace {

nlohmann::ordered_json argument_json(const FunctionArgument& argument) {
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
    for (const FunctionArgument& argument : row.arguments) arguments.push_back(argument_json(argument));
    for (const auto& signature : row.signatures)
        signatures.push_back(
            {{"arguments", std::vector<int>(signature.begin() + 1, signature.end())}, {"result", signature[0]}});
    return {{"name", row.name},
            {"arguments", arguments},
            {"signatures", signatures},
            {"whole_image", row.whole_image},
            {"meaning", row.meaning}};
}

}  // namespace

int functions_command(const std::string& name, bool json) {
    std::vector<FunctionRow> rows = function_rows();
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
            print(function_details(row));
            continue;
        }
        std::string call = call_text(row);
        if (call.size() < 36) call.resize(36, ' ');
        print(row.meaning.empty() ? call_text(row) + "\n" : call + "  " + row.meaning + "\n");
    }
    return exit_done;
}

}  // namespace render
