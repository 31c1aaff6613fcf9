#include "support/files.h"

#include "support/abort.h"
#include "support/errors.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace velloran {
namespace {

int open_file_count = 0;
char config_dir[299] = "/usr/discreet/sparks/velloran_4";

// "velloran" in the user's state directory, made where it is not there. False if there is none.
bool state_directory(char* directory, size_t size) {
    const char* const state = std::getenv("XDG_STATE_HOME");
    const char* const home = std::getenv("HOME");
    char base[512];
    if (state && *state == '/')
        std::snprintf(base, sizeof(base), "%s", state);
    else if (home && *home == '/')
        std::snprintf(base, sizeof(base), "%s/.local/state", home);
    else
        return false;
    std::snprintf(directory, size, "%s/velloran", base);
    for (char* slash = directory + 1; (slash = std::strchr(slash, '/')); ++slash) {
        *slash = 0;
        mkdir(directory, 0700);
        *slash = '/';
    }
    mkdir(directory, 0700);
    return access(directory, W_OK) == 0;
}

// True if the log is the user's own.
bool find_log_directory(char* directory, size_t size) {
    const bool own = access(config_dir, W_OK | X_OK) != 0 && state_directory(directory, size);
    if (!own) std::snprintf(directory, size, "%s", config_dir);
    return own;
}

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

void log_file_path(const char* name, char (&path)[log_path_size]) {
    char directory[log_path_size - 64];
    find_log_directory(directory, sizeof(directory));
    std::snprintf(path, sizeof(path), "%s/%s", directory, name);
}

FILE* open_log_file(const char* name, const char* mode, char (&path)[log_path_size]) {
    char directory[log_path_size - 64];
    const bool own = find_log_directory(directory, sizeof(directory));
    std::snprintf(path, sizeof(path), "%s/%s", directory, name);
    const mode_t rights = own ? 0600 : 0666;
    const int file = open(path, O_WRONLY | O_CREAT | O_CLOEXEC | (*mode == 'a' ? O_APPEND : O_TRUNC), rights);
    if (file < 0) return nullptr;
    fchmod(file, rights);  // the user's mask does not count
    FILE* const stream = fdopen(file, mode);
    if (!stream) close(file);
    return stream;
}

void spark_set_config_dir(const char* directory) {
    std::strncpy(config_dir, directory ? directory : "", sizeof(config_dir) - 1);
    config_dir[sizeof(config_dir) - 1] = 0;
    size_t length = std::strlen(config_dir);
    while (length > 1 && config_dir[length - 1] == '/') config_dir[--length] = 0;
}

const char* get_config_dir() { return config_dir; }

}  // namespace velloran
