// Renders a text again whenever it changes. Everything but the text stays: the pictures that were read are kept.
#include "hosts/render/commands.h"
#include "hosts/render/console.h"
#include "hosts/render/failure.h"
#include "hosts/render/inputs.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace render {
namespace {

struct Stamp {
    ino_t file = 0;
    off_t size = -1;
    timespec time = {};
    bool operator==(const Stamp& other) const {
        return file == other.file && size == other.size && time.tv_sec == other.time.tv_sec &&
               time.tv_nsec == other.time.tv_nsec;
    }
};

Stamp stamp_of(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) return {};
    return {status.st_ino, status.st_size, status.st_mtim};
}

// The text's path without the name of an effect behind it.
std::string text_path(const std::string& effect) {
    struct stat status = {};
    if (stat(effect.c_str(), &status) == 0) return effect;
    return effect.substr(0, effect.rfind(':'));
}

// Editors write in place, or write beside and rename: the directory sees both. A change that is noticed while the
// editor still writes is followed by another one.
void wait_for_change(int events, const std::string& path, const Stamp& before) {
    while (stamp_of(path) == before || stamp_of(path).size < 0) {
        pollfd wait = {events, POLLIN, 0};
        poll(&wait, 1, 1000);  // file systems that tell nothing are looked at
        alignas(inotify_event) char unread[4096];
        while (read(events, unread, sizeof(unread)) > 0) continue;
    }
}

}  // namespace

int watch_command(RenderOptions options) {
    if (options.effect.empty()) throw Failure("a text is needed, whose changes are rendered");
    const std::string path = text_path(options.effect);
    const size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    if (stamp_of(path).size < 0) throw Failure(path + ": " + std::strerror(ENOENT));
    const int events = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (events < 0 || inotify_add_watch(events, directory.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE) < 0)
        throw Failure(directory + ": cannot be watched: " + std::strerror(errno));
    options.fast = true;
    keep_pictures();
    while (true) {
        const Stamp rendered = stamp_of(path);
        const auto start = std::chrono::steady_clock::now();
        try {
            render_command(options);
            const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
            note("rendered in " + std::to_string(static_cast<long>(taken.count())) + " ms, watching " + path);
        } catch (const Failure& failure) {
            fail(failure.what());
            note("watching " + path);
        }
        wait_for_change(events, path, rendered);
    }
}

}  // namespace render
