// Why a command ends, and with which exit status.
#pragma once

#include <stdexcept>
#include <string>

namespace render {

enum ExitStatus : int { exit_done = 0, exit_some_failed = 1, exit_nothing_done = 2, exit_no_memory = 33 };

struct Failure : std::runtime_error {
    explicit Failure(const std::string& text, int code = exit_nothing_done) : std::runtime_error(text), status(code) {}
    int status;
};

}  // namespace render
