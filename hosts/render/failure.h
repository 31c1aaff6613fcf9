// Why a command ends, and with which exit status.
#pragma once

#include <stdexcept>
#include <string>

namespace render {

enum ExitStatus : int { exit_done = 0, exit_some_failed = 1, exit_nothing_done = 2, exit_no_memory = 33 };

struct Failure : std::runtime_error {
    explicit Failure(const std::string& text, int code = exit_nothing_done) : std::runtime_error(text), status(code) {}
    int status;
    // Where in a text the first error is, from 1; without a file, or with a line of 0, it has no place.
    std::string file;
    int line = 0, column = 0;
};

// Messages about memory come from many places; what they have in common are these words.
inline bool no_memory_p(const std::string& text) {
    for (const char* words :
         {"out of memory", "failed to map", "annot allocate memory", "bad allocation", "std::bad_alloc"})
        if (text.find(words) != std::string::npos) return true;
    return false;
}
inline ExitStatus status_of(const std::string& cause) {
    return no_memory_p(cause) ? exit_no_memory : exit_nothing_done;
}

}  // namespace render
