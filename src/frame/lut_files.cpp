// Everything is worked out in double precision, so that every build makes the same tables.
#include "frame/lut_files.h"

#include "records/run_state.h"
#include "support/errors.h"
#include "support/files.h"
#include "support/memory.h"
#include "texts/characters.h"
#include "texts/title_case.h"

#include <glob.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace velloran {

int32_t* input_lut_8 = nullptr;
int32_t* input_lut_12 = nullptr;
uint8_t* output_lut_8 = nullptr;
int32_t* output_lut_16 = nullptr;
int use_input_lut = 0;
int use_output_lut = 0;
int HaveInputLut_p = 0;
int HaveOutputLut_p = 0;

namespace {

constexpr int lut_size = 4096;
constexpr int path_size = 640;  // directory and file name, with room

char input_path[path_size];
char output_path[path_size];

float* float_input_lut = nullptr;  // lut_size entries, 0 to 1
int32_t* raw_output_lut = nullptr;
int raw_lut_len = 0;
int32_t raw_lut_max = 1;
float gamma_value = 1;
bool tables_made = false;

// ---- Reading ----

constexpr int word_size = 128;

struct LutWords {
    FILE* file;
    char word[word_size];
};

// The next word, cut to the buffer. False at the end.
bool next_word(LutWords& words) {
    int c = std::getc(words.file);
    for (;;) {
        while (c == ' ' || c == '\t' || c == '\n' || c == '\r') c = std::getc(words.file);
        if (c != '#') break;
        while (c != EOF && c != '\n') c = std::getc(words.file);
    }
    int length = 0;
    for (; c != EOF && c != ' ' && c != '\t' && c != '\n' && c != '\r'; c = std::getc(words.file))
        if (length < word_size - 1) words.word[length++] = static_cast<char>(c);
    if (c != EOF) std::ungetc(c, words.file);
    words.word[length] = 0;
    return length > 0;
}

bool lut_keyword_p(const char* word) {
    const char* const keyword = "lut:";
    int i = 0;
    while (keyword[i] && to_lower(word[i]) == keyword[i]) ++i;
    return !keyword[i] && !word[i];
}

// The whole word must be an integer of 32 bits.
bool integer_word(const char* word, int32_t* number) {
    char* end;
    errno = 0;
    const long value = std::strtol(word, &end, 10);
    if (end == word || *end || errno || value < INT32_MIN || value > INT32_MAX) return false;
    *number = static_cast<int32_t>(value);
    return true;
}

struct Entries {
    int32_t* values;
    int count, capacity;
};

// Room grows with what the file really holds: its own count may say anything.
void append_entry(Entries& entries, int32_t value) {
    if (entries.count == entries.capacity) {
        entries.capacity = entries.capacity ? entries.capacity * 2 : lut_size;
        auto* const moved = frame_array<int32_t>(static_cast<size_t>(entries.capacity));
        if (entries.count) std::memcpy(moved, entries.values, static_cast<size_t>(entries.count) * sizeof(int32_t));
        frame_free(entries.values);
        entries.values = moved;
    }
    entries.values[entries.count++] = value;
}

// Number of entries, or -1 after a message.
int read_entries(LutWords& words, const char* path, Entries& entries) {
    const auto cut_off = [&] {
        V_error(level_warning, "LUT file %s syntax err: EOF found while reading lut\n", path);
        return -1;
    };
    do {
        if (!next_word(words)) return cut_off();
    } while (!lut_keyword_p(words.word));
    int32_t header[2];  // channels, entries
    for (int32_t& number : header) {
        if (!next_word(words)) return cut_off();
        if (!integer_word(words.word, &number) || number < 0) {
            V_error(level_warning, "LUT file %s syntax err: non-integer %s after 'lut:' keyword\n", path, words.word);
            return -1;
        }
    }
    for (int i = 0; i < header[1]; ++i) {
        if (!next_word(words)) return cut_off();
        int32_t value;
        if (!integer_word(words.word, &value)) {
            V_error(level_warning, "LUT file %s syntax err: non-integer or EOF in lut\n", path);
            return -1;
        }
        append_entry(entries, value);
    }
    return entries.count;
}

void close_file(void* file) { safe_fclose(static_cast<FILE*>(file)); }

// The maximum, rounded up to one less than a power of two.
int32_t lut_scale(int32_t max_value) {
    int32_t scale = 1;
    while (scale < max_value) scale = 2 * scale + 1;
    return scale;
}

// Linear between the entries around p, which is at least 0; held at the last.
double interpolated(const int32_t* table, int n, double p) {
    int k = static_cast<int>(p);
    if (k > n - 1) k = n - 1;
    const int next = k + 1 < n ? k + 1 : k;
    return table[k] + (p - k) * (static_cast<double>(table[next]) - table[k]);
}

// ---- Tables ----

double float_input_entry(const int32_t* table, int n, int32_t scale, int i) {
    // A full table is divided in integers: that is what pictures graded with such files look like. So its entries are
    // 0 or 1, unless the scale is small.
    if (n >= lut_size) return table[static_cast<int64_t>(i) * (n - 1) / (lut_size - 1)] / scale;
    const double k = n > 1 ? i / (static_cast<double>(lut_size - 1) / (n - 1)) : 0;
    return interpolated(table, n, k) / scale;
}

template <class T>
void make_table(T*& table, int size) {
    if (!table) table = static_cast<T*>(safe_malloc(static_cast<size_t>(size) * sizeof(T)));
}

int32_t rounded(double value, int32_t largest) {
    const double held = value + 0.5;
    return held <= 0 ? 0 : held >= largest ? largest : static_cast<int32_t>(held);
}

void make_input_tables(double g) {
    make_table(input_lut_8, 256);
    make_table(input_lut_12, lut_size);
    const auto sample = [g](double x) { return rounded(clamped_pow(x, g) * 4095, 4095); };
    const float* const lut = HaveInputLut_p ? float_input_lut : nullptr;
    for (int i = 0; i < 256; ++i) input_lut_8[i] = sample(lut ? lut[static_cast<int>(i / 0.062271062)] : i / 255.0);
    for (int i = 0; i < lut_size; ++i) input_lut_12[i] = sample(lut ? lut[i] : i / 4095.0);
}

void make_output_tables(double g) {
    make_table(output_lut_8, lut_size);
    make_table(output_lut_16, lut_size);
    const double e = 1 / g;
    // A lone output LUT does not count: the input's decides.
    const bool use_file = HaveInputLut_p && raw_output_lut;
    for (int i = 0; i < lut_size; ++i) {
        double y = clamped_pow(i / 4095.0, e);
        if (use_file) {
            y = raw_lut_len < lut_size || e != 1
                    ? interpolated(raw_output_lut, raw_lut_len, y * (raw_lut_len - 1))
                    : raw_output_lut[static_cast<int64_t>(i) * (raw_lut_len - 1) / (lut_size - 1)];
            y /= raw_lut_max;
        }
        output_lut_8[i] = static_cast<uint8_t>(rounded(y * 255, 255));
        output_lut_16[i] = rounded(y * 4095, 4095);
    }
}

template <class T>
void free_table(T*& table) {
    safe_free(table);
    table = nullptr;
}

// ---- Listing ----

// glob would take these as patterns.
void quote_for_glob(char* quoted, int size, const char* text) {
    int length = 0;
    for (; *text && length < size - 2; ++text) {
        if (std::strchr("*?[]\\", *text)) quoted[length++] = '\\';
        quoted[length++] = *text;
    }
    quoted[length] = 0;
}

// By bytes: the locale must not part a pair.
int compare_paths(const void* a, const void* b) {
    return std::strcmp(*static_cast<char* const*>(a), *static_cast<char* const*>(b));
}

glob_t found_files;  // not on the stack, which an abort unwinds before the clean-up

void free_found_files(void*) { globfree(&found_files); }

char* path_copy(const char* path) { return path && *path ? safe_strdup(path) : nullptr; }

}  // namespace

