// The words of texts as a TextMate grammar, for editors that colour by such.
#pragma once

#include "hosts/render/function_list.h"

#include <string>
#include <vector>

namespace language {

// JSON with a line feed at its end. Its patterns use nothing in which the engines of editors differ.
std::string textmate_grammar(const std::vector<render::FunctionRow>& rows);

// `velloran functions --textmate` prints it.
int textmate_command();

}  // namespace language
