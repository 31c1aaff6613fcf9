// One reporting path for the whole library: numbered levels, a log that rotates itself, printers that a plug-in
// installs.
#pragma once

#include <cstdarg>
#include <ctime>

namespace velloran {

// Levels: 0 plain, 1 "Info", 2 "Note", 3 "Info", 4 "Note", 5 plain with a bell, 6 "Alert", 7 "Warning", 8 "Error",
// 9 "Fatal Error". Any other number counts as 7.
constexpr int level_warning = 7;
constexpr int level_error = 8;
constexpr int level_fatal = 9;

using ErrorPrinter = void (*)(int level, const char* text);
using WarningPrinter = void (*)(const char* text, int delay_milliseconds);
using LogPrinter = void (*)(const char* text);

// Formats (at most 1023 characters are kept), appends to the log, and hands the text to the error printer. Any task may
// call; from a worker task the host's message line is left alone.
void V_error(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// As V_error, but not into the log: for the stub's own messages.
void print_error(int level, const char* format, va_list arguments);

// Appends a line "TIME: TEXT" to the log file v_error_log.txt (open_log_file). Beyond 20480 bytes the file is first
// renamed to v_error_log.txt.bak. A log that cannot be opened is no error.
void log_error(const char* text);

// Logs and shows on the host's message line. Any task may call.
void log_warning(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The plain logging print: to standard error as it stands and into the log, no label.
void log_print(const char* format, ...) __attribute__((format(printf, 1, 2)));

// True after more than 5 messages without a pause of 60 seconds; a message after such a pause begins a new count.
bool suppress_errors_p();

// Install a printer; null restores the default. The result is the one before. Host's thread only.
ErrorPrinter set_error_printer(ErrorPrinter printer);
WarningPrinter set_warning_printer(WarningPrinter printer);
LogPrinter set_log_printer(LogPrinter printer);  // of log_print; null: standard error

// The printers of a running plug-in: standard error, and the host's message line or sparkError for level 9.
void spark_error_printer(int level, const char* text);
void spark_warning_printer(const char* text, int delay_milliseconds);

// A fatal error of a worker task waits here, for the host's functions are its own thread's. Shown when the fork's abort
// is raised again, or at the end of the call.
void show_pending_host_error();

// While a frame is evaluated errors are not shown. The first of a call is kept: if the call ends in a fatal abort it is
// why, and is shown once the abort has landed. Host's thread only.
void show_cause_of_abort();
void drop_cause_of_abort();

// "Label: text" as the printers form it, with the bell where the level has one.
void format_message(char* out, int size, int level, const char* text);

// sparkError(text) if the text is not empty, then fatal_abort(1).
void fatal_message(const char* text);

// Says whether a frame is being evaluated; while it is, no delayed message is shown. Set by the entry points.
extern int evaluating_frame_p;

// Shows text on the host's message line for so long, then lets it be as before.
void show_message_delay(int milliseconds, const char* text);

// Time of day for the log, and seconds for the pauses between messages; tests replace them.
extern time_t (*log_clock)();
extern double (*message_clock)();

}  // namespace velloran
