// Words to offer at a place of a text, and the call that is being written there.
#pragma once

#include "hosts/language/outline.h"
#include "hosts/language/vocabulary.h"

#include <string>
#include <string_view>
#include <vector>

namespace language {

enum class Sort : unsigned char { function, name, param, input, variable, keyword, setting, choice, effect };

struct Offer {
    Sort sort;
    std::string label, detail, documentation;
    std::string insert;    // empty: the label
    bool snippet = false;  // insert holds ${1:places}
};
struct Offers {
    size_t begin = 0, end = 0;  // bytes that the chosen word replaces
    std::vector<Offer> words;
};

// snippets: places to fill in may be offered. Whoever asks picks those that begin like the word before the caret.
Offers offers_at(std::string_view text, size_t offset, const Functions& functions, bool snippets);

// What is told of an argument, in a line; empty: nothing.
std::string argument_facts(const render::FunctionArgument& argument);

}  // namespace language
