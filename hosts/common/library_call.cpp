#include "hosts/common/library_call.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace spark_host {
namespace {

std::atomic<std::thread::id> inside{};
int depth = 0;  // of the thread inside

}  // namespace

LibraryCall::LibraryCall() {
    const std::thread::id self = std::this_thread::get_id();
    std::thread::id nobody{};
    if (inside.load() != self && !inside.compare_exchange_strong(nobody, self)) {
        std::fputs("two threads call plug-ins at once\n", stderr);
        std::abort();
    }
    depth++;
}

LibraryCall::~LibraryCall() {
    if (--depth == 0) inside.store(std::thread::id());
}

}  // namespace spark_host
