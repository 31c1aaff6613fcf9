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

// Directory of the configuration and data files, without a trailing slash. At most 298 characters are kept.
void spark_set_config_dir(const char* directory);
const char* get_config_dir();
inline const char* spark_get_config_dir() { return get_config_dir(); }

}  // namespace velloran
