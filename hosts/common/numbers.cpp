#include "hosts/common/numbers.h"

#include <charconv>
#include <cmath>

namespace spark_host {
namespace {

template <class T>
bool read(std::string_view text, T& value) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    if (text.empty() || text.front() == '+') return false;
    T found;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), found);
    if (error != std::errc() || end != text.data() + text.size()) return false;
    value = found;
    return true;
}

}  // namespace

std::string number_text(float value) {
    char text[64];
    return std::string(text, std::to_chars(text, text + sizeof(text), value).ptr);
}

std::string number_text(double value, int decimals) {
    char text[400];
    return std::string(text, std::to_chars(text, text + sizeof(text), value, std::chars_format::fixed, decimals).ptr);
}

bool read_number(std::string_view text, float& value) {
    float found = 0;
    if (!read(text, found) || !std::isfinite(found)) return false;
    value = found;
    return true;
}

bool read_number(std::string_view text, long& value) { return read(text, value); }

}  // namespace spark_host