int read_lut_file(const char* path, int32_t** table, int32_t* max_value) {
    *table = nullptr;
    *max_value = 0;
    FILE* const file = safe_fopen(path, "r", 0);
    if (!file) {
        V_error(level_warning, "Can't open LUT file %s for reading: %s (%d)\n", path, std::strerror(errno), errno);
        return 0;
    }
    push_abort_cleanup(close_file, file);
    LutWords words = {file, ""};
    Entries entries = {nullptr, 0, 0};
    const int n = read_entries(words, path, entries);
    if (n > 0) {
        const size_t bytes = static_cast<size_t>(n) * sizeof(int32_t);
        *table = static_cast<int32_t*>(std::memcpy(safe_malloc(bytes), entries.values, bytes));
        for (int i = 0; i < n; ++i)
            if (entries.values[i] > *max_value) *max_value = entries.values[i];
    }
    frame_free(entries.values);
    pop_abort_cleanup();
    safe_fclose(file);
    return n;
}

void load_luts() {
    int32_t* table;
    int32_t max_value;
    if (HaveInputLut_p) {
        const int n = read_lut_file(input_path, &table, &max_value);
        if (n > 0) {
            push_abort_cleanup(safe_free, table);
            make_table(float_input_lut, lut_size);
            pop_abort_cleanup();
            for (int i = 0; i < lut_size; ++i)
                float_input_lut[i] = static_cast<float>(float_input_entry(table, n, lut_scale(max_value), i));
            safe_free(table);
        } else {
            HaveInputLut_p = 0;
        }
    }
    if (HaveOutputLut_p) {
        const int n = read_lut_file(output_path, &table, &max_value);
        safe_free(raw_output_lut);
        raw_output_lut = table;
        raw_lut_len = n > 0 ? n : 0;
        raw_lut_max = lut_scale(max_value);
        if (n <= 0) HaveOutputLut_p = 0;
    }
}

