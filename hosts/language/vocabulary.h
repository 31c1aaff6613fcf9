// The words of texts besides the functions, each with a line of meaning, and the functions by name.
#pragma once

#include "hosts/render/function_list.h"

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace language {

struct Word {
    std::string_view word, meaning;
    std::string_view behind = "";  // what stands behind it, as "number"; empty: nothing
};

// What a declaration holds, a second list of a definition, an expression beside its own names, a line of a
// conditional, a handle.
std::span<const Word> declaration_words();
std::span<const Word> modifier_words();
std::span<const Word> variable_words();
std::span<const Word> directive_words();
std::span<const Word> condition_words();
std::span<const Word> widget_words();  // behind the kind of a handle
std::span<const Word> widget_types();
std::span<const Word> glyphs();
// What begins a definition, and the name of its result.
std::span<const Word> structure_words();

// Null: it is none of these.
const Word* find_word(std::span<const Word> words, std::string_view word);

// Rows of one name in the table's order. Rows stay as long as the vocabulary.
using Functions = std::map<std::string, std::vector<render::FunctionRow>, std::less<>>;
Functions functions_by_name(const std::vector<render::FunctionRow>& rows);

// The row that a call with so many arguments, one of them being written, most likely means.
const render::FunctionRow& row_for_argument(const std::vector<render::FunctionRow>& rows, int argument);

}  // namespace language
