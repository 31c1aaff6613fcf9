#include "hosts/bridge/turn.h"

#include "hosts/bridge/bridge.h"
#include "hosts/render/console.h"

#include <dlfcn.h>
#include <link.h>
#include <pthread.h>

#include <atomic>

namespace bridge {
namespace {

std::recursive_mutex turn;
std::mutex words;  // may be said by any task
std::vector<std::string>* listening = nullptr;
std::atomic<bool> forked{false};

// Plug-ins look for the host's functions among what the program sees. Whoever loaded this library may have kept it to
// itself, so it is put there, under its own name; it stays until the program ends.
void make_visible() {
    Dl_info info = {};
    link_map* own = nullptr;
    static const char here = 0;
    if (!dladdr1(&here, &info, reinterpret_cast<void**>(&own), RTLD_DL_LINKMAP) || !own ||
        !dlopen(own->l_name, RTLD_NOW | RTLD_GLOBAL | RTLD_NOLOAD))
        throw Error("the bridge cannot be seen by plug-ins");
    render::set_console_listener([](int level, const std::string& text) {
        const std::lock_guard lock(words);
        if (level > 0 && listening) listening->push_back(text);
    });
    pthread_atfork(nullptr, nullptr, [] { forked = true; });
}

}  // namespace

Turn::Turn(std::vector<std::string>* warnings) {
    if (forked)
        throw Error(
            "this process was forked off one that uses Velloran, which works in that one alone: start processes "
            "anew (with Python: multiprocessing's start method 'spawn')");
    lock_ = std::unique_lock(turn);
    static const bool ready = (make_visible(), true);
    (void)ready;
    const std::lock_guard lock(words);
    before_ = listening;
    listening = warnings;
}

Turn::~Turn() {
    const std::lock_guard lock(words);
    listening = before_;
}

}  // namespace bridge
