// The vocabulary of effect texts, from the library's own table.
#include "hosts/common/plugin.h"
#include "hosts/render/commands.h"
#include "hosts/render/console.h"
#include "hosts/render/effect.h"
#include "hosts/render/failure.h"
#include "hosts/render/suggest.h"
#include "records/node_fun.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace render {
namespace {

using velloran::NodeFun;
using DescribeFn = void (*)(void (*)(void*, const NodeFun*), void*);

struct FunctionRow {
    std::string name, meaning;
    std::vector<std::string> arguments, restrictions;
    std::vector<std::vector<int>> signatures;  // element counts: the result's, then the arguments'
    bool whole_image = false;
};

FunctionRow copy_row(const NodeFun& fun) {
    FunctionRow row;
    row.name = fun.name;
    row.meaning = fun.meaning ? fun.meaning : "";
    row.whole_image = fun.image_fun_p != 0;
    const int arguments = std::clamp<int>(fun.arg_number, 0, velloran::MAX_ARG_NUMBER);
    for (int i = 0; i < arguments; i++) {
        row.arguments.push_back(fun.arg_names[i] ? fun.arg_names[i] : "arg" + std::to_string(i + 1));
        const uint32_t restriction = fun.arg_restrictions[i];
        row.restrictions.push_back(restriction == 16   ? "a param"
                                   : restriction == 32 ? "per pixel"
                                   : restriction == 64 ? "a filtered image"
                                                       : "");
    }
    const int combinations = std::clamp<int>(fun.arg_type_combo_number, 0, velloran::MAX_ARG_TYPE_COMBOS);
    for (int c = 0; c < combinations; c++) {
        const uint32_t combination = fun.arg_type_combos[c];
        auto& signature = row.signatures.emplace_back();
        signature.push_back(static_cast<int>(combination & 3) + 1);
        for (int i = 0; i < arguments; i++) signature.push_back(static_cast<int>(combination >> (2 + 2 * i) & 3) + 1);
    }
    return row;
}

std::string call_text(const FunctionRow& row) {
    std::string text = row.name + "(";
    for (size_t i = 0; i < row.arguments.size(); i++) text += (i ? ", " : "") + row.arguments[i];
    return text + ")";
}

std::string signature_text(const std::vector<int>& signature) {
    std::string text = "(";
    for (size_t i = 1; i < signature.size(); i++) text += (i > 1 ? ", " : "") + std::to_string(signature[i]);
    return text + ") -> " + std::to_string(signature[0]);
}

std::string details(const FunctionRow& row) {
    std::string text = call_text(row) + "\n";
    if (!row.meaning.empty()) text += "  " + row.meaning + "\n";
    if (row.whole_image) text += "  works on whole images\n";
    for (size_t i = 0; i < row.arguments.size(); i++)
        if (!row.restrictions[i].empty()) text += "  " + row.arguments[i] + " is " + row.restrictions[i] + "\n";
    text += "  elements:\n";
    for (const auto& signature : row.signatures) text += "    " + signature_text(signature) + "\n";
    return text;
}

nlohmann::ordered_json row_json(const FunctionRow& row) {
    nlohmann::ordered_json arguments = nlohmann::ordered_json::array(), signatures = nlohmann::ordered_json::array();
    for (size_t i = 0; i < row.arguments.size(); i++) {
        nlohmann::ordered_json argument = {{"name", row.arguments[i]}};
        if (!row.restrictions[i].empty()) argument["must_be"] = row.restrictions[i];
        arguments.push_back(argument);
    }
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
    spark_host::Host host;
    std::string error;
    const auto module = spark_host::load_plugin(host, text_module_path(), "", &error);
    if (!module) throw Failure(error);
    const auto describe = reinterpret_cast<DescribeFn>(plugin_symbol(*module, "V4_describe_functions"));
    if (!describe) throw Failure("this library does not describe its functions");
    std::vector<FunctionRow> rows;
    describe([](void* context,
                const NodeFun* fun) { static_cast<std::vector<FunctionRow>*>(context)->push_back(copy_row(*fun)); },
             &rows);
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
