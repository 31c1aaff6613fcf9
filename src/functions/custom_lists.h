// The choices that data files define, for params that show them.
#pragma once

#include <cstdint>

namespace velloran {

struct NameList {
    const char* const* names;  // as people see them; they live until the last plug-in goes
    int count;
};

// The list that a param's kind_flags ask for, its file read if nobody has yet; empty if they ask for none that there
// is. Host's thread.
NameList custom_list(uint8_t kind_flags);

}  // namespace velloran
