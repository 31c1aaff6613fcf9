// The grammar for editors, read the way they do: of all patterns the one that fits first, from where the last one
// ended.
#include "hosts/language/grammar.h"
#include "hosts/language/outline.h"
#include "hosts/language/vocabulary.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

using nlohmann::json;

namespace {

std::string file_text(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

const std::vector<render::FunctionRow>& rows() {
    static const std::vector<render::FunctionRow> all = render::function_rows();
    return all;
}

struct Pattern {
    std::regex match;
    std::string name;                     // of the whole, or empty
    std::map<size_t, std::string> parts;  // by capture
};

std::vector<Pattern> patterns() {
    std::vector<Pattern> all;
    const json grammar = json::parse(language::textmate_grammar(rows()));
    for (const json& row : grammar.at("patterns")) {
        Pattern& pattern = all.emplace_back();
        pattern.match = std::regex(row.at("match").get<std::string>(), std::regex::ECMAScript | std::regex::optimize);
        pattern.name = row.value("name", "");
        if (!row.contains("captures")) continue;
        for (const auto& [number, part] : row["captures"].items())
            pattern.parts[std::stoul(number)] = part.at("name").get<std::string>();
    }
    return all;
}

// A scope for each byte of a line.
std::vector<std::string> scopes(const std::vector<Pattern>& all, const std::string& line) {
    std::vector<std::string> found(line.size());
    for (size_t at = 0; at < line.size();) {
        std::smatch best;
        const Pattern* by = nullptr;
        const auto flags = at ? std::regex_constants::match_prev_avail : std::regex_constants::match_default;
        for (const Pattern& pattern : all) {
            std::smatch match;
            if (!std::regex_search(line.begin() + static_cast<long>(at), line.end(), match, pattern.match, flags))
                continue;
            if (by && match.position() >= best.position()) continue;
            best = match;
            by = &pattern;
        }
        if (!by || best.length() == 0) break;
        const auto paint = [&](size_t part, const std::string& scope) {
            if (!best[part].matched) return;
            const size_t from = at + static_cast<size_t>(best.position(part));
            std::fill_n(found.begin() + static_cast<long>(from), best.length(part), scope);
        };
        if (!by->name.empty()) paint(0, by->name);
        for (const auto& [part, scope] : by->parts) paint(part, scope);
        at += static_cast<size_t>(best.position() + best.length());
    }
    return found;
}

bool function_p(std::string_view word) {
    return std::any_of(rows().begin(), rows().end(), [&](const auto& row) { return row.name == word; });
}

// What a word's scope begins with; empty: it may have any.
std::string expected(const language::Outline& outline, const language::Token& token, std::string_view word) {
    using language::Kind;
    using language::Role;
    if (token.kind == Kind::comment) return "comment";
    if (token.kind == Kind::string) return "string";
    if (token.kind == Kind::directive) return "keyword.control";
    switch (token.role) {
        case Role::effect:
            return "entity.name.function";
        case Role::target:
            return word == "dest" ? "keyword.other" : "variable.other.assignment";
        case Role::function:
            return "support.function";
        case Role::number:
            return "constant.numeric";
        case Role::declaration:
            // A first word that is a function's name too cannot be told from a call.
            return outline.text[token.begin - 1] == '(' && function_p(word) ? "" : "storage.modifier";
        default:
            return "";
    }
}

}  // namespace

TEST(Grammar, ColoursEveryShippedTextAsItIsRead) {
    const std::vector<Pattern> all = patterns();
    size_t judged = 0;
    for (const auto& entry : std::filesystem::directory_iterator(EFFECT_TEXTS)) {
        if (entry.path().extension() != ".text" || entry.path().filename().string().starts_with("v_")) continue;
        const std::string text = file_text(entry.path());
        const language::Outline outline = language::outline_of(text);
        size_t token = 0, begin = 0;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line); begin += line.size() + 1) {
            const std::vector<std::string> found = scopes(all, line);
            for (; token < outline.tokens.size() && outline.tokens[token].begin < begin + line.size(); token++) {
                const language::Token& t = outline.tokens[token];
                const std::string_view word = outline.word(token);
                const std::string wanted = expected(outline, t, word);
                if (wanted.empty()) continue;
                EXPECT_TRUE(found[t.begin - begin].starts_with(wanted))
                    << entry.path() << ": " << line << "\n"
                    << word << ": " << found[t.begin - begin] << ", " << wanted;
                judged++;
            }
        }
    }
    EXPECT_GT(judged, 5000u);
}

TEST(Grammar, TheFileThatEditorsTakeIsOfThisTable) {
    EXPECT_EQ(file_text(GRAMMAR_FILE), language::textmate_grammar(rows()))
        << "velloran functions --textmate >" << GRAMMAR_FILE;
}
