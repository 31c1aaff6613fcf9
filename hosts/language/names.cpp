#include "hosts/language/names.h"

#include "hosts/render/param_notes.h"
#include "hosts/render/suggest.h"

#include <algorithm>

namespace language {
namespace {

constexpr size_t longest_effect = 31, longest_input = 8, longest_word = 127;

bool name_role_p(Role role) { return role == Role::target || role == Role::reference || role == Role::input; }
bool effect_role_p(Role role) { return role == Role::effect || role == Role::other_effect; }

const Definition* definition_of(const Outline& outline, size_t token) {
    const int index = outline.tokens[token].definition;
    return index < 0 ? nullptr : &outline.definitions[static_cast<size_t>(index)];
}

bool input_p(const Outline& outline, const Definition& definition, std::string_view word) {
    return std::any_of(definition.inputs.begin(), definition.inputs.end(),
                       [&](size_t input) { return outline.word(input) == word; });
}

// Fields are read from params of these names, which the call does not mention.
bool pattern_name_p(std::string_view name) { return name == "field_dominance" || name.starts_with("pattern_"); }
bool reads_pattern_p(const Outline& outline, int definition) {
    for (size_t i = 0; i < outline.tokens.size(); i++)
        if (outline.tokens[i].definition == definition && outline.tokens[i].role == Role::function &&
            (outline.word(i) == "auto_deinterlace" || outline.word(i) == "auto_reinterlace"))
            return true;
    return false;
}

// Why no name can be written so.
std::string word_refusal(std::string_view name) {
    const std::string quoted = "'" + std::string(name) + "'";
    if (name.empty()) return "a name is needed";
    if (name.size() > longest_word) return "the name is longer than 127 characters";
    for (const char c : name)
        if (blank_p(c) || std::string_view("()[]=\"#").find(c) != std::string_view::npos || c == 0)
            return quoted + " holds a blank or one of ( ) [ ] = \" #, which no name may";
    if (name.find("//") != std::string_view::npos) return quoted + " would begin a comment";
    return "";
}

std::string value_refusal(std::string_view name) {
    const std::string quoted = "'" + std::string(name) + "'";
    if (number_p(name)) return quoted + " reads as a number";
    if (find_word(variable_words(), name))
        return quoted + " already means: " + std::string(find_word(variable_words(), name)->meaning);
    if (name == "dest") return "'dest' is the result of the effect";
    if (name[0] == '_') return quoted + " begins with _, as the names that calls have of themselves";
    return "";
}

std::string name_refusal(const Outline& outline, size_t token, std::string_view name) {
    const std::string quoted = "'" + std::string(name) + "'";
    const Definition& definition = *definition_of(outline, token);
    const std::string_view old = outline.word(token);
    if (const std::string refusal = value_refusal(name); !refusal.empty()) return refusal;
    for (size_t i = 0; i < outline.tokens.size(); i++)
        if (outline.tokens[i].definition == outline.tokens[token].definition && name_role_p(outline.tokens[i].role) &&
            outline.word(i) == name)
            return quoted + " is a name of this effect already";
    if (input_p(outline, definition, old)) {
        if (name.size() > longest_input) return "an input's name has at most 8 characters";
        if (name == "Background") return "an input named Background becomes the background";
    } else if (pattern_name_p(name) && reads_pattern_p(outline, outline.tokens[token].definition)) {
        return quoted + " is read by the field functions of this effect";
    }
    return "";
}

std::string effect_refusal(const Outline& outline, std::string_view name) {
    if (name.size() > longest_effect) return "an effect's name has at most 31 characters";
    for (const Definition& definition : outline.definitions)
        if (definition.name && render::same_name_p(std::string(outline.word(definition.name)), std::string(name)))
            return "there is an effect '" + std::string(outline.word(definition.name)) + "' already";
    return "";
}

}  // namespace

std::vector<size_t> uses(const Outline& outline, size_t token) {
    std::vector<size_t> all;
    if (token >= outline.tokens.size()) return all;
    const Token& asked = outline.tokens[token];
    const bool effect = effect_role_p(asked.role);
    if (!effect && !name_role_p(asked.role)) return all;
    for (size_t i = 0; i < outline.tokens.size(); i++) {
        const Token& other = outline.tokens[i];
        const bool same_kind =
            effect ? effect_role_p(other.role) : name_role_p(other.role) && other.definition == asked.definition;
        if (same_kind && outline.word(i) == outline.word(token)) all.push_back(i);
    }
    return all;
}

std::optional<size_t> making(const Outline& outline, size_t token) {
    for (const size_t use : uses(outline, token)) {
        const Role role = outline.tokens[use].role;
        if (role == Role::target || role == Role::input || role == Role::effect) return use;
    }
    return std::nullopt;
}

std::string rename_refusal(const Outline& outline, size_t token) {
    if (token >= outline.tokens.size()) return "there is no name here";
    const Token& asked = outline.tokens[token];
    const std::string_view old = outline.word(token);
    const std::string quoted = "'" + std::string(old) + "'";
    if (asked.role == Role::function) return quoted + " is a function of the library";
    if (!name_role_p(asked.role) && !effect_role_p(asked.role)) return quoted + " is no name";
    if (!making(outline, token)) {
        if (find_word(variable_words(), old)) return quoted + " means something everywhere";
        return quoted + " is assigned nowhere in this text";
    }
    if (effect_role_p(asked.role)) return "";
    if (old == "dest") return "'dest' is the result of the effect";
    const Definition& definition = *definition_of(outline, token);
    if (definition.follows) return "this effect takes names from another definition";
    if (old == "Background" && input_p(outline, definition, old))
        return "an input named Background is the background; another name would change that";
    if (pattern_name_p(old) && reads_pattern_p(outline, asked.definition))
        return quoted + " is read by the field functions of this effect";
    return "";
}

Renaming rename(const Outline& outline, size_t token, std::string_view name) {
    Renaming renaming;
    renaming.refusal = rename_refusal(outline, token);
    if (!renaming.refusal.empty() || name == outline.word(token)) return renaming;
    renaming.refusal = word_refusal(name);
    const bool effect = effect_role_p(outline.tokens[token].role);
    if (renaming.refusal.empty())
        renaming.refusal = effect ? effect_refusal(outline, name) : name_refusal(outline, token, name);
    if (!renaming.refusal.empty()) return renaming;
    for (const size_t use : uses(outline, token))
        renaming.edits.push_back({outline.tokens[use].begin, outline.tokens[use].end, std::string(name)});
    if (!effect) {
        // Where a handle does not say which part of it the param is, the param's name says so.
        for (const Assignment& made : definition_of(outline, token)->assignments) {
            if (outline.word(made.name) != outline.word(token) || !made.declaration) continue;
            for (size_t i = made.declaration; i <= made.last; i++)
                if (outline.tokens[i].role == Role::widget_type && outline.word(i).find('.') == std::string_view::npos)
                    renaming.edits.push_back(
                        {outline.tokens[i].end, outline.tokens[i].end, "." + std::string(outline.word(token))});
        }
    }
    std::sort(renaming.edits.begin(), renaming.edits.end(),
              [](const Edit& a, const Edit& b) { return a.begin < b.begin; });
    return renaming;
}

std::string assignment_text(const Outline& outline, const Assignment& assignment) {
    const size_t begin = outline.tokens[assignment.name].begin;
    const size_t end = std::max(outline.tokens[assignment.last].end, outline.tokens[assignment.name].end);
    std::string text(outline.text.substr(begin, end - begin));
    text.erase(std::min(text.find_first_of("\r\n"), text.size()));
    text.erase(std::min(text.find("//"), text.size()));
    while (!text.empty() && blank_p(text.back())) text.pop_back();
    return text;
}

std::string note_of(const Outline& outline, const Definition& definition, std::string_view name) {
    render::PluginDescription description;
    render::EffectDescription& effect = description.effects.emplace_back();
    if (definition.name) effect.name = outline.word(definition.name);
    render::ParamDescription& param = effect.params.emplace_back();
    param.name = name;
    const size_t first = outline.tokens[definition.open].begin, last = outline.tokens[definition.last].end;
    // Up to the end of its last line, and from the comments above it.
    size_t from = first;
    for (size_t i = definition.open; i-- > 0 && outline.tokens[i].kind == Kind::comment;)
        from = outline.tokens[i].begin;
    const size_t to = std::min(outline.text.find('\n', last), outline.text.size());
    render::read_notes(std::string(outline.text.substr(from, to - from)), description);
    if (name.empty()) return effect.note;
    std::string note = param.note;
    if (!param.unit.empty()) note += (note.empty() ? "" : " ") + ("Unit: " + param.unit + ".");
    return note;
}

std::string hover_text(const Outline& outline, size_t token, const Functions& functions) {
    if (token >= outline.tokens.size()) return "";
    const Token& asked = outline.tokens[token];
    const std::string_view word = outline.word(token);
    const auto told = [&](std::span<const Word> words) {
        const Word* const row = find_word(words, word);
        return row ? "**" + std::string(word) + "** " + std::string(row->meaning) : std::string();
    };
    const auto code = [](const std::string& text) { return "```\n" + text + "\n```"; };
    switch (asked.role) {
        case Role::function: {
            const auto at = functions.find(word);
            if (at == functions.end()) return "";
            std::string text;
            for (const render::FunctionRow& row : at->second) text += render::function_details(row);
            return code(text);
        }
        case Role::keyword:
            return told(find_word(structure_words(), word) ? structure_words() : directive_words());
        case Role::modifier:
            return told(modifier_words());
        case Role::declaration:
            return told(find_word(declaration_words(), word) ? declaration_words() : widget_words());
        case Role::widget_type: {
            const Word* const row = find_word(widget_types(), word.substr(0, word.find('.')));
            return row ? "**" + std::string(row->word) + "** " + std::string(row->meaning) : "";
        }
        case Role::glyph:
            return told(glyphs());
        case Role::target:
        case Role::reference:
        case Role::input:
        case Role::effect:
        case Role::other_effect:
            break;
        default:
            return "";
    }
    const std::optional<size_t> made = making(outline, token);
    if (!made) return told(variable_words());
    const Definition& definition = *definition_of(outline, *made);
    if (outline.tokens[*made].role == Role::input) {
        const auto input = std::find_if(definition.inputs.begin(), definition.inputs.end(),
                                        [&](size_t i) { return outline.word(i) == word; });
        return "**" + std::string(word) + "** input " + std::to_string(input - definition.inputs.begin() + 1);
    }
    if (effect_role_p(asked.role)) {
        const std::string note = note_of(outline, definition, "");
        return "**" + std::string(word) + "** effect" + (note.empty() ? "" : "\n\n" + note);
    }
    for (const Assignment& assignment : definition.assignments) {
        if (outline.word(assignment.name) != word) continue;
        const std::string note = word == "dest" ? "the result of the effect" : note_of(outline, definition, word);
        return code(assignment_text(outline, assignment)) + (note.empty() ? "" : "\n\n" + note);
    }
    return "";
}

}  // namespace language
