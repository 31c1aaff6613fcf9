// How far a render is, and how it ended: a line on a terminal and one at the end, or one JSON object a line, on
// standard error.
#pragma once

#include <chrono>
#include <string>

namespace render {

enum class ProgressKind { off, line, json };

class Progress {
public:
    // choice: auto, on, off or json. auto shows a line on a terminal. total: frames to come, 0 if nobody knows yet.
    Progress(const std::string& choice, int total);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void set_total(int total) { total_ = total; }

    void rendered(int frame, const std::string& file);
    void skipped(int frame, const std::string& file);
    void failed(int frame, const std::string& error);
    // A frame that is only made because later ones depend on it.
    void prepared(int frame);
    // Frames that count as rendered do so no more: the file that was to hold them was given up.
    void lost();
    // The report of the run. files: what was written, for people. Once.
    void end(int status, const std::string& files);

    int n_rendered = 0, n_skipped = 0, n_failed = 0;
    int not_tried() const { return total_ - n_rendered - n_skipped - n_failed - n_lost_; }
    double seconds() const;

private:
    void show(const char* event, int frame, const char* key, const std::string& text);

    ProgressKind kind_;
    bool terminal_;
    int total_, n_lost_ = 0;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace render
