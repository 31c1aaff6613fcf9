#include "fused/code_pages.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace velloran {
namespace {

bool write_all(int file, const uint8_t* at, size_t bytes) {
    while (bytes) {
        const ssize_t n = write(file, at, bytes);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        at += n;
        bytes -= static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

const void* map_code(const void* code, size_t bytes) {
    const int file = memfd_create("velloran", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (file < 0) return nullptr;
    void* pages = MAP_FAILED;
    // Sealed, so that nobody who finds the file can change what is executed.
    if (write_all(file, static_cast<const uint8_t*>(code), bytes) &&
        fcntl(file, F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0)
        pages = mmap(nullptr, bytes, PROT_READ | PROT_EXEC, MAP_PRIVATE, file, 0);
    close(file);
    return pages == MAP_FAILED ? nullptr : pages;
}

void unmap_code(const void* code, size_t bytes) { munmap(const_cast<void*>(code), bytes); }

}  // namespace velloran
