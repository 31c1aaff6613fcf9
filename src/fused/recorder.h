// While a recorder is in hand, calls of row kernels and copies of lines are written down as values instead of being
// made: a pixel function that is run on lines of one sample then tells what it computes. Lines are known by their
// addresses. Host's thread only.
#pragma once

#include "fused/value_graph.h"

#include <cstdint>
#include <unordered_map>

namespace velloran {

class Recorder {
public:
    explicit Recorder(ValueGraph& value_graph) : graph(value_graph) {}

    ValueGraph& graph;
    std::unordered_map<const int32_t*, int> values;  // of lines
    bool refused = false;                            // a function did something that has no values

    // The value of a line, of a constant one the number that stands there.
    int value_of(const int32_t* line, bool constant);
};

// Null: pixel functions run.
extern thread_local Recorder* recorder;

}  // namespace velloran
