// What fuzz targets share: a library that keeps quiet, entry through the fatal abort, and input as a file.
#pragma once

#include "support/abort.h"
#include "support/errors.h"
#include "support/files.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

// What must always hold. Ends the program so that the fuzzer keeps the input.
#define FUZZ_CHECK(condition)                                                    \
    do {                                                                         \
        if (!(condition)) {                                                      \
            std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                        \
        }                                                                        \
    } while (0)

inline void fuzz_begin() {
    velloran::spark_set_config_dir("/nonexistent");
    velloran::set_error_printer([](int, const char*) {});
    velloran::set_log_printer([](const char*) {});
}

// Runs body as an entry point would; an abort ends it. Nothing in body may own memory across a call that may abort.
template <class Body>
bool fuzz_call(Body body) {
    velloran::AbortTarget outer;
    velloran::arm_abort(outer);
    if (setjmp(velloran::_V_jmpbuf)) {
        velloran::disarm_abort(outer);
        return false;
    }
    body();
    velloran::disarm_abort(outer);
    return true;
}

// The input as a file with a path.
class FuzzFile {
public:
    FuzzFile(const uint8_t* data, size_t size) : fd_(memfd_create("fuzz", 0)) {
        FUZZ_CHECK(fd_ >= 0);
        FUZZ_CHECK(size == 0 || write(fd_, data, size) == static_cast<ssize_t>(size));
        path_ = "/proc/self/fd/" + std::to_string(fd_);
    }
    ~FuzzFile() { close(fd_); }
    FuzzFile(const FuzzFile&) = delete;
    FuzzFile& operator=(const FuzzFile&) = delete;
    const char* path() const { return path_.c_str(); }

private:
    int fd_;
    std::string path_;
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
