#include "texts/setup_text.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>

namespace velloran {

namespace {

constexpr int longest_number = 64;

// Characters that may stand in a number, up to the first that may not or the file's end.
int take_number(FILE* file, char* word, bool real) {
    int c = read_visible(file);
    int n = 0;
    while (c != EOF && n < longest_number - 1 &&
           (std::isdigit(c) || c == '+' || c == '-' || (real && (c == '.' || c == 'e' || c == 'E')))) {
        word[n++] = static_cast<char>(c);
        c = std::fgetc(file);
    }
    if (c != EOF) std::ungetc(c, file);
    word[n] = 0;
    return n;
}

const char* skip_plus(const char* word) { return word[0] == '+' && word[1] != '-' ? word + 1 : word; }

}  // namespace

void write_number(FILE* file, float value) {
    char word[longest_number];
    const auto end = std::to_chars(word, word + sizeof(word), value);
    std::fwrite(word, 1, static_cast<size_t>(end.ptr - word), file);
}

int read_visible(FILE* file) {
    int c;
    do c = std::fgetc(file);
    while (c != EOF && std::isspace(c));
    return c;
}

bool read_int(FILE* file, int* out) {
    char word[longest_number];
    const int n = take_number(file, word, false);
    const char* const start = skip_plus(word);
    const auto result = std::from_chars(start, word + n, *out);
    return result.ec == std::errc() && result.ptr == word + n && n > 0;
}

bool read_double(FILE* file, double* out) {
    char word[longest_number];
    const int n = take_number(file, word, true);
    const char* const start = skip_plus(word);
    const auto result = std::from_chars(start, word + n, *out);
    return result.ec == std::errc() && result.ptr == word + n && n > 0 && std::isfinite(*out);
}

bool read_rest_of_line(FILE* file, char* out, int size) {
    int c;
    do c = std::fgetc(file);
    while (c == ' ' || c == '\t');
    if (c == EOF) return false;
    std::ungetc(c, file);
    if (!std::fgets(out, size, file)) return false;
    out[std::strcspn(out, "\r\n")] = 0;
    return true;
}

}  // namespace velloran
