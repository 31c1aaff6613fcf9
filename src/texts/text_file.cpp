#include "texts/text_file.h"

#include "support/errors.h"
#include "support/files.h"
#include "support/memory.h"

#include <cerrno>

namespace velloran {

char* read_and_close_text(FILE* file) {
    push_abort_cleanup([](void* open) { safe_fclose(static_cast<FILE*>(open)); }, file);
    size_t size = 0, room = 1 << 16;
    auto* text = static_cast<char*>(safe_malloc(room));
    while (const size_t n = std::fread(text + size, 1, room - size - 1, file)) {
        size += n;
        if (size + 1 < room) continue;
        room *= 2;
        text = static_cast<char*>(safe_realloc(text, room));
    }
    text[size] = 0;
    pop_abort_cleanup();
    safe_fclose(file);
    return text;
}

char* read_data_text(const char* path, const char* by, const char* what) {
    if (FILE* const file = safe_fopen(path, "r", 0)) return read_and_close_text(file);
    const int cause = errno;
    V_error(level_error, "%sCan't open file %s\n", by, path);
    errno = cause;
    std::perror(what);
    return nullptr;
}

}  // namespace velloran
