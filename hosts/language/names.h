// Names in a text: where they are made and used, what they mean, and how they change. Of one text alone.
#pragma once

#include "hosts/language/outline.h"
#include "hosts/language/vocabulary.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace language {

// All tokens that name the same thing as this one, in their order; empty for what is not named by a text.
std::vector<size_t> uses(const Outline& outline, size_t token);
// The token that makes the name.
std::optional<size_t> making(const Outline& outline, size_t token);

struct Edit {
    size_t begin, end;  // bytes
    std::string by;
};
struct Renaming {
    std::vector<Edit> edits;  // in order
    std::string refusal;      // why it cannot be; empty: it can
};
// Of a name within its effect, of an input, or of an effect. Strings and comments stay. What the text computes, and the
// handles that a param's name chose, stay the same.
Renaming rename(const Outline& outline, size_t token, std::string_view name);
// Why nothing at the token can be renamed; empty: it can.
std::string rename_refusal(const Outline& outline, size_t token);

// What there is to say of a word, as Markdown; empty: nothing.
std::string hover_text(const Outline& outline, size_t token, const Functions& functions);

// The first line of an assignment without its comment, for lists.
std::string assignment_text(const Outline& outline, const Assignment& assignment);
// The comment that tells what a name of a definition is for; empty: none does.
std::string note_of(const Outline& outline, const Definition& definition, std::string_view name);

}  // namespace language
