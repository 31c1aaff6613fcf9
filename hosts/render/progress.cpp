#include "hosts/render/progress.h"

#include "hosts/common/numbers.h"
#include "hosts/render/console.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <cmath>

namespace render {
namespace {

std::string duration_text(double seconds) {
    const long whole = std::lround(seconds);
    const auto two = [](long n) { return (n < 10 ? "0" : "") + std::to_string(n); };
    if (whole < 3600) return std::to_string(whole / 60) + ":" + two(whole % 60);
    return std::to_string(whole / 3600) + ":" + two(whole / 60 % 60) + ":" + two(whole % 60);
}

void json_line(const nlohmann::ordered_json& object) {
    std::fputs((object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n").c_str(), stderr);
}

}  // namespace

Progress::Progress(const std::string& choice, int total) : terminal_(isatty(STDERR_FILENO)), total_(total) {
    kind_ = choice == "json"                                    ? ProgressKind::json
            : choice == "on" || (choice == "auto" && terminal_) ? ProgressKind::line
                                                                : ProgressKind::off;
    if (kind_ == ProgressKind::json) json_line({{"event", "start"}, {"frames", total}});
}

Progress::~Progress() { end(); }

double Progress::seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void Progress::show(const char* event, int frame, const char* key, const std::string& text) {
    const int done = n_rendered + n_skipped + n_failed;
    const double rate = seconds() > 0 ? (n_rendered + n_failed) / seconds() : 0;
    const int left = total_ - done;
    if (kind_ == ProgressKind::json) {
        nlohmann::ordered_json object = {
            {"event", event}, {"frame", frame}, {key, text}, {"done", done}, {"total", total_}};
        object["seconds"] = std::round(seconds() * 1000) / 1000;
        if (rate > 0) object["seconds_left"] = std::round(left / rate * 10) / 10;
        json_line(object);
    } else if (kind_ == ProgressKind::line) {
        std::string line = std::to_string(done) + "/" + std::to_string(total_) + "  frame " + std::to_string(frame);
        if (rate > 0)
            line += "  " + spark_host::number_text(rate, rate < 10 ? 2 : 1) + " frames/s  " +
                    duration_text(left / rate) + " left";
        if (terminal_)
            show_progress_line(line);
        else
            note(line);
    }
}

void Progress::rendered(int frame, const std::string& file) {
    n_rendered++;
    show("rendered", frame, "file", file);
}

void Progress::skipped(int frame, const std::string& file) {
    n_skipped++;
    show("skipped", frame, "file", file);
}

void Progress::failed(int frame, const std::string& error) {
    n_failed++;
    show("failed", frame, "error", error);
}

void Progress::end() {
    if (ended_) return;
    ended_ = true;
    if (kind_ == ProgressKind::json)
        json_line({{"event", "end"},
                   {"rendered", n_rendered},
                   {"skipped", n_skipped},
                   {"failed", n_failed},
                   {"seconds", std::round(seconds() * 1000) / 1000}});
    else if (kind_ == ProgressKind::line)
        end_progress_line();
}

}  // namespace render
