// Prepares an effect text for the reader: takes out // comments and the branches of #if, #ifnot, #elseif, #else and
// #endif that do not hold here. One body of effect texts serves several hosts; the predicate words say which.
#pragma once

#include "texts/text_place.h"

namespace velloran {

// Filters text in place and terminates it. name is the text's name in messages; null counts as empty. Messages go
// through log_print; none stops the filter but too deep nesting, which takes the fatal abort. With a map, its arrays
// are filled (free them with free_text_map). Host's thread only.
//
// A comment begins at // anywhere, in a quoted string too, and line ends stay, so that line numbers hold. A hash word
// counts outside quoted strings; what follows its predicate on the line is text like any other.
void remove_comments_and_false_if_statements(char* text, const char* name, TextMap* map = nullptr);

// The words that predicates may use, and their values; a predicate is words joined by |, true if one of them is.
constexpr int n_if_vars = 15;
extern const char* const if_vars[n_if_vars];
extern int if_var_values[n_if_vars];

// The line of the text that the filter has come to, from 1, for those who catch its messages.
extern int if_line_number;

// Sets the values for a host of that name: "1", "widgets" and the host's own word are true. Each filtering does it.
void set_if_name_index(const char* host_word = "spark");

}  // namespace velloran
