// How far a render is: a line on a terminal, or one JSON object a line, on standard error.
#pragma once

#include <chrono>
#include <string>

namespace render {

enum class ProgressKind { off, line, json };

class Progress {
public:
    // choice: auto, on, off or json. auto shows a line on a terminal.
    Progress(const std::string& choice, int total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void rendered(int frame, const std::string& file);
    void skipped(int frame, const std::string& file);
    void failed(int frame, const std::string& error);
    void end();

    int n_rendered = 0, n_skipped = 0, n_failed = 0;
    double seconds() const;

private:
    void show(const char* event, int frame, const char* key, const std::string& text);

    ProgressKind kind_;
    bool terminal_;
    int total_;
    bool ended_ = false;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace render
