// Character classes that do not change with the locale and take any char, also those above 127.
#pragma once

namespace velloran {

inline bool is_space(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
inline bool is_digit(int c) { return c >= '0' && c <= '9'; }
inline char to_upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }
inline char to_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace velloran