void set_gamma(float gamma) {
    if (!(gamma > 0)) gamma = 1;
    if (tables_made && gamma == gamma_value) return;
    if (!tables_made) load_luts();
    gamma_value = 0;  // of none, until all tables are made: a fatal abort may come in between
    use_input_lut = HaveInputLut_p || gamma != 1;
    use_output_lut = HaveOutputLut_p || gamma != 1;
    // A table that is there is used: those of the last gamma go.
    if (use_input_lut) {
        make_input_tables(gamma);
    } else {
        free_table(input_lut_8);
        free_table(input_lut_12);
    }
    if (use_output_lut) {
        make_output_tables(gamma);
    } else {
        free_table(output_lut_8);
        free_table(output_lut_16);
    }
    gamma_value = gamma;
    tables_made = true;
}

void free_luts() {
    free_table(input_lut_8);
    free_table(input_lut_12);
    free_table(output_lut_8);
    free_table(output_lut_16);
    free_table(float_input_lut);
    free_table(raw_output_lut);
    raw_lut_len = 0;
    use_input_lut = use_output_lut = 0;
    tables_made = false;
}

void set_lut_paths(const char* input, const char* output) {
    if (!input) input = "";
    if (!output) output = "";
    if (std::strcmp(input, input_path) == 0 && std::strcmp(output, output_path) == 0) return;
    free_luts();
    std::snprintf(input_path, sizeof(input_path), "%s", input);
    std::snprintf(output_path, sizeof(output_path), "%s", output);
    HaveInputLut_p = *input_path != 0;
    HaveOutputLut_p = *output_path != 0;
}

void note_lut_choice(LutChoice* out) {
    static_assert(sizeof(out->input) == path_size && sizeof(out->output) == path_size);
    std::memcpy(out->input, input_path, sizeof(input_path));
    std::memcpy(out->output, output_path, sizeof(output_path));
    out->gamma = gamma_value;
}

void use_lut_choice(const LutChoice& choice) {
    set_lut_paths(choice.input, choice.output);
    set_gamma(choice.gamma);
}

void reset_luts() {
    free_luts();
    set_lut_paths(nullptr, nullptr);
    gamma_value = 1;
}

double clamped_pow(double x, double e) {
    if (x <= 0) return 0;
    const double y = std::pow(x, e);
    return y < x / 16 ? x / 16 : y > 16 * x ? 16 * x : y;
}

void list_luts(GlobalsV4Record* record, const char* input_lut, const char* output_lut, char* entries[]) {
    for (int i = 0; i < MAX_LUTS; ++i) {
        free_table(record->lut_in_paths[i]);
        free_table(record->lut_out_paths[i]);
    }
    record->n_luts = 0;
    record->lut_in_paths[0] = path_copy(input_lut);
    record->lut_out_paths[0] = path_copy(output_lut);
    entries[0] = safe_strdup("LUT: Linear");
    record->n_luts = 1;

    char directory[path_size], pattern[2 * path_size];
    std::snprintf(directory, sizeof(directory), "%s/luts", get_config_dir());
    quote_for_glob(pattern, sizeof(pattern) - 16, directory);
    std::strcat(pattern, "/*.lut");
    found_files = {};
    const bool any = glob(pattern, GLOB_NOSORT, nullptr, &found_files) == 0;
    push_abort_cleanup(free_found_files, nullptr);
    const int n = any ? static_cast<int>(found_files.gl_pathc) : 0;
    if (n > 1) std::qsort(found_files.gl_pathv, found_files.gl_pathc, sizeof(char*), compare_paths);
    int i = 0;
    while (i < n && record->n_luts < MAX_LUTS) {
        const char* const path = found_files.gl_pathv[i++];
        const char* const name = path + std::strlen(directory) + 1;
        const char* const in_mark = std::strstr(name, "-in.lut");
        if (!in_mark) {
            if (std::strstr(name, "-out.lut"))
                V_error(level_warning, "LUT file %s has no matching input LUT. Ignoring\n", path);
            else
                V_error(level_warning,
                        "Ignoring LUT file %s. LUTs should be named lutname-in.lut or lut-name-out.lut\n", path);
            continue;
        }
        char stem[256], expected[2 * path_size];
        std::snprintf(stem, sizeof(stem), "%.*s", static_cast<int>(in_mark - name), name);
        std::snprintf(expected, sizeof(expected), "%s/%s-out.lut", directory, stem);
        if (i >= n || std::strcmp(found_files.gl_pathv[i], expected) != 0) {
            V_error(level_warning, "LUT file %s/%s-in.lut has no matching output LUT. Ignoring\n", directory, stem);
            continue;
        }
        char shown[sizeof(stem)], label[sizeof(stem) + 8];
        param_display_name(shown, sizeof(shown), stem);
        std::snprintf(label, sizeof(label), "LUT: %s", shown);
        record->lut_in_paths[record->n_luts] = safe_strdup(path);
        record->lut_out_paths[record->n_luts] = safe_strdup(found_files.gl_pathv[i++]);
        entries[record->n_luts] = safe_strdup(label);
        ++record->n_luts;
    }
    pop_abort_cleanup();
    free_found_files(nullptr);
}

}  // namespace velloran
