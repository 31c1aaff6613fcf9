#include "operators/image_files/image_file.h"

#include "support/errors.h"
#include "support/files.h"
#include "support/memory.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace velloran {

FILE* (*open_image_stream)(const char* path) = [](const char* path) {
    return safe_fopen(path, "rb", file_report_failure);
};

FILE* open_image_file(const char* path) {
    struct stat status;
    if (stat(path, &status) == 0 && !S_ISREG(status.st_mode)) {
        V_error(level_error, "Open of %s failed: not a plain file\n", path);
        return nullptr;
    }
    FILE* const file = open_image_stream(path);
    if (file) push_abort_cleanup([](void* open) { safe_fclose(static_cast<FILE*>(open)); }, file);
    return file;
}

void close_image_file(FILE* file) {
    pop_abort_cleanup();
    safe_fclose(file);
}

uint64_t bytes_left(FILE* file) {
    const off_t at = ftello(file);
    if (at < 0 || fseeko(file, 0, SEEK_END) != 0) return 0;
    const off_t end = ftello(file);
    return fseeko(file, at, SEEK_SET) == 0 && end > at ? static_cast<uint64_t>(end - at) : 0;
}

bool image_file_failed(FILE* file, const char* path) {
    if (!std::ferror(file)) return false;
    V_error(level_error, "Read of %s failed: %s\n", path, std::strerror(errno));
    return true;
}

}  // namespace velloran
