// Both passes compact the text in place: the write position never passes the read position, so what has not been read
// is still whole. The map's offsets move along with the bytes.
#include "texts/if_filter.h"

#include "support/abort.h"
#include "support/errors.h"
#include "support/memory.h"
#include "texts/characters.h"

#include <cstdio>
#include <cstring>

namespace velloran {

const char* const if_vars[n_if_vars] = {"0",    "1",    "widgets", "optional_inputs", "super_colors", "spark",
                                        "ufo",  "awc",  "quantel", "shake",           "ae",           "avx",
                                        "avx1", "avx2", "ofx"};
int if_var_values[n_if_vars];
int if_line_number = 1;

namespace {

constexpr int if_stack_size = 10;

struct IfRecord {
    int active;    // text here is kept
    int any_true;  // a branch of this conditional had a true predicate
    int else_seen;
    int start_line;
};

char if_source_name[500];
int if_nest_level = 0;
IfRecord if_stack[if_stack_size];  // record 0 is the base, always active
IfRecord* if_top = if_stack;
IfRecord* if_parent = nullptr;  // the record below if_top; null at level 0

// The text in hand. Words are slices of it.
struct Slice {
    const char* begin;
    int length;
};

struct FilterState {
    char* text;
    int32_t* offsets;  // null without a map
    int read, write;
};

int find_if_var(const char* word, int length) {
    for (int i = 0; i < n_if_vars; ++i)
        if (std::strlen(if_vars[i]) == static_cast<size_t>(length) &&
            std::memcmp(if_vars[i], word, static_cast<size_t>(length)) == 0)
            return i;
    return -1;
}

void set_if_value(const char* word) {
    const int index = find_if_var(word, static_cast<int>(std::strlen(word)));
    if (index < 0) {
        log_print("ERROR set_if_name_index: %s no name match! \n", word);
        fatal_abort(1);
        return;
    }
    if_var_values[index] = 1;
}

// Words joined by | are alternatives; the first true one decides.
int predicate_value(Slice predicate) {
    if (predicate.length == 0)
        log_print("WARNING in %s line %d: empty #if or #elseif predicate string.\n", if_source_name, if_line_number);
    int begin = 0;
    while (begin < predicate.length) {
        int end = begin;
        while (end < predicate.length && predicate.begin[end] != '|') ++end;
        if (end > begin) {
            const char* const word = predicate.begin + begin;
            const int index = find_if_var(word, end - begin);
            if (index >= 0 && if_var_values[index] > 0) return 1;
            if (index < 0 || if_var_values[index] < 0)
                log_print("WARNING in %s line %d: unknown if var in predicate: %.*s \n", if_source_name, if_line_number,
                          end - begin, word);
        }
        begin = end + 1;
    }
    return 0;
}

void begin_if(Slice predicate, bool negate) {
    if (if_nest_level >= if_stack_size - 1) {
        log_print("ERROR in %s line %d: #if nesting > %d\n", if_source_name, if_line_number, if_stack_size);
        fatal_abort(1);
        return;
    }
    int result = predicate_value(predicate);
    if (negate) result = !result;
    if_parent = if_top;
    ++if_top;
    ++if_nest_level;
    *if_top = {if_parent->active && result, result, 0, if_line_number};
}

void handle_elseif(Slice predicate) {
    if (if_nest_level < 1) {
        log_print("ERROR in %s line %d: #elseif not within an #if \n", if_source_name, if_line_number);
        return;
    }
    if (if_top->else_seen) {
        log_print("ERROR in %s line %d: #elseif follows #else within the same #if \n", if_source_name, if_line_number);
        if_top->active = 0;
        return;
    }
    const int result = predicate_value(predicate);
    if_top->active = if_parent->active && !if_top->any_true && result;
    if_top->any_true = if_top->any_true || result;
}

void handle_else() {
    if (if_nest_level < 1) {
        log_print("ERROR in %s line %d: #else not within an #if \n", if_source_name, if_line_number);
        return;
    }
    if (if_top->else_seen) {
        log_print("ERROR in %s line %d: more than one #else within an #if \n", if_source_name, if_line_number);
        if_top->active = 0;
        return;
    }
    if_top->active = if_parent->active && !if_top->any_true;
    if_top->else_seen = 1;
}

void handle_endif() {
    if (if_nest_level < 1) {
        log_print("ERROR in %s line %d: #endif not within an #if \n", if_source_name, if_line_number);
        return;
    }
    --if_nest_level;
    --if_top;
    if_parent = if_nest_level > 0 ? if_top - 1 : nullptr;
}

// Copies or drops the next count bytes.
void take(FilterState& state, int count, bool keep) {
    if (keep) {
        const auto bytes = static_cast<size_t>(count);
        std::memmove(state.text + state.write, state.text + state.read, bytes);
        if (state.offsets)
            std::memmove(state.offsets + state.write, state.offsets + state.read, bytes * sizeof(int32_t));
        state.write += count;
    }
    state.read += count;
}

void terminate(FilterState& state) {
    if (state.offsets) state.offsets[state.write] = state.offsets[state.read];
    state.text[state.write] = 0;
    state.read = state.write = 0;
}

void remove_comments(FilterState& state) {
    const char* const text = state.text;
    for (;;) {
        const char* const next = text + state.read;
        const char* const comment = std::strstr(next, "//");
        if (!comment) break;
        take(state, static_cast<int>(comment - next), true);
        take(state, static_cast<int>(std::strcspn(comment, "\n\r")), false);
    }
    take(state, static_cast<int>(std::strlen(text + state.read)), true);
    terminate(state);
}

// Distance from the read position to the next hash outside a quoted string, or -1. Counts lines on the way.
int find_hash(const FilterState& state) {
    bool in_string = false;
    for (int i = state.read; state.text[i]; ++i) {
        const char c = state.text[i];
        if (c == '\n') ++if_line_number;
        if (c == '"' && !(i > 0 && state.text[i - 1] == '\\')) in_string = !in_string;
        if (c == '#' && !in_string) return i - state.read;
    }
    return -1;
}

int word_length(const char* text) {
    int length = 0;
    while (text[length] && !is_space(text[length])) ++length;
    return length;
}

Slice take_predicate(FilterState& state) {
    int blanks = 0;
    for (; is_space(state.text[state.read + blanks]); ++blanks)
        if (state.text[state.read + blanks] == '\n') ++if_line_number;
    take(state, blanks, false);
    const char* const word = state.text + state.read;
    const int length = word_length(word);
    take(state, length, false);
    return {word, length};
}

void remove_false_branches(FilterState& state) {
    set_if_name_index();
    if_line_number = 1;
    if_nest_level = 0;
    if_top = if_stack;
    if_top->active = 1;
    if_parent = nullptr;
    for (;;) {
        const int distance = find_hash(state);
        if (distance < 0) break;
        take(state, distance, if_top->active);
        const char* const word = state.text + state.read;
        const int length = word_length(word);
        const auto is = [&](const char* name) {
            return std::strlen(name) == static_cast<size_t>(length) &&
                   std::memcmp(word, name, static_cast<size_t>(length)) == 0;
        };
        const bool begins = is("#if"), begins_not = is("#ifnot"), continues = is("#elseif");
        if (begins || begins_not || continues) {
            take(state, length, false);
            const Slice predicate = take_predicate(state);
            if (continues)
                handle_elseif(predicate);
            else
                begin_if(predicate, begins_not);
        } else if (is("#else")) {
            take(state, length, false);
            handle_else();
        } else if (is("#endif")) {
            take(state, length, false);
            handle_endif();
        } else {
            // #ref is the genotype reader's. The message comes first: copying may overwrite the word.
            if (!is("#ref"))
                log_print("WARNING in %s line %d: unknown hash command: %.*s \n", if_source_name, if_line_number,
                          length, word);
            take(state, length, if_top->active);
        }
    }
    // What follows an unclosed conditional is kept: better a message about the text than one about its absence.
    take(state, static_cast<int>(std::strlen(state.text + state.read)), true);
    terminate(state);
    if (if_nest_level > 0)
        log_print("WARNING in %s line %d: unclosed #if statement \n", if_source_name, if_top->start_line);
}

void begin_map(TextMap& map, const char* text) {
    free_text_map(map);
    const int length = static_cast<int>(std::strlen(text));
    map.offsets = frame_array<int32_t>(static_cast<size_t>(length) + 1);
    for (int i = 0; i <= length; ++i) map.offsets[i] = i;
    int lines = 1;
    for (int i = 0; i < length; ++i) lines += text[i] == '\n';
    map.line_starts = frame_array<int32_t>(static_cast<size_t>(lines));
    map.line_starts[0] = 0;
    map.n_lines = 1;
    for (int i = 0; i < length; ++i)
        if (text[i] == '\n') map.line_starts[map.n_lines++] = i + 1;
}

}  // namespace

void set_if_name_index(const char* host_word) {
    std::memset(if_var_values, 0, sizeof(if_var_values));
    set_if_value("1");
    set_if_value("widgets");
    set_if_value(host_word);
    if (std::strcmp(host_word, "avx") == 0) set_if_value("avx1");
    if (std::strstr(host_word, "avx")) set_if_value("avx");
}

void remove_comments_and_false_if_statements(char* text, const char* name, TextMap* map) {
    std::snprintf(if_source_name, sizeof(if_source_name), "%s", name ? name : "");
    if (!text) return;
    if (map) begin_map(*map, text);
    FilterState state = {text, map ? map->offsets : nullptr, 0, 0};
    remove_comments(state);
    remove_false_branches(state);
    if (map) map->length = static_cast<int>(std::strlen(text));
}

}  // namespace velloran
