#include "genotype/all_defs.h"

#include "support/errors.h"
#include "support/files.h"
#include "support/memory.h"
#include "texts/characters.h"
#include "texts/if_filter.h"
#include "texts/text_reader.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>

namespace velloran {

const char** all_defs_table = nullptr;
int all_defs_table_length = 0;

namespace {

constexpr long max_file_bytes = 64L * 1024 * 1024;

char* all_defs_text = nullptr;

// Size in bytes, -1 after a message.
long file_size(const char* file, int number) {
    struct stat info;
    if (stat(file, &info) != 0 || info.st_size > max_file_bytes) {
        V_error(level_error, "Can't stat file %d", number);
        return -1;
    }
    log_print("%s length is %d\n", file, static_cast<int>(info.st_size));
    return static_cast<long>(info.st_size);
}

// Reads bytes of a file and ends them with a zero; their number, -1 after a message.
long read_bytes(const char* file, char* text, long bytes) {
    FILE* stream = safe_fopen(file, "r", file_report_failure);
    if (!stream) return -1;
    const long got = static_cast<long>(std::fread(text, 1, static_cast<size_t>(bytes), stream));
    const bool failed = std::ferror(stream) != 0;
    safe_fclose(stream);
    text[got] = 0;
    if (failed) {
        V_error(level_error, "Error reading from %s (trying to read %d bytes, got err %d)\n", file,
                static_cast<int>(bytes), -1);
        V_error(level_error, "Can't read from file");
        return -1;
    }
    if (got == 0 && bytes > 0) {
        V_error(level_error, "Error reading from %s (trying to read %d bytes, got %d)\n", file, static_cast<int>(bytes),
                0);
        V_error(level_error, "Can't read enough data from file");
        return -1;
    }
    if (got < bytes) {
        V_error(level_warning, "Warning: stat on %s reports %d bytes, actually read %d.\n", file,
                static_cast<int>(bytes), static_cast<int>(got));
    }
    return got;
}

const char* behind_space(const char* p) {
    while (is_space(*p)) ++p;
    return p;
}

const char* behind_word(const char* p) {
    while (*p && !is_space(*p) && *p != '(' && *p != ')') ++p;
    return p;
}

// Counts the definitions; with a table, fills it.
int list_defs(const char** table) {
    int n = 0;
    for (const char* p = all_defs_text; (p = std::strstr(p, "(def")) != nullptr; ++n) {
        p = behind_space(behind_word(p + 1));
        if (table) table[n] = p;
    }
    return n;
}

}  // namespace

void free_all_defs() {
    safe_free(all_defs_text);
    safe_free(all_defs_table);
    all_defs_text = nullptr;
    all_defs_table = nullptr;
    all_defs_table_length = 0;
}

bool load_all_defs(const char* file1, const char* file2) {
    free_all_defs();
    const char* const files[2] = {file1, file2};
    long sizes[2] = {0, 0}, total = 1;
    for (int i = 0; i < 2 && files[i]; ++i) {
        if ((sizes[i] = file_size(files[i], i + 1)) < 0) return false;
        total += sizes[i] + 1;
    }
    all_defs_text = static_cast<char*>(safe_calloc(static_cast<size_t>(total)));
    char* end = all_defs_text;
    for (int i = 0; i < 2 && files[i]; ++i) {
        if (read_bytes(files[i], end, sizes[i]) < 0) {
            free_all_defs();
            return false;
        }
        remove_comments_and_false_if_statements(end, files[i]);
        end += std::strlen(end);
        *end++ = '\n';
        *end = 0;
    }
    all_defs_table_length = list_defs(nullptr);
    all_defs_table =
        static_cast<const char**>(safe_calloc(sizeof(char*) * static_cast<size_t>(all_defs_table_length + 1)));
    list_defs(all_defs_table);
    log_print("all_defs_table_length is %d \n", all_defs_table_length);
    return true;
}

int goto_def(const char* name) {
    if (!all_defs_table) {
        V_error(level_error, "goto_def: no all_defs_table! \n");
        return -1;
    }
    for (int i = 0; i < all_defs_table_length; ++i) {
        const char* known = all_defs_table[i];
        const char* end = behind_word(known);
        const size_t length = static_cast<size_t>(end - known);
        if (std::strlen(name) != length || std::strncmp(name, known, length) != 0) continue;
        open_reading_from_string(all_defs_text);
        set_reading_from_position(end - all_defs_text);
        return 0;
    }
    return -1;
}

}  // namespace velloran
