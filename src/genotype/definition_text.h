// Where the definitions of a text stand, without reading them. Filtered texts only: comments would count.
#pragma once

namespace velloran {

constexpr const char* definition_keywords[] = {"def_effect", "define", "def_spark"};

// The next definition from text on: its opening parenthesis, and the name behind its keyword, which may be empty. Null:
// none.
const char* find_definition(const char* text, const char** name, int* name_length);

// Whether a definition of that name is the wanted effect. Underscores and blanks count as equal.
bool definition_named_p(const char* wanted, const char* name, int name_length);

}  // namespace velloran
