// An OpenGL viewer without a window, by the software renderer: for pictures of handles. The work is done by a module of
// its own, loaded when one is asked for: OpenGL takes longer to load than a frame to render.
#pragma once

#include <string>
#include <vector>

namespace spark_host {

struct OffscreenViewer;

// Host's thread only. Rows are bottom first, red green blue, 8 bits, without padding.
struct OffscreenFunctions {
    // A viewer of that many pixels, 1 to max_offscreen each way, and current from then on: what draws with OpenGL draws
    // into it, in its pixels from the lower left. smooth: lines without steps, which take the renderer several times as
    // long. One at a time. Null, and the reason in *error, if there is none.
    OffscreenViewer* (*open)(int width, int height, bool smooth, std::string* error);
    // Shows a picture alone with its lower left corner at (x, y), each of its pixels zoom wide and high.
    void (*show)(OffscreenViewer& viewer, const unsigned char* rgb, int width, int height, int x, int y, float zoom);
    // What it shows now.
    std::vector<unsigned char> (*read)(OffscreenViewer& viewer);
    void (*close)(OffscreenViewer* viewer);
};

constexpr int max_offscreen = 8192;

// Loads the module at first use. Null, and the reason in *error, if it cannot be loaded.
const OffscreenFunctions* offscreen_functions(std::string* error);

// What the module exports.
constexpr const char* offscreen_module_entry = "velloran_offscreen_functions";
using OffscreenModuleEntry = const OffscreenFunctions* (*)();

}  // namespace spark_host
