// What a frame that was watched told of its effect, and how it is shown.
#pragma once

#include "stubs/describe.h"

#include <cstdint>
#include <string>
#include <vector>

namespace render {

struct ExplainedArgument {
    std::string name;
    int row = 0;
    bool evaluated = true;
};

struct ExplainedNode {
    int row = 0;
    std::string name, function, param;  // empty: none
    int elements = 1;
    std::vector<ExplainedArgument> arguments;
    int constant = 0, stands_for = -1, how = SPARK_NODE_UNUSED, pass = -1;
    bool has_value = false;
    int value[4] = {0, 0, 0, 0};  // 4096 is 1
    double seconds = 0;
    unsigned long planes = 0, lines = 0, work = 0, shared = 0;  // bytes
    std::string reason;                                         // why it is not evaluated
};

struct Explanation {
    std::string effect;  // plug-in and name
    int width = 0, height = 0, frame = 0;
    bool pixel = false;
    int x = 0, y = 0;         // from the lower left
    int made[3] = {0, 0, 0};  // of the frame at the pixel, 12 bits
    double seconds = 0;
    unsigned long plane_bytes = 0;
    int planes = 0;
    std::vector<ExplainedNode> nodes;  // dest first, each before those that it is written with
};

// Sets the reasons of all nodes that are not evaluated.
void find_reasons(Explanation& explanation);

std::string explanation_text(const Explanation& explanation);
std::string explanation_json(const Explanation& explanation);
// For Graphviz.
std::string explanation_drawing(const Explanation& explanation);

}  // namespace render
