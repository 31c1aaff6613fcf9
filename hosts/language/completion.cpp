#include "hosts/language/completion.h"

#include "hosts/language/names.h"

#include <algorithm>
#include <set>

namespace language {
namespace {

class Collector {
public:
    Collector(std::string_view text, size_t offset, const Functions& functions, bool snippets)
        : outline_(outline_of(text)), offset_(offset), functions_(functions), snippets_(snippets) {
        caret_ = caret_at(text, offset);
        offers_ = {caret_.word, offset, {}};
    }

    Offers offers() {
        const size_t word = caret_.word;
        if (caret_.if_word) {
            words(condition_words(), Sort::keyword);
            return offers_;
        }
        if (caret_.surrounding == Surrounding::nowhere) return offers_;
        const bool hash = offset_ > word && outline_.text[word] == '#';
        if (hash) {
            words(directive_words(), Sort::keyword);
            return offers_;
        }
        switch (caret_.surrounding) {
            case Surrounding::between:
                definition();
                break;
            case Surrounding::modifiers:
                words(modifier_words(), Sort::setting);
                break;
            case Surrounding::assignments:
                assignments();
                break;
            case Surrounding::head:
                functions(false);
                break;
            case Surrounding::value:
                choices();
                names(false);
                functions(true);
                break;
            case Surrounding::declaration:
                words(declaration_words(), Sort::setting);
                words(widget_words(), Sort::setting);
                break;
            case Surrounding::entries:
                offer({Sort::setting, "widget", "a handle over the picture", "", "", false});
                break;
            case Surrounding::widget_type:
                words(widget_types(), Sort::setting);
                break;
            case Surrounding::glyph:
                words(glyphs(), Sort::setting);
                break;
            case Surrounding::parameter:
                names(true);
                break;
            case Surrounding::word:
                other_effects();
                break;
            case Surrounding::header:
            case Surrounding::inputs:
            case Surrounding::nowhere:
                break;
        }
        return offers_;
    }

private:
    void offer(Offer word) { offers_.words.push_back(std::move(word)); }

    void words(std::span<const Word> list, Sort sort) {
        for (const Word& word : list) {
            Offer made = {sort, std::string(word.word), std::string(word.meaning), "", "", false};
            if (snippets_ && !word.behind.empty() && word.behind != "entries") {
                made.insert = made.label + " ${1:" + std::string(word.behind) + "}";
                made.snippet = true;
            }
            offer(made);
        }
    }

    // A definition begins with a parenthesis, which may stand there already.
    void definition() {
        const bool open = caret_.word > 0 && outline_.text[caret_.word - 1] == '(';
        for (const Word& word : structure_words()) {
            if (word.word == "dest") continue;
            Offer made = {Sort::keyword, std::string(word.word), std::string(word.meaning), "", "", false};
            const std::string start = (open ? "" : "(") + made.label;
            made.insert = start + " ";
            made.snippet = snippets_;
            if (snippets_) made.insert = start + " ${1:Name} (${2:Source})\n  dest = ${0:$2}\n" + (open ? "" : ")");
            offer(made);
        }
        words(directive_words(), Sort::keyword);
    }

    void functions(bool with_parentheses) {
        for (const auto& [name, rows] : functions_) {
            const render::FunctionRow& row = rows[0];
            Offer made = {Sort::function, name, render::call_text(row), row.meaning, "", false};
            std::string call = name;
            if (snippets_) {
                int n = 0;
                for (const render::FunctionArgument& argument : row.arguments)
                    call += " ${" + std::to_string(++n) + ":" + argument.name + "}";
                made.snippet = true;
            }
            if (with_parentheses) call = "(" + call + (snippets_ ? ")" : " ");
            if (call != name) made.insert = call;
            offer(made);
        }
    }

    void choices() {
        const auto at = functions_.find(caret_.function);
        if (at == functions_.end() || caret_.argument < 0) return;
        const render::FunctionRow& row = row_for_argument(at->second, caret_.argument);
        if (caret_.argument >= static_cast<int>(row.arguments.size())) return;
        const render::FunctionArgument& argument = row.arguments[static_cast<size_t>(caret_.argument)];
        for (const auto& [value, meaning] : argument.choices)
            offer({Sort::choice, std::to_string(value), argument.name + ": " + meaning, "", "", false});
    }

    void names(bool params_only) {
        const Definition* const definition = outline_.definition_at(caret_.word);
        if (!definition) return;
        std::set<std::string_view> told;
        for (const Assignment& made : definition->assignments) {
            const std::string_view name = outline_.word(made.name);
            if (name == "dest" || name == caret_.parameter || (params_only && !made.constant)) continue;
            if (!told.insert(name).second) continue;
            offer({made.constant ? Sort::param : Sort::name, std::string(name), assignment_text(outline_, made),
                   note_of(outline_, *definition, name), "", false});
        }
        if (params_only) return;
        for (const size_t input : definition->inputs)
            if (told.insert(outline_.word(input)).second)
                offer({Sort::input, std::string(outline_.word(input)), "input", "", "", false});
        for (const Word& word : variable_words())
            if (word.word[0] != '_')
                offer({Sort::variable, std::string(word.word), std::string(word.meaning), "", "", false});
    }

    // What is used and not yet assigned comes first.
    void assignments() {
        const Definition* const definition = outline_.definition_at(caret_.word);
        if (!definition) return;
        std::set<std::string_view> told;
        for (const Assignment& made : definition->assignments)
            if (outline_.tokens[made.name].begin != caret_.word) told.insert(outline_.word(made.name));
        for (const size_t input : definition->inputs) told.insert(outline_.word(input));
        for (size_t i = definition->open; i <= definition->last; i++)
            if (outline_.tokens[i].role == Role::reference && !find_word(variable_words(), outline_.word(i)) &&
                told.insert(outline_.word(i)).second)
                offer({Sort::name, std::string(outline_.word(i)), "is used and not yet assigned", "",
                       std::string(outline_.word(i)) + " = ", false});
        if (!told.count("dest")) offer({Sort::keyword, "dest", "the result of the effect", "", "dest = ", false});
        words(directive_words(), Sort::keyword);
    }

    void other_effects() {
        const size_t before = outline_.token_at(caret_.word);
        const size_t i = before < outline_.tokens.size() ? before : outline_.tokens.size();
        if (i == 0 || outline_.word(i - 1) != "#ref") return;
        for (const Definition& definition : outline_.definitions)
            if (definition.name)
                offer({Sort::effect, std::string(outline_.word(definition.name)), "effect", "", "", false});
    }

    Outline outline_;
    size_t offset_;
    const Functions& functions_;
    bool snippets_;
    Caret caret_;
    Offers offers_;
};

}  // namespace

Offers offers_at(std::string_view text, size_t offset, const Functions& functions, bool snippets) {
    return Collector(text, std::min(offset, text.size()), functions, snippets).offers();
}

std::string argument_facts(const render::FunctionArgument& argument) {
    std::string text;
    const auto add = [&](const std::string& fact) {
        if (!fact.empty()) text += (text.empty() ? "" : "; ") + fact;
    };
    add(argument.meaning);
    add(argument.unit);
    add(argument.range);
    for (const auto& [value, meaning] : argument.choices) add(std::to_string(value) + " " + meaning);
    return text;
}

}  // namespace language
