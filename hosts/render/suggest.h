// The right name nearest to a wrong one.
#pragma once

#include <string>
#include <vector>

namespace render {

// Names are compared without regard to case, underscores and blanks being alike.
bool same_name_p(const std::string& a, const std::string& b);

// Empty if none is near: the number of letters to change, drop, add or swap must stay below a third of the word, but
// two are always allowed for words of at least four letters.
std::string nearest_name(const std::string& wrong, const std::vector<std::string>& names);

// "; did you mean 'x'?" or nothing.
std::string did_you_mean(const std::string& wrong, const std::vector<std::string>& names);

}  // namespace render
