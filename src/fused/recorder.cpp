#include "fused/recorder.h"

#include "fused/recorded_lanes.h"

namespace velloran {

thread_local Recorder* recorder = nullptr;
ValueGraph* recorded::graph_in_hand = nullptr;

int Recorder::value_of(const int32_t* line, bool constant) {
    if (constant) return graph.constant(*line);
    const auto found = values.find(line);
    if (found != values.end()) return found->second;
    refused = true;
    return graph.constant(0);
}

}  // namespace velloran
