#include "hosts/render/console.h"

#include <fcntl.h>
#include <unistd.h>

#include <mutex>

namespace render {
namespace {

std::FILE* asked_for = stdout;
bool quiet = false;
bool progress_shown = false;
std::mutex mutex;

void clear_progress() {
    if (progress_shown) std::fputs("\r\033[K", stderr);
    progress_shown = false;
}

void line(const char* start, const std::string& text) {
    const std::lock_guard lock(mutex);
    clear_progress();
    std::fprintf(stderr, "%s%s\n", start, text.c_str());
}

}  // namespace

void open_console() {
    const int copy = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (copy < 0) return;
    asked_for = fdopen(copy, "w");
    dup2(STDERR_FILENO, STDOUT_FILENO);
    setvbuf(stdout, nullptr, _IOLBF, 0);
}

void print(const std::string& text) { std::fwrite(text.data(), 1, text.size(), asked_for); }

bool close_console() { return std::fflush(asked_for) == 0 && !std::ferror(asked_for); }

void note(const std::string& text) {
    if (!quiet) line("", text);
}
void warn(const std::string& text) { line("velloran: warning: ", text); }
void fail(const std::string& text) { line("velloran: ", text); }

void drop_plugin_output() {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0) return;
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
}
void set_quiet(bool on) {
    quiet = on;
    if (on) drop_plugin_output();
}
bool quiet_p() { return quiet; }

void show_progress_line(const std::string& text) {
    const std::lock_guard lock(mutex);
    std::fprintf(stderr, "\r%s\033[K", text.c_str());
    std::fflush(stderr);
    progress_shown = true;
}

void end_progress_line() {
    const std::lock_guard lock(mutex);
    clear_progress();
    std::fflush(stderr);
}

}  // namespace render
