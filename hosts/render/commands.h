// The commands of `velloran`. Each answers the exit status or throws Failure.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace render {

struct RenderOptions {
    std::string effect;
    std::vector<std::string> inputs;  // [NAME=]PATH
    std::string output;
    std::string frames;  // empty: what is on disk
    std::string missing = "error";
    std::vector<std::string> params, controls;
    std::string depth, size, first, length, fps, threads, preroll, codec;  // empty: not given
    std::string look, setup, save_setup, config;
    std::string recipe_from;  // a picture that says how it was made; effect may be empty then
    bool dry_run = false, skip_existing = false, stats = false, quiet = false, verbose = false;
    std::string compression;   // none, fast or small; empty: the format's usual one
    bool fast = false;         // files quickly rather than small, if nothing else is asked for
    bool fill_inputs = false;  // inputs that are not given show the first one, or are black
    std::string on_error = "continue", progress = "auto";
};

struct HandlesOptions {
    RenderOptions render;    // of one frame
    std::vector<float> pen;  // x, y, x, y: where the pen comes down and is dragged to; empty: away
    float zoom = 1;          // pixels of the file for one of the frame
    bool as_set = false;     // only the handles that are switched on
};

struct ExplainOptions {
    RenderOptions render;    // of one frame
    std::vector<int> pixel;  // x, y from the lower left; empty: none
    std::string drawing;     // file for Graphviz; empty: none
    bool json = false;
};

int render_command(const RenderOptions& options);
// Renders, and again whenever the text changes, until it is interrupted.
int watch_command(RenderOptions options);
// Draws the handles of an effect over its picture.
int handles_command(const HandlesOptions& options);
// Renders a frame and tells what each node of the effect gave and took.
int explain_command(const ExplainOptions& options);
// Renders a known set with everything that is installed and prints what came out as one hash.
int verify_command(const std::string& config, bool json);
int check_command(const std::vector<std::string>& files, bool json, bool quiet);
int list_command(const std::string& effect, const std::string& config, bool json);
int functions_command(const std::string& name, bool json);

}  // namespace render
