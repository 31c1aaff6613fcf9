// Files of text, whole.
#pragma once

#include <cstdio>

namespace velloran {

// What is left of an open file, with a terminating zero; the file is closed. Freed with safe_free. Exhausted memory
// takes the fatal abort.
char* read_and_close_text(FILE* file);

}  // namespace velloran
