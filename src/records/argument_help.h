// The record of what an argument of a function means, for those who write texts. Fields only.
#pragma once

namespace velloran {

// Empty texts: there is nothing to say.
struct ArgumentHelp {
    const char* functions;  // that it is about, with blanks between; empty: any
    const char* arguments;  // by name, with blanks between
    const char* meaning;
    const char* unit;
    const char* range;    // what makes sense or is held to
    const char* choices;  // of an argument that counts kinds: each number and what it stands for, with commas between
};

}  // namespace velloran
