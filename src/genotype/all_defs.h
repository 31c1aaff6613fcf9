// The definitions that #ref can lead to: one or two whole files, kept as one text. Host's thread only.
#pragma once

namespace velloran {

extern const char** all_defs_table;  // the name behind each "(def", in order, inside the text
extern int all_defs_table_length;

// Reads file1, and file2 unless it is null, with conditionals taken out, in place of what was loaded before. False
// after a message if one cannot be read; nothing is loaded then.
bool load_all_defs(const char* file1, const char* file2);
void free_all_defs();

// Moves the text reader to just behind that name. 0, or -1 if no such definition is loaded. The caller saves and
// restores the reader.
int goto_def(const char* name);

}  // namespace velloran
