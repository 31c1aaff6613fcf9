// Places cost nothing while reading: only the byte where a token began is kept. Line and column are counted when
// somebody asks, from where the last count in the same text ended.
#include "texts/text_reader.h"

#include "support/abort.h"
#include "support/errors.h"
#include "texts/characters.h"

#include <climits>
#include <cmath>
#include <cstring>

namespace velloran {

FILE* reading_from_file_ptr = nullptr;
const char* reading_from_string = nullptr;
int reading_from_string_index = 0;
int reading_from_string_length = 0;
int unread_token_p = 0;
int skip_comments_p = 1;
int saved_reading_from_info_p = 0;

namespace {

char unread_token_text[token_size];
char last_non_number_string[token_size];
const TextMap* text_map = nullptr;

struct ReadingInfo {
    FILE* file;
    const char* string;
    int length;
    long position;
};
ReadingInfo saved_reading_from_info;

// Where the last token began, and in which source.
long token_start = -1;
const char* token_string = nullptr;
FILE* token_file = nullptr;

// Line and column of a byte of a string, to count on from.
const char* counted_string = nullptr;
TextPlace counted = text_start;

constexpr bool delimiter_p(int c) { return c == '"' || c == '(' || c == ')' || c == '=' || c == '[' || c == ']'; }

void copy_token(char* to, const char* from) { std::snprintf(to, token_size, "%s", from); }

void count_byte(TextPlace& place, int c) {
    ++place.offset;
    if (c == '\n') {
        ++place.line;
        place.column = 1;
    } else {
        ++place.column;
    }
}

void note_token_start(long back) {
    token_string = reading_from_string;
    token_file = reading_from_file_ptr;
    const long position = reading_from_string     ? reading_from_string_index
                          : reading_from_file_ptr ? std::ftell(reading_from_file_ptr)
                                                  : -1;
    token_start = position < back ? -1 : position - back;
}

int read_until_run(const char* const* run, int n) {
    char token[token_size];
    int seen = 0;
    while (seen < n) {
        const int code = read_token(token);
        if (code == token_end) return code;
        seen = code == 0 && std::strcmp(token, run[seen]) == 0 ? seen + 1 : 0;
    }
    return 0;
}

}  // namespace

// ---- Source ----

void open_reading_from_string(const char* text, const TextMap* map) {
    if (!text) V_error(level_error, "open_reading_from_string: received a NULL string! \n");
    reading_from_file_ptr = nullptr;
    reading_from_string = text;
    reading_from_string_index = 0;
    reading_from_string_length = text ? static_cast<int>(std::strlen(text)) : 0;
    text_map = map;
    token_start = -1;
    counted_string = nullptr;
}

void reset_text_reader() {
    reading_from_file_ptr = nullptr;
    reading_from_string = nullptr;
    reading_from_string_index = reading_from_string_length = 0;
    text_map = nullptr;
    unread_token_p = saved_reading_from_info_p = 0;
    skip_comments_p = 1;
    token_start = -1;
    counted_string = nullptr;
}

void save_parser_state(parser_state* state) {
    if (!state) {
        V_error(level_error, "NULL parser state in save_parser_state");
        return;
    }
    *state = {reading_from_file_ptr,
              reading_from_string,
              reading_from_string_index,
              reading_from_string_length,
              text_map,
              token_start};
    reading_from_file_ptr = nullptr;
    reading_from_string = nullptr;
    reading_from_string_index = reading_from_string_length = 0;
    text_map = nullptr;
    token_start = -1;
}

void restore_parser_state(const parser_state* state) {
    if (!state) {
        V_error(level_error, "NULL parser state in restore_parser_state");
        return;
    }
    reading_from_file_ptr = token_file = state->file;
    reading_from_string = token_string = state->string;
    reading_from_string_index = state->index;
    reading_from_string_length = state->length;
    text_map = state->map;
    token_start = state->token_start;
}

void save_reading_from_info() {
    if (saved_reading_from_info_p) V_error(level_error, "*** OOPS save_reading_from_info: already saved! \n");
    saved_reading_from_info = {reading_from_file_ptr, reading_from_string, reading_from_string_length,
                               get_reading_from_position()};
    saved_reading_from_info_p = 1;
}

void restore_reading_from_info() {
    if (!saved_reading_from_info_p) V_error(level_error, "*** OOPS restore_reading_from_info: not saved! \n");
    reading_from_file_ptr = saved_reading_from_info.file;
    reading_from_string = saved_reading_from_info.string;
    reading_from_string_length = saved_reading_from_info.length;
    if (reading_from_file_ptr || reading_from_string) set_reading_from_position(saved_reading_from_info.position);
    saved_reading_from_info_p = 0;
}

long get_reading_from_position() {
    if (reading_from_string) return reading_from_string_index;
    if (reading_from_file_ptr) return std::ftell(reading_from_file_ptr);
    V_error(level_error, "get_reading_from_position: need reading_from_file_ptr or reading_from_string.");
    fatal_abort(1);
    return -1;
}

void set_reading_from_position(long position) {
    if (reading_from_string) {
        const long held = position < 0 ? 0 : position;
        reading_from_string_index =
            held > reading_from_string_length ? reading_from_string_length : static_cast<int>(held);
    } else if (reading_from_file_ptr) {
        std::fseek(reading_from_file_ptr, position, SEEK_SET);
    } else {
        V_error(level_error, "set_reading_from_position: need reading_from_file_ptr or reading_from_string.");
        fatal_abort(1);
    }
}

bool get_last_token_place(TextPlace* place) {
    *place = {0, 0, -1};
    if (token_start < 0 || token_string != reading_from_string || token_file != reading_from_file_ptr) return false;
    if (reading_from_string) {
        if (text_map) {
            *place = map_text_place(*text_map, token_start);
            return true;
        }
        if (counted_string != reading_from_string || counted.offset > token_start) {
            counted_string = reading_from_string;
            counted = text_start;
            counted.offset = 0;
        }
        while (counted.offset < token_start) count_byte(counted, reading_from_string[counted.offset]);
        *place = counted;
        return true;
    }
    const long position = std::ftell(reading_from_file_ptr);
    if (position < 0 || std::fseek(reading_from_file_ptr, 0, SEEK_SET) != 0) return false;
    TextPlace found = text_start;
    int c = 0;
    while (found.offset < token_start && (c = std::getc(reading_from_file_ptr)) != EOF) count_byte(found, c);
    std::fseek(reading_from_file_ptr, position, SEEK_SET);
    *place = found;
    return true;
}

// ---- Characters ----

int get_next_char() {
    if (reading_from_string) {
        if (reading_from_string_index >= reading_from_string_length) return -1;
        return static_cast<signed char>(reading_from_string[reading_from_string_index++]);
    }
    if (reading_from_file_ptr) {
        const int c = std::getc(reading_from_file_ptr);
        return c == EOF ? -1 : c;
    }
    V_error(level_error, "get_next_char: need reading_from_file_ptr or reading_from_string.");
    fatal_abort(1);
    return -1;
}

void put_back_char(int c) {
    if (c == -1) {
        V_error(level_error, "put_back_char: attempting to put back EOF!");
        return;
    }
    if (!reading_from_string) {
        if (reading_from_file_ptr) std::ungetc(c, reading_from_file_ptr);
        return;
    }
    if (reading_from_string_index <= 0) {
        V_error(level_error, "put_back_char: no room in string to put back.");
        return;
    }
    // Texts are the caller's writable copies: filtering works in place too.
    char& there = const_cast<char&>(reading_from_string[--reading_from_string_index]);
    const char before = there;
    if (before == static_cast<char>(c)) return;
    there = static_cast<char>(c);
    V_error(level_fatal, "put_back_char: Putting back mismatched char: %c over %c!\n", c, before);
}

void skip_whitespace() {
    int c;
    do c = get_next_char();
    while (is_space(c));
    if (c != -1) put_back_char(c);
}

void print_some_of_reading_from_string() {
    constexpr int shown = 200, before = 100;
    if (!reading_from_string) {
        V_error(level_error, "print_some_of_reading_from_string: no reading_from_string \n");
        return;
    }
    if (reading_from_string_index + shown >= reading_from_string_length)
        V_error(level_warning, "print_some_of_reading_from_string: at end. \n");
    if (reading_from_string_index < before) V_error(level_warning, "print_some_of_reading_from_string: at start. \n");
    const int begin = reading_from_string_index < before ? 0 : reading_from_string_index - before;
    const int left = reading_from_string_length - begin;
    std::printf("%.*s \n", left < shown ? left : shown, reading_from_string + begin);
}

// ---- Tokens ----

int read_token(char* token) {
    if (unread_token_p) {
        copy_token(token, unread_token_text);
        unread_token_p = 0;
        return 0;
    }
    for (;;) {
        token[0] = 0;
        int c;
        do c = get_next_char();
        while (is_space(c));
        note_token_start(c == -1 ? 0 : 1);
        if (c == -1) return token_end;
        if (delimiter_p(c)) {
            token[0] = static_cast<char>(c);
            token[1] = 0;
            return 0;
        }
        int length = 0;  // of the token; what does not fit is counted and dropped
        int last = 0;
        bool comment = false;
        while (c != -1 && !is_space(c)) {
            if (delimiter_p(c)) {
                put_back_char(c);
                break;
            }
            if (skip_comments_p && length > 0 && c == '/' && last == '/') {
                comment = true;
                break;
            }
            if (length < token_size - 1) token[length] = static_cast<char>(c);
            ++length;
            last = c;
            c = get_next_char();
        }
        if (comment) {
            --length;  // the first slash
            do c = get_next_char();
            while (c != -1 && c != '\n');
        }
        if (length >= token_size) {
            token[token_size - 1] = 0;
            V_error(level_error, "read_token: token of %d characters is longer than %d: %.40s...", length,
                    token_size - 1, token);
            token[0] = 0;
            return token_too_long;
        }
        token[length] = 0;
        if (length > 0) return 0;
    }
}

void unread_token(const char* token) {
    if (unread_token_p) {
        V_error(level_error, "unread_token: there is already an unread token!");
        fatal_abort(1);
    }
    copy_token(unread_token_text, token);
    unread_token_p = 1;
}

int read_token_ignore_string(char* token) {
    for (;;) {
        const int code = read_token(token);
        if (code != 0 || std::strcmp(token, "\"") != 0) return code;
        int last = 0, c;
        while ((c = get_next_char()) != '"' || last == '\\') {
            if (c == -1) {
                V_error(level_error, "read_token_ignore_string: got eof before end of string.");
                token[0] = 0;
                return token_end;
            }
            last = c;
        }
    }
}

int read_string(char* buffer, int max_length) {
    char token[token_size];
    read_token(token);
    if (std::strcmp(token, "\"") == 0) return read_string_1(buffer, max_length);
    V_error(level_error, "read_string expected '\"' but got %s \n", token);
    buffer[0] = 0;
    return token_mismatch;
}

int read_string_1(char* buffer, int max_length) {
    for (int i = 0;; ++i) {
        const int c = get_next_char();
        if (c == '"') {
            if (i == 0 || buffer[i - 1] != '\\') {
                buffer[i] = 0;
                return 0;
            }
            --i;
        }
        if (c == -1 || i >= max_length) {
            V_error(level_error, c == -1 ? "read_string_1: got eof before end of string."
                                         : "read_string_1: string length > max_len.");
            buffer[i] = 0;
            return token_mismatch;
        }
        buffer[i] = static_cast<char>(c);
    }
}

int read_number(float* number, const char* context) {
    char token[token_size];
    const int code = read_token(token);
    if (code != 0) {
        last_non_number_string[0] = 0;
        if (context && code == token_end) V_error(level_error, "%s expected a number, but got eof", context);
        return code;
    }
    if (parse_float(token, number)) return 0;
    copy_token(last_non_number_string, token);
    if (context) V_error(level_error, "%s expected a number, but got '%s'", context, token);
    return token_no_number;
}

const char* get_last_non_number_string() { return last_non_number_string; }

int expect_token(const char* expected, const char* context) {
    char token[token_size];
    const int code = read_token(token);
    if (code != 0) {
        if (context && code == token_end) V_error(level_error, "%s expected %s, but got eof", context, expected);
        return code;
    }
    if (std::strcmp(token, expected) == 0) return 0;
    if (context) V_error(level_error, "%s expected '%s', but got '%s'", context, expected, token);
    return token_mismatch;
}

int read_number_after(const char* keyword, const char* context, float* number, int optional, float default_value) {
    char token[token_size];
    const int code = read_token(token);
    if (code != 0) {
        if (context && code == token_end) V_error(level_error, "%s expected %s, but got eof", context, keyword);
        return code;
    }
    if (std::strcmp(token, keyword) == 0) {
        char after[token_size + 16];
        std::snprintf(after, sizeof(after), "after '%s'", keyword);
        return read_number(number, after);
    }
    if (optional) {
        unread_token(token);
        *number = default_value;
        return 0;
    }
    if (context) V_error(level_error, "%s expected '%s', but got '%s'", context, keyword, token);
    return token_mismatch;
}

int read_until_token(const char* a) { return read_until_run(&a, 1); }

int read_until_tokens_2(const char* a, const char* b) {
    const char* const run[] = {a, b};
    return read_until_run(run, 2);
}

int read_until_tokens_3(const char* a, const char* b, const char* c) {
    const char* const run[] = {a, b, c};
    return read_until_run(run, 3);
}

int skip_to_closing_paren() {
    char token[token_size];
    int depth = 1;
    while (depth > 0) {
        if (read_token(token) == token_end) {
            V_error(level_error, "unbalanced parens: eof before closed.");
            fatal_abort(1);
            return token_end;
        }
        if (std::strcmp(token, "(") == 0) ++depth;
        if (std::strcmp(token, ")") == 0) --depth;
    }
    return 0;
}

// ---- Numbers ----

int parse_int(const char* text, int* number) {
    while (is_space(*text)) ++text;
    const bool negative = *text == '-';
    if (*text == '-' || *text == '+') ++text;
    if (!is_digit(*text)) return 0;
    long long value = 0;
    for (; is_digit(*text); ++text)
        if (value <= INT_MAX) value = value * 10 + (*text - '0');
    if (negative) value = -value;
    *number = value > INT_MAX ? INT_MAX : value < INT_MIN ? INT_MIN : static_cast<int>(value);
    return 1;
}

// Single precision step by step: texts written for one build must give the same values in every other.
int parse_float(const char* text, float* number) {
    while (is_space(*text)) ++text;
    const bool negative = *text == '-';
    if (*text == '-' || *text == '+') ++text;
    float value = 0, weight = 1;
    bool fraction = false, any_digit = false;
    for (; is_digit(*text) || (*text == '.' && !fraction); ++text) {
        if (*text == '.') {
            fraction = true;
            continue;
        }
        const auto digit = static_cast<float>(*text - '0');
        any_digit = true;
        if (fraction) {
            weight *= 0.1f;
            value += digit * weight;
        } else {
            value = value * 10 + digit;
        }
    }
    if (!any_digit) return 0;
    int exponent = 0;
    if ((*text == 'e' || *text == 'E') && parse_int(text + 1, &exponent)) {
        const double scaled = value * std::pow(10.0, exponent);
        // Zero times infinity, as in 0e999.
        value = std::isnan(scaled) ? 0 : static_cast<float>(scaled);
    }
    *number = negative ? 0 - value : value;
    return 1;
}

}  // namespace velloran
