// An OpenGL viewer without a window, by the software renderer: for pictures of handles, and for handles to lay over a
// picture. The work is done by a module of its own, loaded when one is asked for: OpenGL takes longer to load than a
// frame to render.
#pragma once

#include <string>
#include <vector>

namespace spark_host {

struct OffscreenViewer;

// How a viewer draws.
enum class OffscreenKind : int {
    plain,   // by the plainest renderer, which is one thread: the same pixels everywhere
    smooth,  // the same, lines without steps, which take it several times as long
    layer,   // the fastest renderer; smooth lines over nothing, for read_layer
};

// Host's thread only. Rows are bottom first, 8 bits, without padding.
struct OffscreenFunctions {
    // A viewer of that many pixels, 1 to max_offscreen each way, and current from then on: what draws with OpenGL draws
    // into it, in its pixels from the lower left. One at a time. Which renderer draws is settled by the first one of
    // the process, unless GALLIUM_DRIVER names it. Null, and the reason in *error, if there is none.
    OffscreenViewer* (*open)(int width, int height, OffscreenKind kind, std::string* error);
    // Another size, all of it empty. False, and the reason in *error, where it cannot be had: the viewer can then only
    // be closed.
    bool (*resize)(OffscreenViewer& viewer, int width, int height, std::string* error);
    // Nothing is on it.
    void (*clear)(OffscreenViewer& viewer);
    // Shows a picture alone with its lower left corner at (x, y), each of its pixels zoom wide and high.
    void (*show)(OffscreenViewer& viewer, const unsigned char* rgb, int width, int height, int x, int y, float zoom);
    // What it shows now: red green blue.
    std::vector<unsigned char> (*read)(OffscreenViewer& viewer);
    // What was drawn over nothing, into memory of 4 bytes a pixel: red green blue, weighed with their coverage, and
    // that.
    void (*read_layer)(OffscreenViewer& viewer, unsigned char* rgba);
    void (*close)(OffscreenViewer* viewer);
};

constexpr int max_offscreen = 8192;

// Loads the module at first use. Null, and the reason in *error, if it cannot be loaded.
const OffscreenFunctions* offscreen_functions(std::string* error);

// What the module exports.
constexpr const char* offscreen_module_entry = "velloran_offscreen_functions";
using OffscreenModuleEntry = const OffscreenFunctions* (*)();

}  // namespace spark_host
