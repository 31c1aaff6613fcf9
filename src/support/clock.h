// A clock that only goes forward, for pauses and for how long something took.
#pragma once

#include <chrono>

namespace velloran {

inline double steady_seconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace velloran
