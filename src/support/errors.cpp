#include "support/errors.h"

#include "spark/spark.h"
#include "support/abort.h"
#include "support/clock.h"
#include "support/files.h"
#include "support/optional_host.h"
#include "support/task_state.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace velloran {

int evaluating_frame_p = 0;

namespace {

constexpr int message_size = 1024;
constexpr int host_text_length = 994;
constexpr int log_text_length = 4056;
constexpr long log_file_limit = 20480;
constexpr double quiet_seconds = 60;

v_mutex log_mutex;
int recent_errors = 0;
time_t last_log_time = 0;
double last_message_time = -1e9;
char pending_host_error[message_size];  // empty: none
char cause_of_abort[message_size];      // of one that may come; empty: none
v_mutex pending_mutex;

const char* const level_labels[10] = {"", "Info",  "Note",    "Info",  "Note",
                                      "", "Alert", "Warning", "Error", "Fatal Error"};

int level_in_range(int level) { return level < 0 || level > 9 ? level_warning : level; }

int length_without_line_feeds(const char* text) {
    int length = static_cast<int>(std::strlen(text));
    while (length > 0 && (text[length - 1] == '\n' || text[length - 1] == '\r')) --length;
    return length;
}

void write_to_stderr(int level, const char* text) {
    char message[message_size];
    format_message(message, sizeof(message), level, text);
    std::fprintf(stderr, "%s\n", message);
    std::fflush(stderr);
}

void default_error_printer(int level, const char* text) {
    write_to_stderr(level, text);
    if (level != level_fatal) return;
    // A call of a host ends alone; a program that has no host ends.
    if (_V_jmp_set) fatal_abort(1);
    std::exit(1);
}

ErrorPrinter error_printer = default_error_printer;
WarningPrinter warning_printer = nullptr;

void default_log_printer(const char* text) {
    std::fputs(text, stderr);
    std::fflush(stderr);
}

LogPrinter log_printer = default_log_printer;

// Messages that come fast after each other must not hold the user up.
int message_delay(int usual) {
    const double now = message_clock();
    const double pause = now - last_message_time;
    last_message_time = now;
    return pause < 1 ? 0 : pause < 10 ? 50 : usual;
}

// Shows a message that may be left out: not while tasks run or a frame is being made. False if it was left out.
bool show_passing_message(int usual_delay, const char* text) {
    if (!host_thread_p()) return false;
    const int delay = message_delay(usual_delay);
    if (evaluating_frame_p || is_forked) return false;
    show_message_delay(delay, text);
    return true;
}

// Only the host's thread may call the host; what a task has to tell waits.
void show_host_error(const char* text) {
    if (host_thread_p()) {
        sparkError(text);
        return;
    }
    v_lock lock(pending_mutex);
    if (!*pending_host_error) std::snprintf(pending_host_error, sizeof(pending_host_error), "%s", text);
}

time_t time_of_day() { return std::time(nullptr); }

}  // namespace

time_t (*log_clock)() = time_of_day;
double (*message_clock)() = steady_seconds;

void format_message(char* out, int size, int level, const char* text) {
    level = level_in_range(level);
    const int length = length_without_line_feeds(text);
    const char* const bell = "\a";
    if (level == 0 || level == 5)
        std::snprintf(out, static_cast<size_t>(size), "%s%.*s", level == 5 ? bell : "", length, text);
    else
        std::snprintf(out, static_cast<size_t>(size), "%s:%s %.*s", level_labels[level], level <= 2 ? "" : bell, length,
                      text);
}

void log_error(const char* text) {
    v_lock lock(log_mutex);
    const time_t now = log_clock();
    if (std::difftime(now, last_log_time) > quiet_seconds) recent_errors = 0;
    last_log_time = now;
    ++recent_errors;

    char time_text[64];
    if (!ctime_r(&now, time_text)) time_text[0] = 0;
    time_text[std::strcspn(time_text, "\n")] = 0;
    int length = length_without_line_feeds(text);
    if (length > log_text_length) length = log_text_length;

    const char* const name = "v_error_log.txt";
    char path[log_path_size], backup[log_path_size + 8];
    log_file_path(name, path);
    struct stat status;
    if (stat(path, &status) == 0 && status.st_size > log_file_limit) {
        std::snprintf(backup, sizeof(backup), "%s.bak", path);
        unlink(backup);
        if (std::rename(path, backup) != 0) unlink(path);
    }
    if (FILE* file = open_log_file(name, "a", path)) {
        std::fprintf(file, "%s: %.*s\n", time_text, length, text);
        std::fclose(file);
    }
}

void V_error(int level, const char* format, ...) {
    const int error_number = errno;
    char text[message_size];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    log_error(text);
    error_printer(level_in_range(level), text);
    errno = error_number;
}

void print_error(int level, const char* format, va_list arguments) {
    char text[message_size];
    std::vsnprintf(text, sizeof(text), format, arguments);
    error_printer(level_in_range(level), text);
}

void log_warning(const char* format, ...) {
    char text[message_size];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    log_error(text);
    if (warning_printer)
        warning_printer(text, 300);
    else
        std::fprintf(stderr, "%s", text);
}

void log_print(const char* format, ...) {
    char text[message_size];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    log_error(text);
    log_printer(text);
}

bool suppress_errors_p() { return recent_errors > 5; }

ErrorPrinter set_error_printer(ErrorPrinter printer) {
    const ErrorPrinter before = error_printer;
    error_printer = printer ? printer : default_error_printer;
    return before;
}

WarningPrinter set_warning_printer(WarningPrinter printer) {
    const WarningPrinter before = warning_printer;
    warning_printer = printer;
    return before;
}

LogPrinter set_log_printer(LogPrinter printer) {
    const LogPrinter before = log_printer;
    log_printer = printer ? printer : default_log_printer;
    return before;
}

void show_message_delay(int milliseconds, const char* text) {
    if (has_sparkMessageDelay_p()) {
        v_sparkMessageDelay(milliseconds, text);
        return;
    }
    sparkMessage(text);
    usleep(static_cast<useconds_t>(milliseconds) * 1000);
}

void spark_error_printer(int level, const char* text) {
    level = level_in_range(level);
    write_to_stderr(level, text);
    char host_text[message_size];
    const int length = length_without_line_feeds(text);
    const int kept = length < host_text_length ? length : host_text_length;
    const char* const label = level_labels[level];
    if (*label)
        std::snprintf(host_text, sizeof(host_text), "%s: %.*s", label, kept, text);
    else
        std::snprintf(host_text, sizeof(host_text), "%.*s", kept, text);
    if (level == level_fatal) {
        if (host_thread_p()) message_delay(0);  // counts as a message
        show_host_error(host_text);
    } else if (!show_passing_message(1000, host_text) && level == level_error) {
        v_lock lock(pending_mutex);
        if (!*cause_of_abort) std::snprintf(cause_of_abort, sizeof(cause_of_abort), "%s", host_text);
    }
}

void show_pending_host_error() {
    if (!*pending_host_error) return;
    sparkError(pending_host_error);
    *pending_host_error = 0;
}

void show_cause_of_abort() {
    if (*cause_of_abort) show_message_delay(message_delay(1000), cause_of_abort);
    *cause_of_abort = 0;
}

void drop_cause_of_abort() { *cause_of_abort = 0; }

void spark_warning_printer(const char* text, int delay_milliseconds) {
    if (!show_passing_message(delay_milliseconds, text)) std::fprintf(stderr, "%s\n", text);
}

void fatal_message(const char* text) {
    if (text && *text) show_host_error(text);
    fatal_abort(1);
}

}  // namespace velloran
