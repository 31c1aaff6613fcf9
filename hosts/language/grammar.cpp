#include "hosts/language/grammar.h"

#include "hosts/language/vocabulary.h"
#include "hosts/render/console.h"
#include "hosts/render/failure.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace language {
namespace {

using Json = nlohmann::ordered_json;

// Behind a word: the words of texts may hold any character but these.
constexpr const char* word_end = "(?=[\\s()\\[\\]=\"]|//|$)";

std::string escaped(std::string_view word) {
    std::string text;
    for (const char c : word) {
        if (std::string_view("\\^$.|?*+()[]{}/").find(c) != std::string_view::npos) text += '\\';
        text += c;
    }
    return text;
}

// The longest first: engines take the first alternative that fits.
std::string any_of(std::vector<std::string> words) {
    std::sort(words.begin(), words.end(), [](const std::string& a, const std::string& b) {
        return a.size() != b.size() ? a.size() > b.size() : a < b;
    });
    words.erase(std::unique(words.begin(), words.end()), words.end());
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : "|") + escaped(word);
    return text;
}

std::string any_of(std::span<const Word> words) {
    std::vector<std::string> list;
    for (const Word& word : words) list.emplace_back(word.word);
    return any_of(std::move(list));
}

Json captures(std::initializer_list<const char*> names) {
    Json all = Json::object();
    int i = 1;
    for (const char* name : names) {
        if (*name) all[std::to_string(i)] = {{"name", std::string(name) + ".velloran"}};
        i++;
    }
    return all;
}

Json pattern(const char* name, const std::string& match) {
    return {{"name", std::string(name) + ".velloran"}, {"match", match}};
}

// A word stands behind one of these. It is matched with them, since looking behind differs between engines.
std::string word_of(const std::string& words) { return "(^|[\\s()\\[\\]=\"])(" + words + ")" + word_end; }

}  // namespace

std::string textmate_grammar(const std::vector<render::FunctionRow>& rows) {
    std::vector<std::string> functions, directives;
    for (const render::FunctionRow& row : rows) functions.push_back(row.name);
    for (const Word& word : directive_words()) directives.emplace_back(word.word.substr(1));
    Json patterns = Json::array();
    patterns.push_back(pattern("comment.line.double-slash", "//.*$"));
    patterns.push_back({{"match", "(#(?:" + any_of(directives) + "))(?:[ \\t]+([^\\s/]+))?(?=\\s|$)"},
                        {"captures", captures({"keyword.control.conditional", "constant.other.condition"})}});
    patterns.push_back(pattern("string.quoted.double", "\"(?:\\\\\"|[^\"])*\""));
    patterns.push_back({{"match", "\\(\\s*(def_effect|define|def_spark)\\s+([^\\s()\\[\\]=\"]+)"},
                        {"captures", captures({"keyword.declaration", "entity.name.function"})}});
    patterns.push_back(
        {{"match", "\\(\\s*(" + any_of(functions) + ")" + word_end}, {"captures", captures({"support.function"})}});
    patterns.push_back({{"match", "(^|[\\s)\\]])(dest)(?=\\s*=)"}, {"captures", captures({"", "keyword.other"})}});
    patterns.push_back({{"match", "(^|[\\s)\\]])([^\\s()\\[\\]=\"]+)(?=\\s*=)"},
                        {"captures", captures({"", "variable.other.assignment"})}});
    patterns.push_back({{"match", word_of("[-+]?(?:[0-9]+\\.?[0-9]*|\\.[0-9]+)(?:[eE][-+]?[0-9]+)?")},
                        {"captures", captures({"", "constant.numeric"})}});
    patterns.push_back(
        {{"match", word_of(any_of(variable_words()))}, {"captures", captures({"", "variable.language"})}});
    std::vector<std::string> settings;
    for (const auto words : {declaration_words(), widget_words(), modifier_words()})
        for (const Word& word : words) settings.emplace_back(word.word);
    patterns.push_back({{"match", word_of(any_of(settings))}, {"captures", captures({"", "storage.modifier"})}});
    const Json grammar = {
        {"name", "Velloran"}, {"scopeName", "source.velloran"}, {"fileTypes", {"text"}}, {"patterns", patterns}};
    return grammar.dump(2) + "\n";
}

int textmate_command() {
    render::print(textmate_grammar(render::function_rows()));
    return render::exit_done;
}

}  // namespace language
