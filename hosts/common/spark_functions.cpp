// What every host offers: the spark functions that plug-ins link against.
#include "hosts/common/host.h"
#include "hosts/common/plugin.h"
#include "hosts/common/setup_text.h"
#include "hosts/common/task_pool.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <exception>
#include <thread>

using namespace spark_host;

#pragma GCC visibility push(default)
extern "C" {

float sparkAPIVersionInfo() { return host().api_version; }
int sparkCallingEnv() { return host().calling_env; }

int sparkProgramGetName(char* name, int size) {
    const std::string& program = host().program_name;
    if (name && size > 0) {
        const size_t n = std::min(program.size(), static_cast<size_t>(size - 1));
        std::memcpy(name, program.data(), n);
        name[n] = 0;
    }
    return static_cast<int>(program.size());
}

int sparkGetInfo(SparkInfoStruct* info) {
    *info = current_info(host());
    return host().info_known ? 1 : 0;
}

int sparkMemGetFreeMemory() { return free_buffers(host()); }

int sparkMemRegisterBufferSize(long bytes) {
    Plugin* const plugin = host().plugin;
    return plugin ? register_buffer(host(), plugin->buffers, bytes) : 0;
}

int sparkMemGetBuffer(int id, SparkMemBufStruct* buffer) {
    Plugin* const plugin = host().plugin;
    return plugin && buffer ? get_buffer(host(), plugin->buffers, id, buffer) : 0;
}

void* sparkGetFrame(int input, int frame, void* buffer) {
    Plugin* const plugin = host().plugin;
    if (!plugin || !buffer || input < 0 || input >= static_cast<int>(plugin->inputs.size())) return nullptr;
    // Not held: an abort of the plug-in that reads may pass, and inputs do not change within a call.
    const Clip* const clip = plugin->inputs[static_cast<size_t>(input)].get();
    try {
        return clip && read_clip(*clip, frame, host().format, buffer) ? buffer : nullptr;
    } catch (const std::exception&) {
        return nullptr;  // the plug-in in between knows no exceptions
    }
}

void sparkError(const char* text) { report_error(host(), text ? text : ""); }
void sparkMessage(const char* text) { report_message(host(), text ? text : ""); }

void sparkCursorBusy() { host().busy_cursors++; }
void sparkViewingCursor(int on) { host().viewing_cursor = on; }

void sparkViewingDraw() {
    Host& h = host();
    h.viewer_draws++;
    if (h.on_viewing_draw)
        h.on_viewing_draw();
    else if (h.viewer && h.plugin)
        overlay(*h.plugin, h.viewer_zoom);
}

int sparkPointerRead(float* x, float* y, float* pressure) {
    const Host& h = host();
    const Pen pen = h.read_pen ? h.read_pen() : h.pen;
    if (x) *x = pen.x;
    if (y) *y = pen.y;
    if (pressure) *pressure = pen.pressure;
    return pen.pressure > 0;
}

void sparkPointerWaitOff() {
    Host& h = host();
    h.pen.pressure = 0;
    while (h.read_pen && h.read_pen().pressure > 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

void sparkProcessTruncate() { host().truncated = true; }

void sparkControlUpdate(int number) {
    Plugin* const plugin = host().plugin;
    Control* const control = plugin ? find_control(plugin->panel, number) : nullptr;
    if (control) control->updates++;
}

int sparkSetControlName(int panel, int number, const char* text) {
    Plugin* const plugin = host().plugin;
    if (!plugin || panel != 1 || number < SPARK_FIRST_CONTROL || number > SPARK_LAST_CONTROL) return 0;
    // Plug-ins name their controls while they initialise, before the host knows them.
    Control& control = plugin->panel.controls[number];
    control.number = number;
    control.name = text ? text : "";
    return 1;
}

void sparkClipControlTitle(int clip, const char* text) {
    Plugin* const plugin = host().plugin;
    if (plugin && clip >= 0 && clip < SPARK_MAX_CLIPS) plugin->panel.clip_titles[clip] = text ? text : "";
}

int sparkSaveSetup(const char* path) {
    const Plugin* const plugin = host().plugin;
    return plugin && path && save_setup(host(), *plugin, path);
}

int sparkLoadSetup(const char* path) {
    Plugin* const plugin = host().plugin;
    return plugin && path && load_setup(*plugin, path);
}

float sparkGetCurveValue(int panel, int number, int frame) {
    return sparkGetCurveValuef(panel, number, static_cast<float>(frame));
}

float sparkGetCurveValuef(int panel, int number, float frame) {
    const Plugin* const plugin = host().plugin;
    const Control* const control = plugin && panel == 1 ? find_control(plugin->panel, number) : nullptr;
    return control && control_channels(*control) > 0 ? value_at(*control, 0, frame) : 0.0f;
}

int sparkSetCurveKey(int panel, int number, int frame, float value) {
    Plugin* const plugin = host().plugin;
    Control* const control = plugin && panel == 1 ? find_control(plugin->panel, number) : nullptr;
    if (!control || control_channels(*control) != 1) return 0;
    set_key(control->curves[0], static_cast<float>(frame), value);
    return 1;
}

int sparkMpFork(void (*function)(), int) {
    pool_run(function, host().processors);
    return 1;
}

void sparkMpInfo(int* offset, int* size) {
    const long pixels = host().format.pixels();
    const long share = std::max(1L, pixels / std::max(1, host().processors));
    const int index = pool_task_index();
    const bool last = index == pool_task_count() - 1;
    const long first = index * share;
    *offset = static_cast<int>(first);
    *size = static_cast<int>(last ? std::max(0L, pixels - first) : share);
}

}  // extern "C"
#pragma GCC visibility pop
