// Opening and closing files with the library's messages, and the configuration directory.
#pragma once

#include <cstdio>

namespace velloran {

enum : int { file_abort_on_failure = 1, file_report_failure = 2 };

// fopen; a file opened for writing is made readable and writable by all. A failure is reported if a flag asks for it
// and gives null, or takes the fatal abort with file_abort_on_failure.
FILE* safe_fopen(const char* path, const char* mode, int flags);
// Ignores null. Reports a failed close at level 8. The result is fclose's.
int safe_fclose(FILE* stream);

// Opens the log file name to write (mode "w") or append ("a"): in the configuration directory, for all to read and
// write; where that cannot be written, in the user's state directory, for the user alone. Null if neither can. Its path
// goes into path.
constexpr int log_path_size = 640;
FILE* open_log_file(const char* name, const char* mode, char (&path)[log_path_size]);
// The path that open_log_file would take.
void log_file_path(const char* name, char (&path)[log_path_size]);

// Directory of the configuration and data files, without a trailing slash. At most 298 characters are kept.
void spark_set_config_dir(const char* directory);
const char* get_config_dir();
inline const char* spark_get_config_dir() { return get_config_dir(); }

}  // namespace velloran
