// The vocabulary of effect texts, from the library's own table.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace render {

struct FunctionArgument {
    std::string name, meaning, unit, range;
    std::vector<std::pair<int, std::string>> choices;
    bool same_over_frame = false;
};

struct FunctionRow {
    std::string name, meaning;
    std::vector<FunctionArgument> arguments;
    std::vector<std::vector<int>> signatures;  // element counts: the result's, then the arguments'
    bool whole_image = false;
};

// Every row in the table's order; a function may have rows of several argument counts. Fails with the reason.
std::vector<FunctionRow> function_rows();

// As it stands in a text.
std::string call_text(const FunctionRow& row);
// All there is to say, in lines.
std::string function_details(const FunctionRow& row);

}  // namespace render
