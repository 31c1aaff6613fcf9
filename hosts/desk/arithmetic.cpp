#include "hosts/desk/arithmetic.h"

#include <charconv>
#include <cmath>
#include <string>

namespace desk {
namespace {

constexpr int deepest = 100;  // brackets in brackets

struct Sum {
    const std::string& text;
    size_t at = 0;
    int depth = 0;
    bool wrong = false;

    void skip() {
        while (at < text.size() && text[at] == ' ') at++;
    }
    bool take(char c) {
        skip();
        if (at >= text.size() || text[at] != c) return false;
        at++;
        return true;
    }
    double number() {
        skip();
        double value = 0;
        const auto [end, error] = std::from_chars(text.data() + at, text.data() + text.size(), value);
        if (error != std::errc()) wrong = true;
        at = static_cast<size_t>(end - text.data());
        return value;
    }
    double factor() {
        if (++depth > deepest) wrong = true;
        double value = 0;
        if (wrong) {
        } else if (take('-')) {
            value = -factor();
        } else if (take('+')) {
            value = factor();
        } else if (take('(')) {
            value = sum();
            if (!take(')')) wrong = true;
        } else {
            value = number();
        }
        depth--;
        return value;
    }
    double product(double value) {
        while (!wrong) {
            if (take('*'))
                value *= factor();
            else if (take('/'))
                value /= factor();
            else
                break;
        }
        return value;
    }
    double rest(double value) {
        while (!wrong) {
            if (take('+'))
                value += product(factor());
            else if (take('-'))
                value -= product(factor());
            else
                break;
        }
        return value;
    }
    double sum() { return rest(product(factor())); }
};

}  // namespace

std::optional<double> typed_value(const QString& typed, double present) {
    std::string text = typed.trimmed().toStdString();
    for (char& c : text)
        if (c == ',') c = '.';
    if (text.empty()) return std::nullopt;
    Sum sum{text};
    double value = 0;
    if (text.rfind("+=", 0) == 0 || text.rfind("-=", 0) == 0) {
        text.erase(1, 1);
        value = sum.rest(present);
    } else if (text[0] == '*' || text[0] == '/') {
        value = sum.rest(sum.product(present));
    } else {
        value = sum.sum();
    }
    sum.skip();
    if (sum.wrong || sum.at != text.size() || !std::isfinite(value)) return std::nullopt;
    return value;
}

}  // namespace desk
