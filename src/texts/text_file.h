// Files of text, whole.
#pragma once

#include <cstdio>

namespace velloran {

// What is left of an open file, with a terminating zero; the file is closed. Freed with safe_free. Exhausted memory
// takes the fatal abort.
char* read_and_close_text(FILE* file);

// The same of a file of data, or null where it cannot be opened, after the message "Can't open file", which by begins,
// and the system's reason on standard error, which begins with what.
char* read_data_text(const char* path, const char* by, const char* what);

}  // namespace velloran
