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

}  // namespace

Progress::Progress(const std::string& choice, int total) : terminal_(isatty(STDERR_FILENO)), total_(total) {
    kind_ = choice == "json"                                    ? ProgressKind::json
            : choice == "on" || (choice == "auto" && terminal_) ? ProgressKind::line
                                                                : ProgressKind::off;
    if (kind_ == ProgressKind::json) json_event({{"event", "start"}, {"frames", total}});
}

double Progress::seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void Progress::show(const char* event, int frame, const char* key, const std::string& text) {
    const int done = n_rendered + n_skipped + n_failed;
    const double rate = seconds() > 0 ? (n_rendered + n_failed) / seconds() : 0;
    const int left = total_ - done;
    if (kind_ == ProgressKind::json) {
        nlohmann::ordered_json object = {{"event", event}, {"frame", frame}, {key, text}, {"done", done}};
        if (total_ > 0) object["total"] = total_;
        object["seconds"] = std::round(seconds() * 1000) / 1000;
        if (rate > 0 && total_ > 0) object["seconds_left"] = std::round(left / rate * 10) / 10;
        json_event(object);
    } else if (kind_ == ProgressKind::line) {
        std::string line = std::to_string(done) + (total_ > 0 ? "/" + std::to_string(total_) : "") + "  frame " +
                           std::to_string(frame);
        if (rate > 0 && total_ > 0)
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

void Progress::prepared(int frame) {
    if (kind_ == ProgressKind::json)
        json_event({{"event", "prepared"}, {"frame", frame}});
    else if (kind_ == ProgressKind::line && terminal_)
        show_progress_line("frame " + std::to_string(frame) + ", which later ones depend on");
}

void Progress::lost() {
    n_lost_ += n_rendered;
    n_rendered = 0;
}

void Progress::end(int status, const std::string& files) {
    if (kind_ == ProgressKind::line) end_progress_line();
    if (kind_ == ProgressKind::json) {
        json_event({{"event", "end"},
                    {"status", status},
                    {"rendered", n_rendered},
                    {"skipped", n_skipped},
                    {"failed", n_failed},
                    {"lost", n_lost_},
                    {"not_tried", not_tried()},
                    {"total", total_},
                    {"seconds", std::round(seconds() * 1000) / 1000}});
        return;
    }
    std::string text = "wrote " + std::to_string(n_rendered);
    if (n_skipped > 0) text += ", already there " + std::to_string(n_skipped);
    if (n_failed > 0) text += ", failed " + std::to_string(n_failed);
    if (n_lost_ > 0) text += ", given up " + std::to_string(n_lost_);
    if (not_tried() > 0) text += ", not tried " + std::to_string(not_tried());
    text += " of " + std::to_string(total_);
    if (!files.empty()) text += ": " + files;
    if (status == 0)
        note(text);
    else
        fail(text);
}

}  // namespace render
