#include "hosts/common/plugin.h"

#include "hosts/common/library_call.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace spark_host {
namespace {

// Puts the plug-in's host in force for one call and takes back what the call was handed.
class CallScope {
public:
    explicit CallScope(Plugin& plugin)
        : plugin_(plugin),
          host_before_(use_host(plugin.host)),
          plugin_before_(plugin.host->plugin),
          frame_before_(plugin.host->frame) {
        plugin.host->plugin = &plugin;
    }
    ~CallScope() {
        note_call_ended(plugin_.buffers);
        plugin_.host->plugin = plugin_before_;
        plugin_.host->frame = frame_before_;
        use_host(host_before_);
    }
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

private:
    LibraryCall one_at_a_time_;
    Plugin& plugin_;
    Host* host_before_;
    Plugin* plugin_before_;
    int frame_before_;
};

std::string without_ending(const std::string& path) {
    const size_t slash = path.rfind('/');
    const size_t dot = path.rfind('.');
    const bool ending = dot != std::string::npos && (slash == std::string::npos || dot > slash);
    return ending ? path.substr(0, dot) : path;
}

// The loader gives one image per file, so a second instance needs a file of its own. The descriptor stays open as long
// as the module: the loader knows its images by name, and the name is the descriptor's number.
int copy_to_memory(const std::string& path, std::string* error) {
    const int from = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    if (from < 0 || fstat(from, &status) != 0) {
        *error = path + ": " + std::strerror(errno);
        if (from >= 0) close(from);
        return -1;
    }
    const int copy = memfd_create("plugin", MFD_CLOEXEC);
    off_t left = status.st_size;
    while (copy >= 0 && left > 0) {
        const ssize_t n = sendfile(copy, from, nullptr, static_cast<size_t>(left));
        if (n <= 0) break;
        left -= n;
    }
    if (copy < 0 || left > 0) {
        *error = path + ": cannot copy: " + std::strerror(errno);
        if (copy >= 0) close(copy);
        close(from);
        return -1;
    }
    close(from);
    return copy;
}

bool open_module(Plugin& plugin, std::string* error) {
    const LibraryCall call;
    constexpr int flags = RTLD_NOW | RTLD_LOCAL;
    void* const loaded = dlopen(plugin.module_path.c_str(), RTLD_NOLOAD | flags);
    if (loaded) {
        dlclose(loaded);
        plugin.private_copy = copy_to_memory(plugin.module_path, error);
        if (plugin.private_copy < 0) return false;
        const std::string copy = "/proc/self/fd/" + std::to_string(plugin.private_copy);
        plugin.module = dlopen(copy.c_str(), flags);
    } else {
        plugin.module = dlopen(plugin.module_path.c_str(), flags);
    }
    if (!plugin.module) *error = dlerror();
    return plugin.module != nullptr;
}

template <class F>
bool find(Plugin& plugin, F& function, const char* name, std::string* error) {
    function = reinterpret_cast<F>(dlsym(plugin.module, name));
    if (!function) *error = plugin.module_path + ": not a plug-in: " + name + " is missing";
    return function != nullptr;
}

bool find_entry_points(Plugin& plugin, std::string* error) {
    EntryPoints& entry = plugin.entry;
    return find(plugin, entry.format_supported, "SparkIsInputFormatSupported", error) &&
           find(plugin, entry.clips, "SparkClips", error) &&
           find(plugin, entry.memory_temp_buffers, "SparkMemoryTempBuffers", error) &&
           find(plugin, entry.initialise, "SparkInitialise", error) &&
           find(plugin, entry.controls, "SparkControls", error) &&
           find(plugin, entry.process_start, "SparkProcessStart", error) &&
           find(plugin, entry.process, "SparkProcess", error) && find(plugin, entry.interact, "SparkInteract", error) &&
           find(plugin, entry.overlay, "SparkOverlay", error) &&
           find(plugin, entry.uninitialise, "SparkUnInitialise", error);
}

// Fills the input buffers and has the destination cleared. With a frame that the inputs already hold, only the latter.
bool prepare_frame(Plugin& plugin, int frame) {
    Host& host = *plugin.host;
    host.frame = frame;
    host.memory_ran_out = false;
    plugin.failure.clear();
    if (!(host.format == plugin.format)) {
        plugin.failure = "the frame size or depth changed while the plug-in runs";
        return false;
    }
    const size_t bytes = static_cast<size_t>(plugin.format.bytes());
    for (int i = 0; i < plugin.n_clips && plugin.frame_in_buffers != frame; i++) {
        void* const buffer = host_writes_buffer(plugin.buffers, first_input_buffer_id + i);
        if (!buffer) {
            plugin.failure = "out of memory";
            return false;
        }
        const ClipPtr clip =
            static_cast<size_t>(i) < plugin.inputs.size() ? plugin.inputs[static_cast<size_t>(i)] : nullptr;
        if (!clip) {
            std::memset(buffer, 0, bytes);
        } else if (!read_clip(*clip, frame, plugin.format, buffer)) {
            plugin.failure = "input " + std::to_string(i + 1) + " has no frame " + std::to_string(frame + 1);
            plugin.frame_in_buffers = -1;
            return false;
        }
    }
    plugin.frame_in_buffers = frame;
    if (!renew_dest(host, plugin.buffers)) {
        plugin.failure = "out of memory";
        return false;
    }
    apply_curves(plugin.panel, static_cast<float>(frame + 1));
    return true;
}

}  // namespace

