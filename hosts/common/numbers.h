// Numbers as text, the same in every locale.
#pragma once

#include <string>
#include <string_view>

namespace spark_host {

// The shortest text that reads back as the same float.
std::string number_text(float value);
std::string number_text(double value, int decimals);

// The whole text must be a finite number, with an optional sign; false otherwise, and the result as it was.
bool read_number(std::string_view text, float& value);
bool read_number(std::string_view text, long& value);

}  // namespace spark_host
