#include "hosts/render/output_file.h"

#include "hosts/render/console.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace render {
namespace {

constexpr const char* part_start = ".velloran.part-";

// Paths of unfinished files, where a signal handler can read them.
struct Part {
    std::atomic<int> state{0};  // 0 free, 1 taken, 2 path set
    char path[PATH_MAX];
};
Part parts[48];
std::atomic<bool> interrupted{false};

int take_part(const std::string& path) {
    if (path.size() >= sizeof(parts[0].path)) return -1;
    for (size_t i = 0; i < std::size(parts); i++) {
        int free = 0;
        if (!parts[i].state.compare_exchange_strong(free, 1)) continue;
        std::memcpy(parts[i].path, path.c_str(), path.size() + 1);
        parts[i].state = 2;
        return static_cast<int>(i);
    }
    return -1;
}

void free_part(int slot) {
    if (slot >= 0) parts[slot].state = 0;
}

// The machine's name as a part of a file's name.
std::string machine_name() {
    char name[HOST_NAME_MAX + 1] = "";
    gethostname(name, sizeof(name) - 1);
    std::string machine = name;
    for (char& c : machine)
        if (c == '/' || c == '-') c = '_';
    return machine;
}

void on_interruption(int signal) {
    interrupted = true;
    remove_parts();
    json_end_in_handler(128 + signal);
    _exit(128 + signal);
}

bool write_all(int file, std::span<const unsigned char> bytes) {
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

PartFile::~PartFile() { drop(); }

bool PartFile::open(const std::string& path, std::string* error) {
    static std::atomic<unsigned> made{0};
    drop();
    path_ = path;
    const std::string start =
        directory_of(path) + "/" + part_start + machine_name() + "-" + std::to_string(getpid()) + "-";
    int cause = ENAMETOOLONG;
    // A file of an earlier process of the same number may lie there still.
    for (int tries = 0; tries < 100 && file_ < 0; tries++) {
        const std::string part = start + std::to_string(made++);
        slot_ = take_part(part);
        if (slot_ < 0) break;
        file_ = ::open(part.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        cause = errno;
        if (file_ < 0) {
            free_part(slot_);
            slot_ = -1;
            if (cause != EEXIST) break;
        }
    }
    if (file_ < 0) {
        *error = path + ": " + std::strerror(cause);
        return false;
    }
    // Made after the others were removed, while the program still had a moment to live.
    if (interrupted) {
        drop();
        *error = path + ": " + std::strerror(EINTR);
        return false;
    }
    flock(file_, LOCK_EX | LOCK_NB);  // says that its process lives, where process numbers are not shared
    return true;
}

bool PartFile::commit(std::string* error) {
    if (file_ < 0) return false;
    bool done = fsync(file_) == 0 || errno == EINVAL || errno == EROFS;  // not every file system has it
    int cause = errno;
    // Some file systems report a full disk only here.
    if (close(file_) != 0 && done) {
        done = false;
        cause = errno;
    }
    file_ = -1;
    if (done && rename(parts[slot_].path, path_.c_str()) != 0) {
        done = false;
        cause = errno;
    }
    if (!done) {
        unlink(parts[slot_].path);
        *error = path_ + ": " + std::strerror(cause);
    }
    free_part(slot_);
    slot_ = -1;
    return done;
}

void PartFile::drop() {
    if (file_ >= 0) close(file_);
    if (slot_ >= 0) unlink(parts[slot_].path);
    file_ = -1;
    free_part(slot_);
    slot_ = -1;
}

bool write_whole_file(const std::string& path, std::span<const unsigned char> bytes, std::string* error) {
    PartFile part;
    if (!part.open(path, error)) return false;
    if (write_all(part.descriptor(), bytes)) return part.commit(error);
    *error = path + ": " + std::strerror(errno);
    return false;
}

void sweep_parts(const std::string& path) {
    const std::string directory = directory_of(path), start = part_start + machine_name() + "-";
    DIR* const list = opendir(directory.c_str());
    if (!list) return;
    while (const dirent* const entry = readdir(list)) {
        if (std::strncmp(entry->d_name, start.c_str(), start.size()) != 0) continue;
        const long process = std::strtol(entry->d_name + start.size(), nullptr, 10);
        if (process < 1 || kill(static_cast<pid_t>(process), 0) == 0 || errno != ESRCH) continue;
        const std::string part = directory + "/" + entry->d_name;
        const int file = ::open(part.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
        if (file < 0) continue;
        if (flock(file, LOCK_EX | LOCK_NB) == 0) unlink(part.c_str());
        close(file);
    }
    closedir(list);
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
