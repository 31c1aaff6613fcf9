#include "operators/film/film_types.h"

#include "operators/film/film_tone.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/notices.h"
#include "support/unload.h"
#include "texts/config.h"
#include "texts/text_file.h"
#include "texts/text_reader.h"
#include "texts/title_case.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace velloran {

namespace {

// Any function below answers false once the definition in hand has to be left. A word that ends it before its time may
// begin the next one.
bool refuse(const char* word) {
    if (!std::strcmp(word, "begin")) unread_token(word);
    return false;
}

bool read_finite(float* value, const char* what) {
    float number;
    const int code = read_number(&number, what);
    if (code == 0 && std::isfinite(number)) {
        *value = number;
        return true;
    }
    if (code == 0) V_error(level_error, "%s expected a number, but it is too large", what);
    return code == token_no_number ? refuse(get_last_non_number_string()) : false;
}

// 1: a number, 0: the word end, -1: neither, which is told.
int read_number_or(float* value, const char* end, bool one_color) {
    const int code = read_number(value, nullptr);
    if (code == 0 && std::isfinite(*value)) return 1;
    if (code == token_end) {
        V_error(level_error, "eof before %s was found \n", end);
        return -1;
    }
    const char* const word = code == 0 ? "one that is too large" : get_last_non_number_string();
    if (code == token_no_number && !std::strcmp(word, end)) return 0;
    if (one_color)
        V_error(level_error, "expected a number or %s but got %s", end, word);
    else
        V_error(level_error, "expected a number but got %s", word);
    if (code == token_no_number) refuse(word);
    return -1;
}

// Points of the colours first to last, up to the word end: the place on the x axis, then a density for each of them.
bool read_points(FilmType* type, int first, int last, const char* end) {
    const bool one_color = first == last;
    int n = 0;
    for (float x;;) {
        const int found = read_number_or(&x, end, one_color);
        if (found <= 0) return found == 0;
        float y[film_colors];
        for (int c = first; c <= last; ++c) {
            const int density = read_number_or(&y[c], end, one_color);
            if (density == 0) V_error(level_error, "expected a number but got %s", end);
            if (density <= 0) return false;
        }
        if (n == MAX_CURVE_POINTS) {
            V_error(level_error, "exceeded MAX_CURVE_POINTS");
            return false;
        }
        if (n > 0 && !(x > type->x[first][n - 1])) {
            V_error(level_error, "film type %s: the curve's point at %g does not lie behind the one at %g", type->name,
                    static_cast<double>(x), static_cast<double>(type->x[first][n - 1]));
            return false;
        }
        for (int c = first; c <= last; ++c) {
            type->x[c][n] = x;
            type->y[c][n] = y[c];
            type->point_count[c] = n + 1;
        }
        ++n;
    }
}

bool read_axis(FilmType* type, int* axis) {
    static constexpr struct {
        const char* word;
        FilmAxis axis;
    } words[] = {{"log10", film_axis_log10}, {"log", film_axis_log10},  {"stops", film_axis_stops},
                 {"log2", film_axis_stops},  {"lin", film_axis_linear}, {"linear", film_axis_linear}};
    char word[token_size];
    const int code = read_token(word);
    if (code == token_end) {
        V_error(level_error, "EOF while reading curve type in %s", type->name);
        return false;
    }
    for (const auto& known : words)
        if (!std::strcmp(word, known.word)) {
            *axis = known.axis;
            return true;
        }
    V_error(level_error, "Unknown curve type %s in %s \n", word, type->name);
    return refuse(word);
}

bool read_color_curves(FilmType* type) {
    std::fill(type->point_count, type->point_count + film_colors, 0);
    if (!read_axis(type, &type->x_type) || !read_axis(type, &type->y_type)) return false;
    char word[token_size];
    if (read_token(word) == 0 && !std::strcmp(word, "rgb"))
        return read_points(type, 0, film_colors - 1, "end_color_curves");
    if (!std::strcmp(word, "red"))
        return read_points(type, 0, 0, "green") && read_points(type, 1, 1, "blue") &&
               read_points(type, 2, 2, "end_color_curves");
    V_error(level_error, "in %s, first curve %s should be 'rgb' or 'red'", type->name, word);
    return refuse(word);
}

bool read_grain_number(float* value) {
    float number;
    const int code = read_number(&number, nullptr);
    if (code == 0 && std::isfinite(number)) {
        *value = number;
        return true;
    }
    const char* const word = code == 0 ? "one that is too large" : get_last_non_number_string();
    V_error(level_error, "Expected number after grain, got %s", word);
    return code == token_no_number ? refuse(word) : false;
}

bool read_grain(FilmType* type) {
    char word[token_size];
    if (read_token(word) == 0 && !std::strcmp(word, "[")) {
        for (float& grain : type->grain)
            if (!read_grain_number(&grain)) return false;
        if (read_token(word) == 0 && !std::strcmp(word, "]")) return true;
        V_error(level_error, "Missing ] after grain");
        return refuse(word);
    }
    if (word[0]) unread_token(word);
    float all;
    if (!read_grain_number(&all)) return false;
    std::fill(type->grain, type->grain + film_colors, all);
    return true;
}

bool read_compensation(FilmType* type) {
    for (float& factor : type->exposure_compensation) {
        float power;
        if (!read_finite(&power, "exposure_compensation")) return false;
        factor = std::pow(10.0f, std::clamp(power, -30.0f, 30.0f));
    }
    return true;
}

// Up to the end, which has to have the name of the beginning.
void read_keys(FilmType* type, const char* name) {
    char word[token_size];
    for (;;) {
        const int code = read_token(word);
        if (code == token_end) {
            V_error(level_error, "film type %s: eof before end was found", type->name);
            return;
        }
        bool known = true;
        if (!std::strcmp(word, "end")) {
            if (read_token(word) != 0 || std::strcmp(word, name) != 0) {
                V_error(level_error, "end %s does not match begin %s \n", word, name);
                refuse(word);
            }
            return;
        }
        if (!std::strcmp(word, "print_film"))
            type->is_print = true;
        else if (!std::strcmp(word, "reversal_film"))
            type->is_print = type->is_reversal = true;
        else if (!std::strcmp(word, "normal_gray_exposure"))
            known = read_finite(&type->normal_gray_exposure, word);
        else if (!std::strcmp(word, "exposure_compensation"))
            known = read_compensation(type);
        else if (!std::strcmp(word, "grain"))
            known = read_grain(type);
        else if (!std::strcmp(word, "color_curves"))
            known = read_color_curves(type);
        else {
            V_error(level_error, "film type %s: got '%s' expected: gamma, grain_amp, or grain_blur", type->name, word);
            known = refuse(word);
        }
        if (!known) return;
    }
}

FilmType empty_stock() {
    FilmType type = {};
    std::fill(type.exposure_compensation, type.exposure_compensation + film_colors, 1.0f);
    return type;
}

void add_type(FilmTable* table, const FilmType& type) {
    if (table->count == table->room) {
        const int room = table->room ? 2 * table->room : 16;
        table->types = static_cast<FilmType*>(safe_realloc(table->types, static_cast<size_t>(room) * sizeof(FilmType)));
        table->names = static_cast<char**>(safe_realloc(table->names, static_cast<size_t>(room) * sizeof(char*)));
        table->room = room;
    }
    char shown[sizeof type.name];
    param_display_name(shown, sizeof shown, type.name);
    table->names[table->count] = safe_strdup(shown);
    table->types[table->count++] = type;
}

FilmTable negatives, prints;
bool loaded;

void forget_tables() {
    free_film_table(&negatives);
    free_film_table(&prints);
    loaded = false;
    forget_film_tables();
}

}  // namespace

