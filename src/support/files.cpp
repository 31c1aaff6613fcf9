#include "support/files.h"

#include "support/abort.h"
#include "support/errors.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace velloran {
namespace {

int open_file_count = 0;
char config_dir[299] = "/usr/discreet/sparks/velloran_4";

}  // namespace

FILE* safe_fopen(const char* path, const char* mode, int flags) {
    FILE* stream = std::fopen(path, mode);
    if (stream) {
        ++open_file_count;
        if (mode[0] == 'w' || mode[0] == 'a') chmod(path, 0666);
        return stream;
    }
    if (flags & (file_report_failure | file_abort_on_failure)) {
        if (mode[0] == 'w')
            V_error(level_error, "Write of %s failed at open: %s\n", path, std::strerror(errno));
        else
            V_error(level_error, "Open of %s failed: %s\n", path, std::strerror(errno));
        if (flags & file_abort_on_failure) fatal_abort(1);
    }
    return nullptr;
}

int safe_fclose(FILE* stream) {
    if (!stream) return 0;
    const int result = std::fclose(stream);
    if (result != 0) {
        V_error(level_error, "Close file failed.");
        std::perror("Reason");
    }
    --open_file_count;
    return result;
}

void spark_set_config_dir(const char* directory) {
    std::strncpy(config_dir, directory ? directory : "", sizeof(config_dir) - 1);
    config_dir[sizeof(config_dir) - 1] = 0;
    size_t length = std::strlen(config_dir);
    while (length > 1 && config_dir[length - 1] == '/') config_dir[--length] = 0;
}

const char* get_config_dir() { return config_dir; }

}  // namespace velloran
