#include "hosts/render/console.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>

namespace render {
namespace {

std::FILE* asked_for = stdout;
bool quiet = false;
bool progress_shown = false;
std::mutex mutex;
std::function<void(int, const std::string&)> listener;

// With JSON: where events go, and what reads the lines that libraries write to standard error.
int events = -1;
std::atomic<bool> ended{false};
std::thread reader;

void write_line(int file, const std::string& line) {
    for (size_t at = 0; at < line.size();) {
        const ssize_t n = write(file, line.data() + at, line.size() - at);
        if (n <= 0) return;
        at += static_cast<size_t>(n);
    }
}

void clear_progress() {
    if (progress_shown) std::fputs("\r\033[K", stderr);
    progress_shown = false;
}

void line(const char* event, const char* start, const std::string& text) {
    if (events >= 0) return json_event({{"event", event}, {"text", text}});
    const std::lock_guard lock(mutex);
    clear_progress();
    std::fprintf(stderr, "%s%s\n", start, text.c_str());
}

void read_lines(int from) {
    std::string text;
    char bytes[4096];
    for (ssize_t n; (n = read(from, bytes, sizeof(bytes))) > 0;) {
        text.append(bytes, static_cast<size_t>(n));
        for (size_t end; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
            std::string one = text.substr(0, end);
            // Bells are for terminals.
            std::erase_if(one, [](unsigned char c) { return c < ' ' && c != '\t'; });
            if (!one.empty()) json_event({{"event", "message"}, {"text", one}});
        }
    }
    close(from);
}

// Waits for what was written to standard error. What comes later goes nowhere.
void end_reader() {
    if (!reader.joinable()) return;
    std::fflush(stdout);
    std::fflush(stderr);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere >= 0 ? nowhere : events, STDERR_FILENO);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    if (nowhere >= 0) close(nowhere);
    reader.join();
}

}  // namespace

void open_console() {
    const int copy = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (copy < 0) return;
    asked_for = fdopen(copy, "w");
    dup2(STDERR_FILENO, STDOUT_FILENO);
    setvbuf(stdout, nullptr, _IOLBF, 0);
}

void print(std::string_view text) { std::fwrite(text.data(), 1, text.size(), asked_for); }

bool close_console() { return std::fflush(asked_for) == 0 && !std::ferror(asked_for); }

void note(const std::string& text) {
    if (listener) return listener(0, text);
    if (!quiet) line("note", "", text);
}
void warn(const std::string& text) {
    if (listener) return listener(1, text);
    line("warning", "velloran: warning: ", text);
}
void fail(const std::string& text) {
    if (listener) return listener(2, text);
    line("error", "velloran: ", text);
}
void set_console_listener(std::function<void(int, const std::string&)> function) { listener = std::move(function); }

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

void set_json() {
    if (events >= 0) return;
    const int copy = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    int ends[2];
    if (copy < 0 || pipe2(ends, O_CLOEXEC) != 0) return;
    events = copy;
    // A program without a thread to spare loses what libraries say, and keeps its own words.
    try {
        reader = std::thread(read_lines, ends[0]);
    } catch (const std::system_error&) {
        close(ends[0]);
    }
    dup2(ends[1], STDERR_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
}

bool json_p() { return events >= 0; }

void json_event(const nlohmann::ordered_json& event) {
    if (events < 0) return;
    const bool end = event["event"] == "end";
    if (end) end_reader();
    const std::string text = event.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    const std::lock_guard lock(mutex);
    if (!ended.exchange(end))
        write_line(events, text);
    else
        ended = true;
}

void json_end(int status, const std::string& error) {
    nlohmann::ordered_json end = {{"event", "end"}, {"status", status}};
    if (!error.empty()) end["error"] = error;
    json_event(end);
}

void json_end_in_handler(int status) {
    if (events < 0 || ended.exchange(true)) return;
    char text[64] = "{\"event\":\"end\",\"status\":";
    size_t length = std::strlen(text);
    for (int place = status >= 100 ? 100 : 10; place > 0; place /= 10)
        text[length++] = static_cast<char>('0' + status / place % 10);
    std::memcpy(text + length, "}\n", 2);
    [[maybe_unused]] const ssize_t written = write(events, text, length + 2);
}

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