void start_film_table(FilmTable* table, bool of_prints) {
    free_film_table(table);
    FilmType none = empty_stock();
    none.is_print = of_prints;
    std::strcpy(none.name, of_prints ? "Print Film: None" : "Neg Film: None");
    add_type(table, none);
}

void free_film_table(FilmTable* table) {
    for (int i = 0; i < table->count; ++i) safe_free(table->names[i]);
    safe_free(table->names);
    safe_free(table->types);
    *table = {};
}

void read_film_types(const char* path, FilmTable* negative_table, FilmTable* print_table) {
    if (notices_p()) {
        std::printf("Loading: %s \n", path);
        std::fflush(stdout);
    }
    char* const text = read_data_text(path, "", "Error opening filmtypes file:");
    if (!text) return;
    push_abort_cleanup(safe_free, text);
    parser_state outer;
    save_parser_state(&outer);
    const int outer_unread = unread_token_p;
    unread_token_p = 0;
    open_reading_from_string(text);
    char word[token_size];
    for (int code; (code = read_token(word)) != token_end;) {
        if (code != 0 || std::strcmp(word, "begin") != 0) continue;
        FilmType type = empty_stock();
        char name[token_size];
        if (read_token(name) == token_end) break;
        std::snprintf(type.name, sizeof type.name, "%.92s", name);
        read_keys(&type, name);
        std::snprintf(type.name, sizeof type.name, "%s: %.92s", type.is_print ? "Print" : "Neg", name);
        add_type(type.is_print ? print_table : negative_table, type);
    }
    restore_parser_state(&outer);
    unread_token_p = outer_unread;
    pop_abort_cleanup();
    safe_free(text);
    if (negative_table->count < 2) V_error(level_error, "No negative film types found in %s.\n", path);
    if (print_table->count < 2) V_error(level_error, "No print film types found in %s.\n", path);
}

void load_film_types() {
    if (loaded) return;
    free_at_unload(forget_tables);
    push_abort_cleanup([](void*) { forget_tables(); }, nullptr);
    start_film_table(&negatives, false);
    start_film_table(&prints, true);
    read_film_types(config_paths.filmtypes, &negatives, &prints);
    pop_abort_cleanup();
    loaded = true;
}

FilmTable& neg_film_types() {
    load_film_types();
    return negatives;
}

FilmTable& print_film_types() {
    load_film_types();
    return prints;
}

const FilmType& film_type(const FilmTable& table, int number) {
    return table.types[number > 0 && number < table.count ? number : 0];
}

}  // namespace velloran
