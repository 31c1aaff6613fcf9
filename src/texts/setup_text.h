// Reading and writing the words and numbers of setup files, the same in every locale. A reader takes what fscanf would.
#pragma once

#include <cstdio>

namespace velloran {

// With as few digits as bring the same number back.
void write_number(FILE* file, float value);

// Skip white space, then a number; false at anything else, and what could not begin a number is left unread.
bool read_int(FILE* file, int* out);
bool read_double(FILE* file, double* out);  // finite numbers only
// Skips white space; the next character, or EOF.
int read_visible(FILE* file);
// Skips blanks and tabs, then takes the rest of the line, at most size - 1 characters, without its end.
bool read_rest_of_line(FILE* file, char* out, int size);

}  // namespace velloran
