// The records of all modules, written when the library is built.
#pragma once

#include <vector>

namespace frei0r {

struct Row {
    const char* slug;
    const char* json;  // a Module
};

const std::vector<Row>& table();

}  // namespace frei0r
