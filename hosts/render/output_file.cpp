#include "hosts/render/output_file.h"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

namespace render {
namespace {

// Paths of unfinished files, where a signal handler can read them.
struct Part {
    std::atomic<int> state{0};  // 0 free, 1 taken, 2 path set
    char path[PATH_MAX];
};
Part parts[8];

Part* take_part(const std::string& path) {
    if (path.size() >= sizeof(parts[0].path)) return nullptr;
    for (Part& part : parts) {
        int free = 0;
        if (!part.state.compare_exchange_strong(free, 1)) continue;
        std::memcpy(part.path, path.c_str(), path.size() + 1);
        part.state = 2;
        return &part;
    }
    return nullptr;
}

void on_interruption(int signal) {
    remove_parts();
    _exit(128 + signal);
}

bool write_all(int file, const std::vector<unsigned char>& bytes) {
    for (size_t at = 0; at < bytes.size();) {
        const ssize_t n = write(file, bytes.data() + at, bytes.size() - at);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        at += static_cast<size_t>(n);
    }
    return true;
}

std::string directory_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

bool write_whole_file(const std::string& path, const std::vector<unsigned char>& bytes, std::string* error) {
    const size_t slash = path.rfind('/');
    const size_t name = slash == std::string::npos ? 0 : slash + 1;
    const std::string temporary = path.substr(0, name) + "." + path.substr(name) + ".part-" + std::to_string(getpid());
    Part* const part = take_part(temporary);
    errno = ENAMETOOLONG;
    const int file = part ? open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666) : -1;
    bool done = file >= 0 && write_all(file, bytes);
    int cause = errno;
    // Some file systems report a full disk only here.
    if (file >= 0 && close(file) != 0 && done) {
        done = false;
        cause = errno;
    }
    if (done && rename(temporary.c_str(), path.c_str()) != 0) {
        done = false;
        cause = errno;
    }
    if (!done && file >= 0) unlink(temporary.c_str());
    if (part) part->state = 0;
    if (!done) *error = path + ": " + std::strerror(cause);
    return done;
}

void remove_parts() {
    for (Part& part : parts)
        if (part.state == 2) unlink(part.path);
}

void remove_parts_on_interruption() {
    struct sigaction action = {};
    action.sa_handler = on_interruption;
    sigfillset(&action.sa_mask);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before = {};
        // A program started in the background with nohup stays deaf.
        if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) continue;
        sigaction(signal, &action, nullptr);
    }
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
}

std::string unwritable_directory(const std::string& path) {
    const std::string directory = directory_of(path);
    struct stat status = {};
    if (stat(directory.c_str(), &status) != 0) return directory + ": " + std::strerror(errno);
    if (!S_ISDIR(status.st_mode)) return directory + ": " + std::strerror(ENOTDIR);
    if (access(directory.c_str(), W_OK | X_OK) != 0) return directory + ": " + std::strerror(errno);
    if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return path + ": " + std::strerror(EISDIR);
    return "";
}

}  // namespace render
