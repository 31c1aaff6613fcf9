#include "texts/hints.h"

#include "support/errors.h"
#include "texts/characters.h"
#include "texts/text_reader.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace velloran {

HintPrinter hint_printer = nullptr;

namespace {

// Edit distance with exchanges of neighbours; capitals do not count.
int word_distance(const char* a, const char* b) {
    constexpr int longest = 40;
    const int n = static_cast<int>(std::strlen(a)), m = static_cast<int>(std::strlen(b));
    if (n >= longest || m >= longest) return longest;
    int rows[longest][longest];
    for (int i = 0; i <= n; ++i) {
        for (int j = 0; j <= m; ++j) {
            if (!i || !j) {
                rows[i][j] = i + j;
                continue;
            }
            const bool same = to_lower(a[i - 1]) == to_lower(b[j - 1]);
            rows[i][j] = std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, rows[i - 1][j - 1] + !same});
            if (i > 1 && j > 1 && to_lower(a[i - 1]) == to_lower(b[j - 2]) && to_lower(a[i - 2]) == to_lower(b[j - 1]))
                rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
        }
    }
    return rows[n][m];
}

const char* behind_digits(const char* p) {
    while (is_digit(*p)) ++p;
    return p;
}

}  // namespace

void hint(int level, const char* format, ...) {
    if (!hint_printer) return;
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    hint_printer(level, text);
}

void consider_word(NearestWord& word, const char* known) {
    if (!hint_printer || !known) return;
    const int length = static_cast<int>(std::strlen(word.wrong));
    const int most = length >= 4 ? std::max(2, length / 4) : 1;
    const int distance = word_distance(word.wrong, known);
    if (distance > most || distance >= length || (word.nearest && distance >= word.distance)) return;
    word.nearest = known;
    word.distance = distance;
}

void hint_nearest(const NearestWord& word) {
    if (word.nearest) hint(level_note, "did you mean '%s'?", word.nearest);
}

void hint_behind_number(const char* token) {
    if (!hint_printer) return;
    const char* p = token + (*token == '-' || *token == '+');
    p = behind_digits(p);
    if (*p == '.') p = behind_digits(p + 1);
    if (*p == 'e' || *p == 'E') {
        const char* const digits = p + 1 + (p[1] == '-' || p[1] == '+');
        if (is_digit(*digits)) p = behind_digits(digits);
    }
    float number;
    if (!*p || !parse_float(token, &number)) return;
    hint(level_warning, "the number '%s' is read as %.9g: '%s' behind it does not count.", token,
         static_cast<double>(number), p);
}

}  // namespace velloran