std::unique_ptr<Plugin> load_plugin(Host& host, const std::string& path, const std::string& name, std::string* error) {
    auto plugin = std::make_unique<Plugin>();
    plugin->host = &host;
    plugin->module_path = path.find('/') == std::string::npos ? "./" + path : path;
    plugin->name = name.empty() ? without_ending(path) : name;
    std::string reason;
    if (open_module(*plugin, &reason) && find_entry_points(*plugin, &reason)) return plugin;
    if (error) *error = reason;
    return nullptr;
}

Plugin::~Plugin() {
    stop_plugin(*this);
    const LibraryCall call;
    if (module) dlclose(module);
    if (private_copy >= 0) close(private_copy);
}

bool start_plugin(Plugin& plugin) {
    Host& host = *plugin.host;
    stop_plugin(plugin);
    plugin.failure.clear();
    CallScope call(plugin);
    if (!plugin.entry.format_supported(host.format.depth)) {
        plugin.failure = "frames of depth code " + std::to_string(host.format.depth) + " are not supported";
        return false;
    }
    plugin.format = host.format;
    plugin.frame_in_buffers = -1;
    plugin.n_clips = plugin.entry.clips();
    if (plugin.n_clips < 0 || plugin.n_clips > SPARK_MAX_CLIPS) {
        plugin.failure = "it asks for " + std::to_string(plugin.n_clips) + " input clips";
        plugin.n_clips = 0;
        plugin.entry.uninitialise(current_info(host));  // what it set up to answer goes again
        return false;
    }
    make_frame_buffers(host, plugin.buffers, plugin.n_clips);
    if (registers_buffers_p(host)) {
        plugin.buffers.registering = true;
        plugin.entry.memory_temp_buffers();
        plugin.buffers.registering = false;
    }
    if (plugin.entry.initialise(current_info(host)) != 2) {
        release_buffers(host, plugin.buffers);
        return false;
    }
    const SparkControl* list = nullptr;
    const int count = plugin.entry.controls(&list);
    set_controls(plugin.panel, list, list ? count : 0);
    plugin.started = true;
    return true;
}

void stop_plugin(Plugin& plugin) {
    if (!plugin.started) return;
    {
        CallScope call(plugin);
        plugin.entry.uninitialise(current_info(*plugin.host));
    }
    plugin.started = false;
    plugin.panel = ControlPanel();
    release_buffers(*plugin.host, plugin.buffers);
}

int process_start(Plugin& plugin, int frame) {
    if (!plugin.started) return 0;
    CallScope call(plugin);
    plugin.host->frame = frame;
    plugin.host->truncated = false;
    return plugin.entry.process_start(current_info(*plugin.host));
}

const void* process(Plugin& plugin, int frame) {
    if (!plugin.started) return nullptr;
    CallScope call(plugin);
    if (!prepare_frame(plugin, frame)) return nullptr;
    const void* const made = plugin.entry.process(current_info(*plugin.host));
    if (!made && plugin.host->memory_ran_out) plugin.failure = "out of memory";
    return made;
}

const void* interact(Plugin& plugin, const Pen& pen, float zoom) {
    if (!plugin.started) return nullptr;
    plugin.host->pen = pen;
    CallScope call(plugin);
    if (!prepare_frame(plugin, plugin.host->frame)) return nullptr;
    return plugin.entry.interact(current_info(*plugin.host), 0, 0, pen.pressure, pen.x, pen.y, zoom);
}

void overlay(Plugin& plugin, float zoom) {
    if (!plugin.started) return;
    CallScope call(plugin);
    plugin.entry.overlay(current_info(*plugin.host), zoom);
}

const void* use_control(Plugin& plugin, int number, int action) {
    Control* const control = plugin.started ? find_control(plugin.panel, number) : nullptr;
    if (!control) return nullptr;
    SparkCallback callback = nullptr;
    switch (control->kind) {
        case SPARK_CONTROL_FLOAT:
            callback = static_cast<SparkFloatStruct*>(control->structure)->CallBack;
            break;
        case SPARK_CONTROL_INT:
            callback = static_cast<SparkIntStruct*>(control->structure)->CallBack;
            break;
        case SPARK_CONTROL_COLOUR:
            callback = static_cast<SparkColourStruct*>(control->structure)->CallBack;
            break;
        case SPARK_CONTROL_BOOLEAN:
        case SPARK_CONTROL_TOGGLE:
            callback = static_cast<SparkBooleanStruct*>(control->structure)->CallBack;
            break;
        case SPARK_CONTROL_POPUP:
            callback = static_cast<SparkPopupStruct*>(control->structure)->CallBack;
            break;
        case SPARK_CONTROL_STRING:
            callback = static_cast<SparkStringStruct*>(control->structure)->CallBack;
            break;
    }
    if (!callback) return nullptr;
    CallScope call(plugin);
    if (!prepare_frame(plugin, plugin.host->frame)) return nullptr;
    return callback(action, current_info(*plugin.host));
}

void* plugin_symbol(const Plugin& plugin, const char* symbol) { return dlsym(plugin.module, symbol); }

void inputs_changed(Plugin& plugin) { plugin.frame_in_buffers = -1; }

}  // namespace spark_host
