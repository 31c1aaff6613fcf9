// Messages of any task, caught instead of shown while a scope lives; nothing is written to a log.
#pragma once

#include "support/errors.h"
#include "support/files.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

namespace velloran_tests {

class Messages {
public:
    Messages() {
        velloran::spark_set_config_dir("/nowhere");
        clear();
        outer_ = velloran::set_error_printer([](int level, const char* text) {
            const std::lock_guard lock(mutex());
            caught().push_back(std::to_string(level) + ' ' + text);
        });
    }
    ~Messages() { velloran::set_error_printer(outer_); }
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;

    // How often a message came, given as "LEVEL TEXT".
    int count(const std::string& message) const {
        const std::lock_guard lock(mutex());
        return static_cast<int>(std::count(caught().begin(), caught().end(), message));
    }
    int count() const {
        const std::lock_guard lock(mutex());
        return static_cast<int>(caught().size());
    }
    void clear() {
        const std::lock_guard lock(mutex());
        caught().clear();
    }

private:
    static std::vector<std::string>& caught() {
        static std::vector<std::string> messages;
        return messages;
    }
    static std::mutex& mutex() {
        static std::mutex m;
        return m;
    }
    velloran::ErrorPrinter outer_;
};

}  // namespace velloran_tests
