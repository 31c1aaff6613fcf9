// A loaded plug-in and the calls to it, in the documented order:
//     auto plugin = load_plugin(host, path, {}, &error);
//     if (plugin && start_plugin(*plugin)) { process_start(*plugin, 0); process(*plugin, 0); ... }
// Its destructor stops and unloads it. One thread, one call at a time; a call may lead to another plug-in (a clip whose
// frames that one renders).
#pragma once

#include "hosts/common/buffers.h"
#include "hosts/common/clip.h"
#include "hosts/common/controls.h"
#include "hosts/common/host.h"

#include <memory>
#include <string>
#include <vector>

namespace spark_host {

struct EntryPoints {
    SparkIsInputFormatSupportedFn format_supported;
    SparkClipsFn clips;
    SparkMemoryTempBuffersFn memory_temp_buffers;
    SparkInitialiseFn initialise;
    SparkControlsFn controls;
    SparkProcessStartFn process_start;
    SparkProcessFn process;
    SparkInteractFn interact;
    SparkOverlayFn overlay;
    SparkUnInitialiseFn uninitialise;
};

struct Plugin {
    Plugin() = default;
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;
    ~Plugin();

    Host* host = nullptr;  // must live as long
    std::string module_path;
    std::string name;  // SparkInfoStruct.Name
    void* module = nullptr;
    int private_copy = -1;  // descriptor of the copy that module was loaded from, -1 if none
    EntryPoints entry = {};
    int n_clips = 0;
    std::vector<ClipPtr> inputs;  // missing or null ones are black
    HostBuffers buffers;
    ControlPanel panel;
    FrameFormat format;  // since start_plugin
    bool started = false;
    int frame_in_buffers = -1;  // frame that the input buffers hold, -1 none
    std::string failure;        // why the last start or process gave nothing; empty if the plug-in did not say
};

// Loads a module. A module that is already loaded gets a private copy with statics of its own. name: path without its
// ending for the plug-in to see; empty: the module's own. Null, and the reason in *error, if it is no plug-in.
std::unique_ptr<Plugin> load_plugin(Host& host, const std::string& path, const std::string& name, std::string* error);

// SparkClips, SparkMemoryTempBuffers where the host has it, SparkInitialise, SparkControls. False: it must not be used.
bool start_plugin(Plugin& plugin);
void stop_plugin(Plugin& plugin);

// Frames that come out of a run from frame on.
int process_start(Plugin& plugin, int frame);
// The finished frame in the host's format, valid until the next call; null if there is none.
const void* process(Plugin& plugin, int frame);
// The pen over the viewer, at host.frame.
const void* interact(Plugin& plugin, const Pen& pen, float zoom);
// Needs a current OpenGL context.
void overlay(Plugin& plugin, float zoom);
// The user acted on a control whose value was set before. Answers the frame that the plug-in rendered, or null.
const void* use_control(Plugin& plugin, int number, int action);

// A symbol of the module or of what it stands on, null if there is none.
void* plugin_symbol(const Plugin& plugin, const char* symbol);

// Input buffers are read again at the next call: clips changed.
void inputs_changed(Plugin& plugin);

}  // namespace spark_host
