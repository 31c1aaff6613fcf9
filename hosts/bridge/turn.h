// The one place in the process where plug-ins are called: a thread waits here for its turn.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace bridge {

// The thread may have it already. Throws Error in a process that was forked off one that had rendered: the threads
// that would share the work are not in it.
class Turn {
public:
    // What is said meanwhile goes to warnings; null: nowhere.
    explicit Turn(std::vector<std::string>* warnings = nullptr);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    std::unique_lock<std::recursive_mutex> lock_;
    std::vector<std::string>* before_;
};

}  // namespace bridge
