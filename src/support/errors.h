// One reporting path for the whole library: numbered levels, a log that rotates itself, printers that a plug-in
// installs.
#pragma once

namespace velloran {

// Levels: 0 plain, 1 "Info", 2 "Note", 3 "Info", 4 "Note", 5 plain with a bell, 6 "Alert", 7 "Warning", 8 "Error",
// 9 "Fatal Error". Any other number counts as 7.
constexpr int level_warning = 7;
constexpr int level_error = 8;
constexpr int level_fatal = 9;

using ErrorPrinter = void (*)(int level, const char* text);
using WarningPrinter = void (*)(const char* text, int delay_milliseconds);

// Formats (at most 1023 characters are kept), appends to the log, and hands the text to the error printer. Any task may
// call; from a worker task the host's message line is left alone.
void V_error(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Appends a line "TIME: TEXT" to v_error_log.txt in the configuration directory. Beyond 20480 bytes the file is first
// renamed to v_error_log.txt.bak. A log that cannot be opened is no error.
void log_error(const char* text);

// Logs and shows on the host's message line. Any task may call.
void log_warning(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The plain logging print: to standard error as it stands and into the log, no label.
void log_print(const char* format, ...) __attribute__((format(printf, 1, 2)));

// True if more than 5 messages came within the quiet time of 60 seconds.
bool suppress_errors_p();

// Install a printer; null restores the default. The result is the one before. Host's thread only.
ErrorPrinter set_error_printer(ErrorPrinter printer);
WarningPrinter set_warning_printer(WarningPrinter printer);

// The printers of a running plug-in: standard error, and the host's message line or sparkError for level 9.
void spark_error_printer(int level, const char* text);
void spark_warning_printer(const char* text, int delay_milliseconds);

// "Label: text" as the printers form it, with the bell where the level has one.
void format_message(char* out, int size, int level, const char* text);

// sparkError(text) if the text is not empty, then fatal_abort(1).
void fatal_message(const char* text);

// Says whether a frame is being evaluated; while it is, no delayed message is shown. Set by the entry points.
extern int evaluating_frame_p;

// Shows text on the host's message line for so long, then lets it be as before.
void show_message_delay(int milliseconds, const char* text);

}  // namespace velloran
